#include "morph/extrema.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "core/core.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"

namespace rok::morph {

bool all_zero(const Rok8u* mask, RokiSize size) {
    const std::size_t n = std::size_t(size.width) * std::size_t(size.height);
    for (std::size_t i = 0; i < n; ++i)
        if (mask[i] != 0) return false;
    return true;
}

namespace {

// How a run's row is formed for each output row.
enum class Build : std::uint8_t {
    Source,  // one mask row: the source row itself
    Direct,  // the extremum of its source rows
    Nested,  // a shorter run it contains, plus the rows that one lacks
    Slide,   // van Herk/Gil-Werman down the image: suffix rows of a block and a running prefix
    Inline,  // read by one tap only: its rows (or its base run's row and the rest) become taps themselves
};

struct Run {
    int top, len;  // mask rows top .. top + len - 1
    Build how = Build::Source;
    int from = -1;  // Nested: the run it extends (always an earlier one)
    bool base = false;  // another run extends it
    int span = 1;   // columns its doubling row covers (1: it has none)
    int v = -1;     // scratch rows of the run (Direct, Nested, Slide): one per row of a pair
    int d = -1;     // scratch rows of the doubling passes: two per row of a pair, used in turn
    int s = -1;     // Slide: suffix rows s .. s + len - 2, then the prefix row
    bool bulky = false;  // Slide only because its direct rows outgrow the first-level cache
};

// Consecutive mask columns left .. left + width - 1 that select the same run.
struct Term {
    int run, left, width;
};

struct Tap {
    enum Kind : std::uint8_t { Run, Widened, Source } kind;
    int index;   // the run (Run: its row; Widened: its doubling row) or the mask row (Source)
    int column;  // mask column of the first entry it covers
};

// How a run's row is formed, by cost per output sample in samples read and
// stored: running extrema make three two-input passes per row but read only
// two or three rows at a time; measured against the pairs of direct windows,
// which read every row of the window, they win from windows of ten rows.
// Pairs of direct windows also lose to running extrema, from four rows on,
// once the rows a pair reads no longer fit the core's first-level cache.
constexpr int kSlideCost = 6;
constexpr long long kDirectRowsBytes = 16384;
// How a run is widened, by cost in thirds of a tap (a row read at an
// offset, most of them across cache lines), as measured on one-channel rows:
// a doubling pass (two such reads and a store), and the first three
// doublings of a one-channel row, which stay in registers: one pass over the
// row, then a little per doubling.
constexpr int kTapCost = 3;
constexpr int kDoubleCost = 9;
constexpr int kRegisterPassCost = 6;
constexpr int kRegisterDoubleCost = 3;

struct Plan {
    int left = 0, right = 0, top = 0, bottom = 0;  // bounding box of the selected entries
    bool fused = false;                            // a full 3x3 block
    int nruns = 0, nterms = 0, ntaps = 0;
    Run* runs = nullptr;
    Term* terms = nullptr;
    Tap* taps = nullptr;
    int rows = 0;       // scratch rows of the extended width
    int maxInputs = 2;  // the most rows one combining call takes
};

// The plan's arrays: on the stack for up to 32 entries each (every mask of
// up to 32 entries), from the core allocator above that.
class PlanStore {
public:
    static constexpr int kInline = 32;
    ~PlanStore() { rokFree(heap_); }
    bool reserve(Plan& p, int runs, int terms, int taps) {
        if (runs <= kInline && terms <= kInline && taps <= kInline) {
            p.runs = runs_;
            p.terms = terms_;
            p.taps = taps_;
            return true;
        }
        const std::size_t bytes = std::size_t(runs) * sizeof(Run) + std::size_t(terms) * sizeof(Term) +
                                  std::size_t(taps) * sizeof(Tap) + 64;
        if (bytes > std::size_t(INT_MAX)) return false;
        heap_ = rokMalloc(int(bytes));
        if (heap_ == nullptr) return false;
        p.runs = static_cast<Run*>(heap_);
        p.terms = reinterpret_cast<Term*>(p.runs + runs);
        p.taps = reinterpret_cast<Tap*>(p.terms + terms);
        return true;
    }

private:
    Run runs_[kInline];
    Term terms_[kInline];
    Tap taps_[kInline];
    void* heap_ = nullptr;
};

struct Selected {
    const Rok8u* mask;
    int width;
    bool operator()(int i, int j) const { return mask == nullptr || mask[std::size_t(j) * width + i] != 0; }
};

int floor_log2(int v) { return 31 - __builtin_clz(unsigned(v)); }

int taps_for(int width, int span) { return span > 1 && width >= span ? (width + span - 1) / span : width; }

// The doubling span that makes a run's terms cheapest.
void choose_span(Plan& p, Run& run, int r, int channels) {
    int widest = 0;
    for (int t = 0; t < p.nterms; ++t)
        if (p.terms[t].run == r) widest = std::max(widest, p.terms[t].width);
    long long best = LLONG_MAX;
    for (int span = 1; span <= widest && span <= (1 << 29); span *= 2) {
        const int levels = floor_log2(span), inRegisters = channels == 1 ? std::min(levels, 3) : 0;
        long long cost = (inRegisters > 0 ? kRegisterPassCost : 0) + inRegisters * kRegisterDoubleCost +
                         (levels - inRegisters) * kDoubleCost;
        for (int t = 0; t < p.nterms; ++t)
            if (p.terms[t].run == r) cost += kTapCost * taps_for(p.terms[t].width, span);
        if (cost < best) {
            best = cost;
            run.span = span;
        }
    }
}

// The cheapest way to form each run's row; runs are in ascending length, so
// a contained run is always formed first.
void choose_build(Plan& p, int r, long long rowBytes) {
    Run& run = p.runs[r];
    if (run.len == 1) return;
    // Rows go in pairs, so a direct run reads the rows its two windows share
    // once for both.
    run.how = Build::Direct;
    int best = (run.len + 3) / 2;
    for (int q = 0; q < r; ++q) {
        const Run& in = p.runs[q];
        if (in.top < run.top || in.top + in.len > run.top + run.len) continue;
        const int cost = run.len - in.len + 2;
        if (cost < best) {
            best = cost;
            run.how = Build::Nested;
            run.from = q;
        }
    }
    if (kSlideCost < best) {
        run.how = Build::Slide;
    } else if (run.how == Build::Direct && run.len >= 4 && (run.len + 1) * rowBytes > kDirectRowsBytes) {
        run.how = Build::Slide;
        run.bulky = true;
    }
}

// A run that one tap alone reads is cheaper read where it is needed: its
// row would cost its inputs and a store and a load more. That holds for a
// short run given running extrema only for the size of its rows too: read
// in place, its rows join the output pass, which shares them between the
// two rows of a pair (a 5x5 cross at 8 KiB rows runs a third faster).
void choose_inline(Plan& p, int r) {
    Run& run = p.runs[r];
    const bool direct = run.how == Build::Direct || run.how == Build::Nested || (run.how == Build::Slide && run.bulky);
    if (run.base || run.span > 1 || !direct) return;
    int taps = 0;
    for (int t = 0; t < p.nterms; ++t)
        if (p.terms[t].run == r) taps += p.terms[t].width;
    if (taps == 1) run.how = Build::Inline;
}

void add_taps(Plan& p, const Term& term) {
    const Run& run = p.runs[term.run];
    if (run.how == Build::Inline) {
        int first = run.top;
        if (run.from >= 0) {
            const Run& in = p.runs[run.from];
            p.taps[p.ntaps++] = {Tap::Run, run.from, term.left};
            for (int j = run.top; j < in.top; ++j) p.taps[p.ntaps++] = {Tap::Source, j, term.left};
            first = in.top + in.len;
        }
        for (int j = first; j < run.top + run.len; ++j) p.taps[p.ntaps++] = {Tap::Source, j, term.left};
    } else if (run.span > 1 && term.width >= run.span) {
        int c = term.left;
        for (; c + run.span < term.left + term.width; c += run.span) p.taps[p.ntaps++] = {Tap::Widened, term.run, c};
        p.taps[p.ntaps++] = {Tap::Widened, term.run, term.left + term.width - run.span};
    } else {
        for (int c = term.left; c < term.left + term.width; ++c) p.taps[p.ntaps++] = {Tap::Run, term.run, c};
    }
}

void assign_rows(Plan& p) {
    for (int r = 0; r < p.nruns; ++r) {
        Run& run = p.runs[r];
        if (run.how != Build::Source && run.how != Build::Inline) {
            run.v = p.rows;
            p.rows += 2;
        }
        if (run.span > 1) {
            run.d = p.rows;
            p.rows += 4;
        }
        if (run.how == Build::Slide) {
            run.s = p.rows;
            p.rows += run.len;
        }
        p.maxInputs = std::max(p.maxInputs, run.len + 1);
    }
    p.maxInputs = std::max(p.maxInputs, p.ntaps);
}

// Splits the neighbourhood into runs and taps. False when the plan's arrays
// cannot be allocated.
// rowBytes: the bytes of a source row the plan reads.
bool build(const Neighbourhood& nb, int channels, long long rowBytes, PlanStore& store, Plan& p) {
    const int mw = nb.size.width, mh = nb.size.height;
    const Selected sel{nb.mask, mw};
    long long selected = 0;
    if (nb.mask == nullptr) {
        p.left = 0, p.right = mw - 1, p.top = 0, p.bottom = mh - 1;
        selected = (long long)mw * mh;
    } else {
        p.left = mw, p.right = -1, p.top = mh, p.bottom = -1;
        for (int j = 0; j < mh; ++j)
            for (int i = 0; i < mw; ++i)
                if (sel(i, j)) {
                    p.left = std::min(p.left, i), p.right = std::max(p.right, i);
                    p.top = std::min(p.top, j), p.bottom = std::max(p.bottom, j);
                    ++selected;
                }
    }
    const int bw = p.right - p.left + 1, bh = p.bottom - p.top + 1;
    const bool full = selected == (long long)bw * bh;
    if (full && bw == 3 && bh == 3) {
        p.fused = true;
        return true;
    }
    if (full) {
        // A rectangle: one run, one term.
        if (!store.reserve(p, 1, 1, bw + bh)) return false;
        p.runs[0] = Run{p.top, bh};
        p.terms[0] = Term{0, p.left, bw};
        p.nruns = p.nterms = 1;
    } else {
        int columnRuns = 0;
        for (int i = p.left; i <= p.right; ++i)
            for (int j = p.top; j <= p.bottom; ++j)
                if (sel(i, j) && (j == p.top || !sel(i, j - 1))) ++columnRuns;
        // Each tap covers at least one selected entry of its own.
        if (selected > INT_MAX || !store.reserve(p, columnRuns, columnRuns, int(selected))) return false;
        // Distinct runs, kept in ascending length (so that a contained run
        // is formed before the runs that extend it), and terms: the columns
        // of a run in ascending order, consecutive ones merged.
        for (int i = p.left; i <= p.right; ++i)
            for (int j = p.top; j <= p.bottom;) {
                if (!sel(i, j)) {
                    ++j;
                    continue;
                }
                const int j0 = j;
                while (j <= p.bottom && sel(i, j)) ++j;
                const int len = j - j0;
                int r = 0;
                while (r < p.nruns && (p.runs[r].top != j0 || p.runs[r].len != len)) ++r;
                if (r == p.nruns) {
                    r = 0;
                    while (r < p.nruns && p.runs[r].len <= len) ++r;
                    for (int q = p.nruns; q > r; --q) p.runs[q] = p.runs[q - 1];
                    p.runs[r] = Run{j0, len};
                    ++p.nruns;
                    for (int t = 0; t < p.nterms; ++t)
                        if (p.terms[t].run >= r) ++p.terms[t].run;
                }
                Term* last = nullptr;
                for (int t = p.nterms - 1; t >= 0 && last == nullptr; --t)
                    if (p.terms[t].run == r) last = &p.terms[t];
                if (last != nullptr && last->left + last->width == i)
                    ++last->width;
                else
                    p.terms[p.nterms++] = Term{r, i, 1};
            }
    }
    for (int r = 0; r < p.nruns; ++r) {
        choose_span(p, p.runs[r], r, channels);
        choose_build(p, r, rowBytes);
        if (p.runs[r].how == Build::Nested) p.runs[p.runs[r].from].base = true;
    }
    for (int r = 0; r < p.nruns; ++r) choose_inline(p, r);
    for (int t = 0; t < p.nterms; ++t) add_taps(p, p.terms[t]);
    assign_rows(p);
    return true;
}

std::size_t round64(std::size_t bytes) { return (bytes + 63) / 64 * 64; }

template <class T, Extremum E>
class Engine {
public:
    Engine(const Frame& f, const Neighbourhood& nb, const Plan& p)
        : f_(f), p_(p), c_(f.channels), w_(f.roi.width), h_(f.roi.height), ax_(nb.anchor.x), ay_(nb.anchor.y),
          ext_(p.right - p.left + f.roi.width) {
        // A rectangle of one channel with running extrema in height: each
        // output row is one fused pass (rect_row) where the doublings in
        // registers reach across the mask; otherwise the pass leaves the
        // doubling row, and the further doublings and taps follow.
        if (!p.fused && p.nruns == 1 && p.nterms == 1 && p.runs[0].how == Build::Slide && c_ == 1) {
            const int width = p.terms[0].width, most = sizeof(T) <= 4 ? 4 : 3;
            const int levels = width >= 2 ? std::min(floor_log2(width), most) : 0, rest = width - (1 << levels);
            if (levels > 0 && rest <= (1 << levels) && rest * int(sizeof(T)) <= 32) {
                rectLevels_ = levels;
                rectRest_ = rest;
                // Two rows a pass where every doubling shifts within 16 bytes
                // (the rest may reach 32).
                rectPairs_ = sizeof(T) <= 4 && (1 << (levels - 1)) * int(sizeof(T)) <= 16;
            } else if (p.runs[0].span > 1) {
                rectLevels_ = levels;
                rectRest_ = -1;
            }
        }
    }

