// libFuzzer target: every input is one call of one export, built by the
// contract suite's engine from the fuzzer's bytes. Sizes, steps, anchors,
// mask sizes, codes, scale factors and rounding modes take wild values as
// often as drawn ones; every buffer still lies against a protected page and
// is sized for what the call may touch with those values. Beyond the
// sanitizers' own checks, a call that returns an error must leave every
// buffer as it was.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "contract.h"
#include "engine.h"
#include "rokcore.h"

namespace {

// Reads the fuzzer's bytes; zeros once they run out.
class Bytes {
public:
    Bytes(const std::uint8_t* d, std::size_t n) : d_(d), n_(n) {}
    std::uint32_t take(int bytes) {
        std::uint32_t v = 0;
        for (int k = 0; k < bytes; ++k) v = v << 8 | (at_ < n_ ? d_[at_++] : 0);
        return v;
    }
    bool bit() { return take(1) & 1; }

    // Mostly small values, sometimes the edges of the range.
    int wild_int() {
        static const int edges[] = {0, -1, 1, 2, 3, -2, 5, 7, 31, 33, 51, 55, 64, 255, 256, 65535, 1 << 20,
                                    INT32_MAX, INT32_MIN, INT32_MAX / 2, -(1 << 16)};
        const std::uint32_t sel = take(1);
        if (sel < 160) return int(sel % 72) - 2;
        if (sel < 230) return edges[sel % (sizeof edges / sizeof edges[0])];
        return int(take(4));
    }
    double wild_real() {
        double v;
        const std::uint64_t bits = std::uint64_t(take(4)) << 32 | take(4);
        std::memcpy(&v, &bits, sizeof v);
        return take(1) < 128 ? double(wild_int()) : v;
    }

private:
    const std::uint8_t* d_;
    std::size_t n_, at_ = 0;
};

const std::vector<const rokc::Export*>& driven() {
    static const std::vector<const rokc::Export*> list = [] {
        std::vector<const rokc::Export*> v;
        const char* only = std::getenv("ROKC_FILTER");
        for (const rokc::Export* e : rokc::exports())
            if (e->call && (!only || std::strstr(e->name, only))) v.push_back(e);
        return v;
    }();
    return list;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace rokc;
    const auto& all = driven();
    if (all.empty()) return 0;
    Bytes in(data, size);
    const Export& e = *all[in.take(2) % all.size()];
    const bool wild = in.bit();
    RokiSize roi{int(in.take(1) % 70) + 1, int(in.take(1) % 9) + 1};
    if (wild && in.bit()) roi = {in.wild_int(), in.wild_int()};
    Plan plan(roi, in.bit(), in.bit() ? rokt::Guard::After : rokt::Guard::Before, in.take(4));
    plan.most_bytes = std::size_t(1) << 20;  // many small calls find more than a few large ones
    plan.most_pixels = 1LL << 20;
    static const int thread_counts[] = {1, 2, 7};
    rokSetNumThreads(thread_counts[in.take(1) % 3]);
    if (wild) {
        plan.tweak_scalar = [&](int arg, Call& c) {
            if (!in.bit()) return;
            Call::Slot& s = c.slot[arg];
            switch (e.args[arg].kind) {
                case Kind::Size: s.s = RokiSize{in.wild_int(), in.wild_int()}; break;
                case Kind::Int: s.i = in.wild_int(); break;
                case Kind::Point: s.pt = RokiPoint{in.wild_int(), in.wild_int()}; break;
                case Kind::Rect: s.r = RokiRect{in.wild_int(), in.wild_int(), in.wild_int(), in.wild_int()}; break;
                case Kind::Real: s.f = in.wild_real(); break;
                case Kind::Value:
                    c.numeric[arg] = in.bit();
                    if (c.numeric[arg]) {
                        s.f = in.wild_real();
                    } else {
                        for (auto& b : s.raw) b = std::uint8_t(in.take(1));
                    }
                    break;
                default: break;
            }
        };
        if (in.bit()) {
            // Steps from 0 (every row the same) to longer than a row, in
            // whole samples; the buffer holds every row at the step chosen.
            plan.choose_step = [&](long long row, int align) -> long long {
                switch (in.take(1) % 4) {
                    case 0: return 0;
                    case 1: return std::max(0LL, row - align * (1 + in.take(1) % 16));
                    case 2: return row + align * (in.take(1) % 64);
                    default: return row;
                }
            };
        }
    }
    Trial t(e, plan);
    static const bool verbose = std::getenv("ROKC_VERBOSE") != nullptr;
    if (verbose) {
        std::fprintf(stderr, "%s roi %dx%d%s%s\n", e.name, plan.roi.width, plan.roi.height,
                     t.problem().empty() ? "" : ": ", t.problem().c_str());
        for (int i = 0; i < e.nargs; ++i) {
            const Call::Slot& s = t.call().slot[i];
            std::fprintf(stderr, "  %-14s int %d  size %dx%d  real %g  ptr %p\n", e.args[i].name, s.i, s.s.width,
                         s.s.height, s.f, s.p);
        }
    }
    if (!t.problem().empty()) return 0;
    const auto before = t.snapshot();
    const int status = t.invoke();
    const bool writes = std::find(e.writes.begin(), e.writes.end(), status) != e.writes.end();
    if (status < 0 && !writes && t.snapshot() != before) {
        std::fprintf(stderr, "%s returned %d but wrote to its buffers\n", e.name, status);
        std::abort();
    }
    return 0;
}
