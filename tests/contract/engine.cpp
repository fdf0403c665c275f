#include "engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace rokc {

namespace {

constexpr std::size_t kMostBytes = std::size_t(64) << 20;

// Writes v, converted to type t, at p.
void store_number(std::uint8_t* p, Type t, double v) {
    auto put = [p](auto x) { std::memcpy(p, &x, sizeof x); };
    switch (t) {
        case Type::U8: put(std::uint8_t(v)); break;
        case Type::S8: put(std::int8_t(v)); break;
        case Type::U16: put(std::uint16_t(v)); break;
        case Type::S16: case Type::SC16: put(std::int16_t(v)); break;
        case Type::U32: put(std::uint32_t(v)); break;
        case Type::S32: case Type::SC32: put(std::int32_t(v)); break;
        case Type::F32: case Type::FC32: put(float(v)); break;
        case Type::S64: put(std::int64_t(v)); break;
        case Type::F64: case Type::FC64: put(double(v)); break;
        default: break;
    }
}

}  // namespace

std::uint8_t* Trial::buffer(std::size_t bytes) {
    buffers_.push_back(std::make_unique<rokt::GuardedBuffer>(bytes, guard_));
    return buffers_.back()->data();
}

void Trial::fill_random(std::uint8_t* p, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k) p[k] = std::uint8_t(call_.rng());
}

Trial::Trial(const Export& e, const Plan& plan) : e_(e), guard_(plan.guard), plane_arrays_(e.nargs, nullptr) {
    call_.rng.seed(plan.seed);
    call_.nc = e.nc;
    draw_scalars(plan);
    for (int i = 0; i < e.nargs && problem_.empty(); ++i) {
        const Arg& a = e.args[i];
        switch (a.kind) {
            case Kind::Image: lay_image(i, a, plan); break;
            case Kind::Planes: lay_planes(i, a, plan); break;
            case Kind::Array: case Kind::Out: lay_array(i, a); break;
            default: break;
        }
    }
    // Scratch last: its size may follow from every other argument.
    for (int i = 0; i < e.nargs && problem_.empty(); ++i) {
        if (e.args[i].kind != Kind::Buffer) continue;
        const int bytes = e.buffer ? e.buffer(call_) : -1;
        if (bytes < 0) {
            problem_ = "the buffer-size query failed";
            break;
        }
        std::uint8_t* p = buffer(std::size_t(bytes));
        std::memset(p, 0xA5, std::size_t(bytes));
        call_.slot[i].p = p;
        scratch_ = buffers_.back().get();
    }
}

void Trial::draw_scalars(const Plan& plan) {
    for (const int* o = e_.order; *o >= 0; ++o) {
        const int i = *o;
        const Arg& a = e_.args[i];
        Call::Slot& s = call_.slot[i];
        switch (a.kind) {
            case Kind::Roi: s.s = a.square ? RokiSize{plan.roi.width, plan.roi.width} : plan.roi; break;
            case Kind::Size: s.s = a.size(call_); break;
            case Kind::Int: s.i = a.value(call_); break;
            case Kind::Real: s.f = a.real(call_); break;
            case Kind::Point: {
                const int x = a.value(call_);
                s.pt = RokiPoint{x, a.value2(call_)};
                break;
            }
            case Kind::Value:
                if (a.real) {
                    s.f = a.real(call_);
                    call_.numeric[i] = true;
                } else {
                    fill_random(s.raw, sizeof s.raw);
                }
                break;
            default: break;
        }
    }
}

void Trial::lay_image(int i, const Arg& a, const Plan& plan) {
    const RokiSize roi = a.size(call_);
    int border[4] = {0, 0, 0, 0};
    for (int k = 0; k < 4; ++k)
        if (a.border[k]) border[k] = std::max(0, a.border[k](call_));
    const std::size_t pixel = std::size_t(type_bytes(e_.type(a.elem))) * e_.channels(a.ch);
    const long long width = std::max(roi.width, 1) + border[0] + border[2];
    const long long height = std::max(roi.height, 1) + border[1] + border[3];
    const long long row = width * static_cast<long long>(pixel);
    const long long step = row + (plan.padded ? 1 + 2 * (call_.rng() % 4) : 0);
    const long long bytes = (height - 1) * step + row;
    if (pixel == 0 || bytes <= 0 || std::size_t(bytes) > kMostBytes || step > 0x7fffffff) {
        problem_ = std::string(a.name) + ": no image of that size";
        return;
    }
    std::uint8_t* p = buffer(std::size_t(bytes));
    fill_random(p, std::size_t(bytes));
    call_.slot[i].p = p + border[1] * step + border[0] * static_cast<long long>(pixel);
    call_.slot[a.step].i = int(step);
}