    RokStatus run(bool threaded) {
        const bool inPlace = f_.src == f_.dst && f_.srcStep == f_.dstStep;
        const int slots = inPlace ? std::max(0, ay_ - p_.top) + 2 : 0;
        // Where source and destination together outgrow the largest cache
        // and a sample takes four bytes or more, memory bounds the fused
        // passes: their results reach the destination by streaming stores,
        // so that its lines are not read from memory before they are
        // written. (Smaller samples cost more work per byte; there the
        // ordinary stores measured as fast.)
        const double imageBytes = (double(h_) + p_.bottom - p_.top) * (double(ext_) + w_) * c_ * double(sizeof(T));
        // (A machine whose caches are not known counts as one of 8 MB.)
        const double cacheBytes = std::max(core::max_cache_bytes(), 8 << 20);
        stream_ = !inPlace && !f_.ac4 && c_ == 1 && sizeof(T) >= 4 && (p_.fused || rectLevels_ > 0) &&
                  imageBytes > cacheBytes;
        // Bytes stream only in the pair pass of rectangles 9 or more wide
        // (see extrema_rect_pair), which then writes each result once, and
        // from a quarter of the cache on, since the cache is shared: at
        // 3840x2160 (17 MB against 32) streaming measured 20-30% faster
        // where the images were not left in the cache by the call before,
        // and 3-6% slower where they were and nothing else used it; at
        // 1920x1080 the stores into the cache were faster.
        if (sizeof(T) == 1)
            stream_ = !inPlace && !f_.ac4 && c_ == 1 && rectPairs_ && rectLevels_ >= 3 && rectRest_ > 0 &&
                      imageBytes > cacheBytes / 4;
        // Scratch: the plan's rows, the ring of delayed result rows, and
        // the row pointers of the combining calls.
        const std::size_t rowBytes = round64(std::size_t(ext_) * c_ * sizeof(T));
        const std::size_t slotBytes = round64(std::size_t(w_) * c_ * sizeof(T));
        const std::size_t pointers = 4 * std::size_t(p_.nruns) + 9 * std::size_t(p_.maxInputs);
        const std::size_t indices = 3 * std::size_t(p_.ntaps);
        const std::size_t bytes = rowBytes * std::size_t(p_.rows) + slotBytes * std::size_t(slots) +
                                  (p_.fused ? 0 : pointers * sizeof(const T*) + indices * sizeof(int));
        void* scratch = nullptr;
        if (bytes > 0) {
            if (bytes > std::size_t(INT_MAX)) return rokStatusNoMemory;
            scratch = rokMalloc(int(bytes));
            if (scratch == nullptr) return rokStatusNoMemory;
        }
        auto* base = static_cast<char*>(scratch);
        rows_ = reinterpret_cast<T*>(base);
        rowStride_ = rowBytes / sizeof(T);
        T* ring = reinterpret_cast<T*>(base + rowBytes * std::size_t(p_.rows));
        if (!p_.fused) {
            auto** ptrs =
                reinterpret_cast<const T**>(base + rowBytes * std::size_t(p_.rows) + slotBytes * std::size_t(slots));
            runRow_[0] = ptrs;
            runRow_[1] = ptrs + p_.nruns;
            widened_[0] = ptrs + 2 * p_.nruns;
            widened_[1] = ptrs + 3 * p_.nruns;
            const T** more = ptrs + 4 * p_.nruns;
            for (auto* list : {&inputs_[0], &inputs_[1], &shared_, &first_, &second_, &blockShared_, &blockFirst_,
                               &blockSecond_}) {
                *list = more;
                more += p_.maxInputs;
            }
            suffixRows_ = static_cast<T**>(static_cast<void*>(more));
            more += p_.maxInputs;
            pair_taps(reinterpret_cast<int*>(more));
        }

        if (inPlace)
            in_place(ring, slotBytes / sizeof(T), slots);
        else if (p_.fused)
            fused_rows(threaded && w_ > 63 && h_ > 63);
        else
            for (int y = 0; y < h_; y += 2)
                general_pair(y, row(dst(), f_.dstStep, y), y + 1 < h_ ? row(dst(), f_.dstStep, y + 1) : nullptr, f_.ac4);
        if (stream_) kernels::store_fence();
        rokFree(scratch);
        return rokStatusOk;
    }

private:
    T* dst() const { return static_cast<T*>(f_.dst); }

