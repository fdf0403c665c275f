#include "engine.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

namespace rokc {

namespace {

constexpr long long kMostPixels = 1LL << 26;

// Writes v, converted to type t, at p.
void store_number(std::uint8_t* p, Type t, double v) {
    auto put = [p](auto x) { std::memcpy(p, &x, sizeof x); };
    switch (t) {
        case Type::U8: put(number_as<std::uint8_t>(v)); break;
        case Type::S8: put(number_as<std::int8_t>(v)); break;
        case Type::U16: put(number_as<std::uint16_t>(v)); break;
        case Type::S16: case Type::SC16: put(number_as<std::int16_t>(v)); break;
        case Type::U32: put(number_as<std::uint32_t>(v)); break;
        case Type::S32: case Type::SC32: put(number_as<std::int32_t>(v)); break;
        case Type::F32: case Type::FC32: put(number_as<float>(v)); break;
        case Type::S64: put(number_as<std::int64_t>(v)); break;
        case Type::F64: case Type::FC64: put(double(v)); break;
        default: break;
    }
}

bool narrow(long long v, int& out) {
    if (v < INT32_MIN || v > INT32_MAX) return false;
    out = int(v);
    return true;
}

std::vector<const Export*>& registry() {
    static std::vector<const Export*> all;
    return all;
}

}  // namespace

bool add(const Export* exports, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) registry().push_back(&exports[k]);
    return true;
}

const std::vector<const Export*>& exports() { return registry(); }

std::uint8_t* Trial::buffer(std::size_t bytes) {
    buffers_.push_back(std::make_unique<rokt::GuardedBuffer>(bytes, guard_));
    return buffers_.back()->data();
}

void Trial::fill_numbers(std::uint8_t* p, std::size_t bytes, const Arg& a) {
    const Type t = e_.type(a.elem);
    const std::size_t size = std::size_t(type_bytes(t));
    const bool real = t == Type::F32 || t == Type::F64;
    for (std::size_t k = 0; k + size <= bytes; k += size) {
        const double v = real ? double(call_.rand(8LL * a.lo, 8LL * a.hi)) / 8 : double(call_.rand(a.lo, a.hi));
        store_number(p + k, t, v);
    }
}

void Trial::fill_random(std::uint8_t* p, std::size_t n) {
    std::size_t k = 0;
    for (; k + 4 <= n; k += 4) {
        const std::uint32_t v = std::uint32_t(call_.rng());
        std::memcpy(p + k, &v, 4);
    }
    for (; k < n; ++k) p[k] = std::uint8_t(call_.rng());
}