void Trial::lay_planes(int i, const Arg& a, const Plan& plan) {
    const int n = a.count(call_);
    const RokiSize roi = a.size(call_);
    const std::size_t sample = std::size_t(type_bytes(e_.type(a.elem)));
    const long long row = std::max(roi.width, 1) * static_cast<long long>(sample);
    const long long step = row + (plan.padded ? 1 + 2 * (call_.rng() % 4) : 0);
    const long long bytes = (std::max(roi.height, 1) - 1) * step + row;
    if (n < 1 || sample == 0 || std::size_t(bytes) * n > kMostBytes) {
        problem_ = std::string(a.name) + ": no planes of that size";
        return;
    }
    auto* pointers = reinterpret_cast<void**>(buffer(sizeof(void*) * std::size_t(n)));
    for (int k = 0; k < n; ++k) {
        std::uint8_t* p = buffer(std::size_t(bytes));
        fill_random(p, std::size_t(bytes));
        pointers[k] = p;
    }
    plane_arrays_[i] = reinterpret_cast<std::uint8_t*>(pointers);
    call_.slot[i].p = pointers;
    if (a.step >= 0) call_.slot[a.step].i = int(step);  // tables have no step
}

void Trial::lay_array(int i, const Arg& a) {
    const int n = a.count(call_);
    const Type t = e_.type(a.elem);
    const std::size_t size = std::size_t(type_bytes(t));
    if (n < 0 || std::size_t(n) * size > kMostBytes) {
        problem_ = std::string(a.name) + ": no array of that length";
        return;
    }
    std::uint8_t* p = buffer(std::size_t(n) * size);
    if (a.kind == Kind::Out || a.dir == Dir::Out) {
        std::memset(p, 0xA5, std::size_t(n) * size);
    } else if (a.fill == Fill::Random) {
        fill_random(p, std::size_t(n) * size);
    } else {
        for (int k = 0; k < n; ++k) {
            const double v = a.fill == Fill::Rising ? double(k) : double(call_.rand(a.lo, a.hi));
            store_number(p + k * size, t, v);
        }
    }
    call_.slot[i].p = p;
}

std::vector<std::uint8_t> Trial::snapshot(bool without_scratch) const {
    std::vector<std::uint8_t> all;
    for (const auto& b : buffers_)
        if (!without_scratch || b.get() != scratch_) all.insert(all.end(), b->data(), b->data() + b->size());
    return all;
}

void Trial::restore(const std::vector<std::uint8_t>& bytes) {
    std::size_t at = 0;
    for (const auto& b : buffers_) {
        std::memcpy(b->data(), bytes.data() + at, b->size());
        at += b->size();
    }
}

std::vector<PointerSite> Trial::pointer_sites() const {
    std::vector<PointerSite> sites;
    for (int i = 0; i < e_.nargs; ++i) {
        const Kind k = e_.args[i].kind;
        if (k == Kind::Image || k == Kind::Array || k == Kind::Out || k == Kind::Buffer || k == Kind::Planes)
            sites.push_back({i, -1});
        if (k == Kind::Planes) {
            const int n = e_.args[i].count(const_cast<Call&>(call_));
            for (int p = 0; p < n; ++p) sites.push_back({i, p});
        }
    }
    return sites;
}

void Trial::clear(const PointerSite& site) {
    if (site.plane < 0) {
        call_.slot[site.arg].p = nullptr;
    } else {
        reinterpret_cast<void**>(plane_arrays_[site.arg])[site.plane] = nullptr;
    }
}

std::vector<int> Trial::size_args() const {
    std::vector<int> args;
    for (int i = 0; i < e_.nargs; ++i)
        if (e_.args[i].bad != kNoProbe) args.push_back(i);
    return args;
}

void Trial::set_size_part(int arg, int part, int value) {
    Call::Slot& s = call_.slot[arg];
    if (e_.args[arg].kind == Kind::Int) {
        s.i = value;
    } else if (part == 0) {
        s.s.width = value;
    } else {
        s.s.height = value;
    }
}

}  // namespace rokc