    // The source row under mask row j for output row y, from the first
    // column the plan reads (mask column `left`).
    const T* source(int y, int j) const {
        return row(static_cast<const T*>(f_.src), f_.srcStep, y - ay_ + j) + std::ptrdiff_t(p_.left - ax_) * c_;
    }
    T* scratch_row(int k) const { return rows_ + rowStride_ * std::size_t(k); }
    int ext_samples() const { return ext_ * c_; }

    void combine(const T* a, const T* b, T* out, int n) const {
        const T* in[2] = {a, b};
        kernels::extrema_rows<T, E>(in, 2, out, n);
    }

    // ---- the full 3x3 block ------------------------------------------------

    // Rows of output y, at its centre column.
    const T* centre(int y, int k) const { return source(y, p_.top + k) + c_; }

    void fused_one(int y, T* out, bool ac4) const {
        const T *r0 = centre(y, 0), *r1 = centre(y, 1), *r2 = centre(y, 2);
        if (!ac4) return kernels::extrema_3x3<T, E>(r0, r1, r2, out, w_ * c_, c_);
        ac4_row(out, w_, [&](T* block, int x, int n) {
            const std::ptrdiff_t o = 4 * std::ptrdiff_t(x);
            kernels::extrema_3x3<T, E>(r0 + o, r1 + o, r2 + o, block, 4 * n, 4);
        });
    }