Trial::Trial(const Export& e, const Plan& plan)
    : e_(e),
      guard_(plan.guard),
      most_bytes_(plan.most_bytes),
      most_pixels_(plan.most_pixels),
      plane_arrays_(e.nargs, nullptr) {
    call_.rng.seed(plan.seed);
    call_.nc = e.nc;
    draw_scalars(plan);
    for (int i = 0; i < e.nargs && problem_.empty(); ++i) {
        const Arg& a = e.args[i];
        switch (a.kind) {
            case Kind::Image: lay_image(i, a, plan); break;
            case Kind::Planes: lay_planes(i, a, plan); break;
            case Kind::Array: case Kind::Out: lay_array(i, a); break;
            case Kind::Made: {
                std::uint8_t* p = buffer(sizeof(void*));
                std::memset(p, 0xA5, sizeof(void*));
                call_.slot[i].p = p;
                break;
            }
            default: break;
        }
    }
    // Records next: a scratch query may need them.
    for (int i = 0; i < e.nargs && problem_.empty(); ++i) {
        if (e.args[i].kind != Kind::Record) continue;
        void* rec = e.make ? e.make(call_) : nullptr;
        if (!rec) {
            problem_ = std::string(e.args[i].name) + ": the record could not be made";
            break;
        }
        records_.push_back({i, rec, false});
        call_.slot[i].p = rec;
    }
    // Scratch last: its size may follow from every other argument.
    for (int i = 0; i < e.nargs && problem_.empty(); ++i) {
        if (e.args[i].kind != Kind::Buffer) continue;
        const int bytes = e.buffer ? e.buffer(call_) : -1;
        if (bytes < 0) {
            problem_ = "the buffer-size query failed";
            break;
        }
        if (std::size_t(bytes) > most_bytes_) {  // as for images: a larger one rules the layout out
            problem_ = "no scratch of that size";
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
        bool fits = true;
        switch (a.kind) {
            case Kind::Roi: s.s = a.square ? RokiSize{plan.roi.width, plan.roi.width} : plan.roi; break;
            case Kind::Size: {
                const WideSize w = a.size(call_);
                fits = narrow(w.width, s.s.width) && narrow(w.height, s.s.height);
                break;
            }
            case Kind::Int: fits = narrow(a.value(call_), s.i); break;
            case Kind::Real: s.f = a.real(call_); break;
            case Kind::Point: {
                const long long x = a.value(call_);
                fits = narrow(x, s.pt.x) && narrow(a.value2(call_), s.pt.y);
                break;
            }
            case Kind::Rect: {
                const long long x = a.value(call_), y = a.value2(call_);
                const WideSize w = a.size(call_);
                fits = narrow(x, s.r.x) && narrow(y, s.r.y) && narrow(w.width, s.r.width) &&
                       narrow(w.height, s.r.height);
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
        if (!fits) {
            problem_ = std::string(a.name) + ": drawn value out of range";
            return;
        }
        if (plan.tweak_scalar) plan.tweak_scalar(i, call_);
    }
}

long long Trial::step_for(const Plan& plan, long long row, int align) {
    if (plan.choose_step) return plan.choose_step(row, std::max(align, 1));
    return row + (plan.padded ? (1 + 2 * (call_.rng() % 4)) * std::max(align, 1) : 0);
}

void Trial::lay_image(int i, const Arg& a, const Plan& plan) {
    const WideSize roi = a.size(call_);
    long long border[4] = {0, 0, 0, 0};
    for (int k = 0; k < 4; ++k)
        if (a.border[k]) border[k] = std::max(a.border[k](call_), 0LL);
    if (*std::max_element(border, border + 4) > kMostPixels) {
        problem_ = std::string(a.name) + ": no border of that size";
        return;
    }
    const std::size_t pixel = std::size_t(type_bytes(e_.type(a.elem))) * e_.channels(a.ch);
    if (roi.width > kMostPixels || roi.height > kMostPixels) {
        problem_ = std::string(a.name) + ": no image of that size";
        return;
    }
    const long long width = std::max(roi.width, 1LL) + border[0] + border[2];
    const long long height = std::max(roi.height, 1LL) + border[1] + border[3];
    if (width * height > most_pixels_) {
        problem_ = std::string(a.name) + ": no image of that size";
        return;
    }
    const long long row = width * static_cast<long long>(pixel);
    const long long step = step_for(plan, row, type_align(e_.type(a.elem)));
    const long long bytes = (height - 1) * step + row;
    if (pixel == 0 || bytes <= 0 || std::size_t(bytes) > most_bytes_ || step < 0 || step > 0x7fffffff) {
        problem_ = std::string(a.name) + ": no image of that size";
        return;
    }
    std::uint8_t* p = buffer(std::size_t(bytes));
    fill_random(p, std::size_t(bytes));
    if (a.fill == Fill::Range) fill_numbers(p, std::size_t(bytes), a);
    call_.slot[i].p = p + border[1] * step + border[0] * static_cast<long long>(pixel);
    call_.slot[a.step].i = int(step);
}

void Trial::lay_planes(int i, const Arg& a, const Plan& plan) {
    const long long n = a.count(call_);
    const WideSize roi = a.size(call_);
    const std::size_t sample = std::size_t(type_bytes(e_.type(a.elem)));
    if (roi.width > kMostPixels || roi.height > kMostPixels) {
        problem_ = std::string(a.name) + ": no planes of that size";
        return;
    }
    if (std::max(roi.width, 1LL) * std::max(roi.height, 1LL) > most_pixels_) {
        problem_ = std::string(a.name) + ": no planes of that size";
        return;
    }
    const long long row = std::max(roi.width, 1LL) * static_cast<long long>(sample);
    const long long step = step_for(plan, row, type_align(e_.type(a.elem)));
    const long long bytes = (std::max(roi.height, 1LL) - 1) * step + row;
    if (n < 1 || n > 64 || sample == 0 || bytes <= 0 || step < 0 || step > 0x7fffffff ||
        std::size_t(bytes) * std::size_t(n) > most_bytes_) {
        problem_ = std::string(a.name) + ": no planes of that size";
        return;
    }
    auto* pointers = reinterpret_cast<void**>(buffer(sizeof(void*) * std::size_t(n)));
    for (long long k = 0; k < n; ++k) {
        std::uint8_t* p = buffer(std::size_t(bytes));
        fill_random(p, std::size_t(bytes));
        if (a.fill == Fill::Range) fill_numbers(p, std::size_t(bytes), a);
        pointers[k] = p;
    }
    plane_arrays_[i] = reinterpret_cast<std::uint8_t*>(pointers);
    call_.slot[i].p = pointers;
    if (a.step >= 0) call_.slot[a.step].i = int(step);  // tables have no step
}

void Trial::lay_array(int i, const Arg& a) {
    const long long n = a.count(call_);
    const Type t = e_.type(a.elem);
    const std::size_t size = std::size_t(type_bytes(t));
    if (n < 0 || n > kMostPixels || std::size_t(n) * size > most_bytes_) {
        problem_ = std::string(a.name) + ": no array of that length";
        return;
    }
    std::uint8_t* p = buffer(std::size_t(n) * size);
    if (a.kind == Kind::Out || a.dir == Dir::Out) {
        std::memset(p, 0xA5, std::size_t(n) * size);
    } else if (a.fill == Fill::Random) {
        fill_random(p, std::size_t(n) * size);
    } else {
        for (long long k = 0; k < n; ++k) {
            const double v = a.fill == Fill::Rising ? double(k) : double(call_.rand(a.lo, a.hi));
            store_number(p + k * size, t, v);
        }
    }
    call_.slot[i].p = p;
}

Trial::~Trial() {
    for (const Made& m : records_)
        if (!m.released) e_.release(m.record);
}

int Trial::invoke() {
    // A record that an earlier invocation released (a Free) is made anew, so
    // a trial can be invoked again, as the thread comparison does.
    for (Made& m : records_) {
        if (!m.released) continue;
        void* rec = e_.make(call_);
        if (!rec) return rokStatusNoMemory;
        m = {m.arg, rec, false};
        call_.slot[m.arg].p = rec;
    }
    const int status = e_.call(call_);
    if (status < 0) return status;
    for (int i = 0; i < e_.nargs; ++i) {
        const Arg& a = e_.args[i];
        if (a.kind == Kind::Made && call_.slot[i].p) {
            void* made = nullptr;
            std::memcpy(&made, call_.slot[i].p, sizeof made);
            if (made) e_.release(made);
            std::memset(call_.slot[i].p, 0xA5, sizeof(void*));
        }
        if (a.kind == Kind::Record && a.consumed)
            for (Made& m : records_)
                if (m.arg == i && call_.slot[i].p == m.record) m.released = true;
    }
    return status;
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
        const Arg& a = e_.args[i];
        const Kind k = a.kind;
        const bool pointer = k == Kind::Image || k == Kind::Array || k == Kind::Out || k == Kind::Buffer ||
                             k == Kind::Planes || k == Kind::Record || k == Kind::Made;
        if (pointer && !a.optional) sites.push_back({i, -1});
        if (k == Kind::Planes) {
            const long long n = e_.args[i].count(const_cast<Call&>(call_));
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
    } else if (e_.args[arg].kind == Kind::Rect) {
        (part == 0 ? s.r.width : s.r.height) = value;
    } else if (part == 0) {
        s.s.width = value;
    } else {
        s.s.height = value;
    }
}

}  // namespace rokc