    void fused_two(int y, T* out0, T* out1, bool ac4) const {
        const T *r0 = centre(y, 0), *r1 = centre(y, 1), *r2 = centre(y, 2), *r3 = centre(y + 1, 2);
        if (!ac4) return kernels::extrema_3x3_pair<T, E>(r0, r1, r2, r3, out0, out1, w_ * c_, c_, stream_);
        ac4_row_pair(out0, out1, w_, [&](T* b0, T* b1, int x, int n) {
            const std::ptrdiff_t o = 4 * std::ptrdiff_t(x);
            kernels::extrema_3x3_pair<T, E>(r0 + o, r1 + o, r2 + o, r3 + o, b0, b1, 4 * n, 4);
        });
    }

    // Rows go in pairs from row 0 whatever the thread count or form, so
    // each output row is always formed the same way.
    void fused_pair(int pair, T* out0, T* out1, bool ac4) const {
        const int y = 2 * pair;
        if (y + 1 < h_)
            fused_two(y, out0, out1, ac4);
        else
            fused_one(y, out0, ac4);
    }

    void fused_rows(bool threaded) const {
        for_rows(threaded, (h_ + 1) / 2, [&](int pair) {
            const int y = 2 * pair;
            fused_pair(pair, row(dst(), f_.dstStep, y), y + 1 < h_ ? row(dst(), f_.dstStep, y + 1) : nullptr, f_.ac4);
            // Each thread's streaming stores are complete before it reports
            // its rows done.
            if (stream_) kernels::store_fence();
        });
    }

    // ---- the general plan --------------------------------------------------

    // Van Herk/Gil-Werman: output rows go in blocks of len; at a block's
    // first row the suffix rows S_u (mask rows u .. len-1 of that row's
    // window) are formed bottom-up, and row t of the block takes S_t and the
    // prefix of the t rows below the first window.
    const T* slide(const Run& run, int y, int k, int slot) {
        const int len = run.len, t = k % len, yb = y - t;
        auto suffix = [&](int u) -> const T* { return u == len - 1 ? source(yb, run.top + len - 1) : scratch_row(run.s + u); };
        if (t == 0) {
            combine(source(yb, run.top + len - 2), source(yb, run.top + len - 1), scratch_row(run.s + len - 2),
                    ext_samples());
            for (int u = len - 3; u >= 0; --u)
                combine(source(yb, run.top + u), scratch_row(run.s + u + 1), scratch_row(run.s + u), ext_samples());
            return scratch_row(run.s);
        }
        const T* prefix = source(yb, run.top + len);
        if (t >= 2) {
            T* running = scratch_row(run.s + len - 1);
            combine(t == 2 ? prefix : running, source(yb, run.top + len + t - 1), running, ext_samples());
            prefix = running;
        }
        combine(suffix(t), prefix, scratch_row(run.v + slot), ext_samples());
        return scratch_row(run.v + slot);
    }

    // Output row y of a rectangle of one channel (rectLevels_ > 0): the rows
    // of van Herk/Gil-Werman as in slide(), with the last combination, the
    // running prefix and the doubling across the row in one pass.
    struct RectInputs {
        const T *a, *b, *c;
        T* running;
    };

    // The inputs of rect_row's pass for output row y; at a block's first
    // row, the block's suffix rows first.
    RectInputs rect_inputs(int y) {
        const Run& run = p_.runs[0];
        const int len = run.len, t = y % len, yb = y - t;
        auto suffix = [&](int u) -> const T* {
            return u == len - 1 ? source(yb, run.top + len - 1) : scratch_row(run.s + u);
        };
        const T *a = nullptr, *b = nullptr, *c = nullptr;
        T* running = nullptr;
        if (t == 0) {
            if (len >= 3) {
                // S_u for u = len - 2 down to 1 in one pass down the rows.
                const T** from = inputs_[0];
                T** into = suffixRows_;
                for (int u = 1; u < len; ++u) from[u - 1] = source(yb, run.top + u);
                for (int u = 1; u < len - 1; ++u) into[u - 1] = scratch_row(run.s + u);
                kernels::extrema_suffixes<T, E>(from, len - 2, into, ext_samples());
            }
            a = source(yb, run.top);
            b = c = suffix(1);
        } else {
            a = suffix(t);
            b = c = source(yb, run.top + len);
            if (t >= 2) {
                running = scratch_row(run.s + len - 1);
                if (t > 2) b = running;
                c = source(yb, run.top + len + t - 1);
            }
        }
        return {a, b, c, running};
    }

    void rect_row(int y, T* out) {
        const Run& run = p_.runs[0];
        const auto [a, b, c, running] = rect_inputs(y);
        if (rectRest_ >= 0)
            return kernels::extrema_rect_row<T, E>(a, b, c, running, out, w_, rectLevels_, rectRest_, stream_, stream_);
        // The doubling row of span 2^rectLevels_, doubled on to the largest
        // power of two within the width (one of the run's two pairs of
        // doubling rows serves), then the two spans that cover the width.
        const int first = run.d, width = p_.terms[0].width;
        T* into = scratch_row(first);
        int span = 1 << rectLevels_;
        kernels::extrema_rect_row<T, E>(a, b, c, running, into, ext_ - span + 1, rectLevels_, 0, false, stream_);
        for (; 2 * span <= width; span *= 2) {
            const T* from = into;
            into = scratch_row(into == scratch_row(first) ? first + 1 : first);
            combine(from, from + span, into, ext_ - 2 * span + 1);
        }
        if (span == width)
            return stream_ ? kernels::copy_bytes_streaming(into, out, std::size_t(w_) * sizeof(T))
                           : kernels::copy_bytes(into, out, std::size_t(w_) * sizeof(T));
        const T* in[2] = {into, into + (width - span)};
        kernels::extrema_rows<T, E>(in, 2, out, w_, stream_);
    }

    // Forms every run's row for output row y (slot 0) and, with `pair`, row
    // y + 1 (slot 1).
    void prepare(int y, bool pair) {
        const int rows = pair ? 2 : 1;
        for (int r = 0; r < p_.nruns; ++r) {
            const Run& run = p_.runs[r];
            switch (run.how) {
                case Build::Source:
                    for (int s = 0; s < rows; ++s) runRow_[s][r] = source(y + s, run.top);
                    break;
                case Build::Direct: {
                    const T** in = inputs_[0];
                    for (int j = 0; j < run.len + rows - 1; ++j) in[j] = source(y, run.top + j);
                    // The two windows share all but their first and last rows.
                    if (pair)
                        kernels::extrema_rows_shared<T, E>(in + 1, run.len - 1, in, 1, in + run.len, 1,
                                                           scratch_row(run.v), scratch_row(run.v + 1), ext_samples());
                    else
                        kernels::extrema_rows<T, E>(in, run.len, scratch_row(run.v), ext_samples());
                    for (int s = 0; s < rows; ++s) runRow_[s][r] = scratch_row(run.v + s);
                    break;
                }
                case Build::Nested:
                    for (int s = 0; s < rows; ++s) {
                        const Run& base = p_.runs[run.from];
                        const T** in = inputs_[0];
                        int n = 0;
                        in[n++] = runRow_[s][run.from];
                        for (int j = run.top; j < run.top + run.len; ++j)
                            if (j < base.top || j >= base.top + base.len) in[n++] = source(y + s, j);
                        kernels::extrema_rows<T, E>(in, n, scratch_row(run.v + s), ext_samples());
                        runRow_[s][r] = scratch_row(run.v + s);
                    }
                    break;
                case Build::Slide:
                    for (int s = 0; s < rows; ++s) runRow_[s][r] = slide(run, y + s, y + s, s);
                    break;
                case Build::Inline:
                    break;
            }
        }
    }

    // The doubling row: d[x] = extremum of v[x .. x + span - 1] (pixels),
    // valid for x in 0 .. ext - span. One channel forms up to eight columns
    // in registers; each further pass doubles the span, from one of the
    // slot's two doubling rows into the other.
    const T* widen(const Run& run, const T* v, int slot) const {
        const int first = run.d + 2 * slot;
        T* into = scratch_row(first);
        int span = 2;
        if (c_ == 1) {
            const int levels = std::min(floor_log2(run.span), 3);
            span = 1 << levels;
            kernels::extrema_doubling<T, E>(v, into, ext_ - span + 1, levels);
        } else {
            combine(v, v + c_, into, (ext_ - 1) * c_);
        }
        for (; span < run.span; span *= 2) {
            const T* from = into;
            into = scratch_row(into == scratch_row(first) ? first + 1 : first);
            combine(from, from + std::ptrdiff_t(span) * c_, into, (ext_ - 2 * span + 1) * c_);
        }
        return into;
    }

    // The taps of output row y into inputs_[slot], from the runs' rows in
    // that slot.
    void gather(int y, int slot) {
        for (int r = 0; r < p_.nruns; ++r)
            if (p_.runs[r].span > 1) widened_[slot][r] = widen(p_.runs[r], runRow_[slot][r], slot);
        for (int t = 0; t < p_.ntaps; ++t) {
            const Tap& tap = p_.taps[t];
            const T* from = tap.kind == Tap::Run       ? runRow_[slot][tap.index]
                            : tap.kind == Tap::Widened ? widened_[slot][tap.index]
                                                       : source(y, tap.index);
            inputs_[slot][t] = from + std::ptrdiff_t(tap.column - p_.left) * c_;
        }
    }

    void finish(const T* const* in, T* out, bool ac4) const {
        if (!ac4) return kernels::extrema_rows<T, E>(in, p_.ntaps, out, w_ * c_);
        ac4_row(out, w_, [&](T* block, int x, int n) {
            for (int t = 0; t < p_.ntaps; ++t) blockShared_[t] = in[t] + 4 * std::ptrdiff_t(x);
            kernels::extrema_rows<T, E>(blockShared_, p_.ntaps, block, 4 * n);
        });
    }

    // Source taps that two rows of a pair both read: tap t of row y and tap
    // u of row y + 1 read the same source row when both are entries of the
    // same column, t's a mask row below u's. Found once per call, for masks
    // of a modest number of taps.
    void pair_taps(int* lists) {
        sharedTaps_ = lists;
        firstTaps_ = lists + p_.ntaps;
        secondTaps_ = lists + 2 * p_.ntaps;
        nshared_ = nfirst_ = nsecond_ = 0;
        constexpr int kMostTaps = 64;
        for (int u = 0; u < p_.ntaps; ++u) secondTaps_[nsecond_++] = u;
        for (int t = 0; t < p_.ntaps; ++t) {
            const Tap& a = p_.taps[t];
            int partner = -1;
            for (int k = 0; k < nsecond_ && partner < 0 && p_.ntaps <= kMostTaps && a.kind == Tap::Source; ++k) {
                const Tap& b = p_.taps[secondTaps_[k]];
                if (b.kind == Tap::Source && b.column == a.column && b.index == a.index - 1) partner = k;
            }
            if (partner < 0) {
                firstTaps_[nfirst_++] = t;
                continue;
            }
            // Row y's tap t stands for both; row y + 1's partner leaves its list.
            sharedTaps_[nshared_++] = t;
            secondTaps_[partner] = secondTaps_[--nsecond_];
        }
    }

    // Output rows y and y + 1 (out1 null: row y alone, the last of an odd
    // height). Rows always go in pairs from row 0, in place or not.
    void general_pair(int y, T* out0, T* out1, bool ac4) {
        if (rectLevels_ > 0 && rectPairs_ && out1 != nullptr) {
            // Rows y and y + 1 in one block: after the block's first row, the
            // second row's running extremum extends the first's. A block's
            // last row pairs with the next block's first, unchained: that
            // one's suffix rows (formed by rect_inputs(y + 1)) replace none
            // of the rows the last row reads, and the last row's running
            // extremum is needed no more.
            const int t = y % p_.runs[0].len;
            const RectInputs r0 = rect_inputs(y);
            const bool chain = t > 0 && t + 1 < p_.runs[0].len;
            const RectInputs r1 = rect_inputs(y + 1);
            // Bytes that stream keep the runs in the run's first two
            // doubling rows (free here) and write each result once.
            const int d = p_.runs[0].d;
            const bool runs = sizeof(T) == 1 && stream_ && d >= 0;
            return kernels::extrema_rect_pair<T, E>(r0.a, r0.b, r0.c, r1.a, r1.b, r1.c, chain, r1.running, out0, out1, w_,
                                                    rectLevels_, rectRest_, stream_, runs ? scratch_row(d) : nullptr,
                                                    runs ? scratch_row(d + 1) : nullptr);
        }
        if (rectLevels_ > 0) {
            rect_row(y, out0);
            if (out1 != nullptr) rect_row(y + 1, out1);
            return;
        }
        prepare(y, out1 != nullptr);
        gather(y, 0);
        if (out1 == nullptr) return finish(inputs_[0], out0, ac4);
        gather(y + 1, 1);
        if (nshared_ == 0) {
            finish(inputs_[0], out0, ac4);
            return finish(inputs_[1], out1, ac4);
        }
        for (int k = 0; k < nshared_; ++k) shared_[k] = inputs_[0][sharedTaps_[k]];
        for (int k = 0; k < nfirst_; ++k) first_[k] = inputs_[0][firstTaps_[k]];
        for (int k = 0; k < nsecond_; ++k) second_[k] = inputs_[1][secondTaps_[k]];
        if (!ac4)
            return kernels::extrema_rows_shared<T, E>(shared_, nshared_, first_, nfirst_, second_, nsecond_, out0, out1,
                                                      w_ * c_);
        ac4_row_pair(out0, out1, w_, [&](T* b0, T* b1, int x, int n) {
            const std::ptrdiff_t o = 4 * std::ptrdiff_t(x);
            for (int k = 0; k < nshared_; ++k) blockShared_[k] = shared_[k] + o;
            for (int k = 0; k < nfirst_; ++k) blockFirst_[k] = first_[k] + o;
            for (int k = 0; k < nsecond_; ++k) blockSecond_[k] = second_[k] + o;
            kernels::extrema_rows_shared<T, E>(blockShared_, nshared_, blockFirst_, nfirst_, blockSecond_, nsecond_,
                                               b0, b1, 4 * n);
        });
    }

    // ---- in place ----------------------------------------------------------

    // Results wait in a ring until no later output row reads the source row
    // they replace: row r is read by the outputs up to r + anchor.y - top.
    void in_place(T* ring, std::size_t slotStride, int slots) {
        const int delay = std::max(0, ay_ - p_.top);
        auto slot = [&](int r) { return ring + slotStride * std::size_t(r % slots); };
        int written = 0;
        for (int y = 0; y < h_; y += 2) {
            if (p_.fused)
                fused_pair(y / 2, slot(y), slot(y + 1), false);
            else
                general_pair(y, slot(y), y + 1 < h_ ? slot(y + 1) : nullptr, false);
            const int last = std::min(h_, y + 2) - 1;
            for (; written <= last - delay; ++written) write_back(slot(written), written);
        }
        for (; written < h_; ++written) write_back(slot(written), written);
    }

    void write_back(const T* from, int y) const {
        T* to = row(dst(), f_.dstStep, y);
        if (f_.ac4)
            kernels::copy_ac4(from, to, w_, sizeof(T));
        else
            kernels::copy_bytes(from, to, std::size_t(w_) * c_ * sizeof(T));
    }

    const Frame& f_;
    const Plan& p_;
    const int c_, w_, h_, ax_, ay_;
    const int ext_;  // pixels of a plan row: the ROI width plus the bounding box's extra columns
    bool stream_ = false;  // the fused passes write the destination by streaming stores
    bool rectPairs_ = false;    // rect_pair applies
    T** suffixRows_ = nullptr;  // the suffix rows of rect_row
    int rectLevels_ = 0, rectRest_ = 0;  // the fused rectangle pass (rect_row), when it applies
    T* rows_ = nullptr;
    std::size_t rowStride_ = 0;
    // Per row of a pair: each run's row, its doubling row and the taps.
    const T** runRow_[2] = {};
    const T** widened_[2] = {};
    const T** inputs_[2] = {};
    // The taps of a pair split into those both rows read and each one's own,
    // and the same shifted to a block of AC4 pixels.
    const T** shared_ = nullptr;
    const T** first_ = nullptr;
    const T** second_ = nullptr;
    const T** blockShared_ = nullptr;
    const T** blockFirst_ = nullptr;
    const T** blockSecond_ = nullptr;
    int *sharedTaps_ = nullptr, *firstTaps_ = nullptr, *secondTaps_ = nullptr;
    int nshared_ = 0, nfirst_ = 0, nsecond_ = 0;
};

}  // namespace

template <class T, Extremum E>
RokStatus extrema(const Frame& frame, const Neighbourhood& nb, bool threaded) {
    PlanStore store;
    Plan plan;
    const long long rowBytes = ((long long)frame.roi.width + nb.size.width - 1) * frame.channels * (long long)sizeof(T);
    if (!build(nb, frame.channels, rowBytes, store, plan)) return rokStatusNoMemory;
    return Engine<T, E>(frame, nb, plan).run(threaded);
}

#define ROK_MORPH_ENGINE(T)                                                                           \
    template RokStatus extrema<T, Extremum::Min>(const Frame&, const Neighbourhood&, bool); \
    template RokStatus extrema<T, Extremum::Max>(const Frame&, const Neighbourhood&, bool);

ROK_MORPH_ENGINE(Rok8u)
ROK_MORPH_ENGINE(Rok16u)
ROK_MORPH_ENGINE(Rok16s)
ROK_MORPH_ENGINE(Rok32f)
ROK_MORPH_ENGINE(Rok64f)

#undef ROK_MORPH_ENGINE

}  // namespace rok::morph
