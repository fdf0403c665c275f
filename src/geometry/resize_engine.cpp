// The row engines of the resize: tables in the caller's buffer, bands of
// destination rows per thread, and the four ways of computing a row
// (nearest neighbour; separable bilinear, cubic and Lanczos through a ring
// of intermediate rows; super-sampling; the anti-aliasing engine). Every
// destination row is computed the same way whichever band it falls in, so
// results do not depend on the thread count.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "geometry/interp.h"
#include "geometry/resize_plan.h"
#include "kernels/copy/channels.h"
#include "kernels/geometry/interp_rows.h"

namespace rok::geometry {

namespace {

using kernels::ColumnTaps;

template <class T>
using Work = std::conditional_t<std::is_same_v<T, Rok64f>, double, float>;

constexpr int kBlockPixels = 256;

// Aligned arrays carved one after the other out of a slice of the buffer.
class Carver {
public:
    Carver(Rok8u* base, std::size_t at) : base_(reinterpret_cast<std::uintptr_t>(base)), at_(at) {}
    template <class X>
    X* take(std::size_t count, std::size_t align = 32) {
        const std::uintptr_t p = (base_ + at_ + align - 1) / align * align;
        at_ = p - base_ + count * sizeof(X);
        return reinterpret_cast<X*>(p);
    }
    std::size_t used() const { return at_; }

private:
    std::uintptr_t base_;
    std::size_t at_;
};

std::size_t round8(std::size_t n) { return (n + 7) & ~std::size_t(7); }

// What every engine shares: the images, the region and the writing of a
// destination row, with the partly covered edge pixels of the smooth and
// sub-pixel modes.
template <class T>
class Frame {
public:
    using W = Work<T>;

    explicit Frame(const ResizePlan& p) : p_(p), a_(*p.args), nc_(a_.nc), ac4_(a_.ac4) {
        for (int i = 0; i < a_.planes; ++i) {
            src_[i] = static_cast<const T*>(a_.src[i]);
            dst_[i] = static_cast<T*>(a_.dst[i]);
        }
        smooth_ = p.rec.smooth != 0;
        framed_ = p.covLeft > 0 || p.covRight > 0 || p.covTop > 0 || p.covBottom > 0;
    }

    const T* src_row(int plane, int r) const { return row(src_[plane], a_.srcStep, r); }
    T* dst_row(int plane, int y) const { return row(dst_[plane], a_.dstStep, p_.oy + y) + std::size_t(p_.ox) * nc_; }

    // Writes region row y through direct(x, n, T* out), which computes n
    // pixels from region column x, and values(x, n, W* out), the same as
    // intermediates for the pixels that are blended.
    template <class Direct, class Values>
    void emit(T* d, int y, Direct&& direct, Values&& values) const {
        const bool top = y == 0 && p_.covTop > 0, bottom = y == p_.oh - 1 && p_.covBottom > 0;
        if (top || bottom) return blended(d, 0, p_.ow, top ? p_.covTop : p_.covBottom, values);
        const int a = p_.covLeft > 0 ? 1 : 0, b = p_.ow - (p_.covRight > 0 ? 1 : 0);
        if (a) blended(d, 0, 1, 1.0f, values);
        if (b > a) {
            if (ac4_)
                ac4_row(d + 4 * a, b - a, [&](T* block, int x0, int n) { direct(a + x0, n, block); });
            else
                direct(a, b - a, d + std::size_t(a) * nc_);
        }
        if (b < p_.ow) blended(d, b, p_.ow, 1.0f, values);
    }

    const ResizePlan& p_;
    const ResizeArgs& a_;
    const int nc_;
    const bool ac4_;
    bool smooth_, framed_;
    const T* src_[4] = {};
    T* dst_[4] = {};

private:
    float column_cover(int x) const {
        if (x == 0 && p_.covLeft > 0) return p_.covLeft;
        if (x == p_.ow - 1 && p_.covRight > 0) return p_.covRight;
        return 1.0f;
    }

    template <class Values>
    void blended(T* d, int x0, int x1, float rowCover, Values& values) const {
        alignas(32) W v[kBlockPixels * 4];
        float cover[kBlockPixels];
        for (int x = x0; x < x1; x += kBlockPixels) {
            const int n = std::min(kBlockPixels, x1 - x);
            values(x, n, v);
            for (int j = 0; j < n; ++j) cover[j] = rowCover * column_cover(x + j);
            kernels::blend_row<T, W>(v, cover, n, ac4_ ? 3 : nc_, nc_, smooth_, d + std::size_t(x) * nc_);
        }
    }
};

// ---- nearest neighbour ----

template <class T>
class NearestEngine : public Frame<T> {
public:
    using W = Work<T>;
    using Frame<T>::Frame;

    bool prepare(Rok8u* buffer) {
        const ResizePlan& p = this->p_;
        Carver c(buffer, 0);
        cols_ = c.take<std::int32_t>(std::size_t(p.ow));
        rows_ = c.take<std::int32_t>(std::size_t(p.oh));
        if (c.used() > p.sliceBytes) return false;
        ColumnTaps<W> taps;
        build_columns<W>(kNearest, p.ow, p.cols(), p.sx0, p.sx1, this->nc_, 0, cols_,
                         nullptr, nullptr, &taps);
        build_rows<W>(kNearest, p.oh, p.rows(), p.sy0, p.sy1, rows_, nullptr, nullptr);
        // Every second pixel of the source, a plain strided copy.
        halves_ = true;
        for (int x = 1; x < p.ow && halves_; ++x) halves_ = cols_[x] - cols_[x - 1] == 2 * this->nc_;
        return true;
    }

    void band(Rok8u*, int first, int count) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        for (int plane = 0; plane < this->a_.planes; ++plane) {
            const T* prevRow = nullptr;
            for (int y = first; y < first + count; ++y) {
                T* d = this->dst_row(plane, y);
                // Rows that repeat a source row repeat the row before.
                if (!this->framed_ && prevRow && rows_[y] == rows_[y - 1]) {
                    if (this->ac4_)
                        kernels::copy_ac4(prevRow, d, p.ow, sizeof(T));
                    else
                        std::memcpy(d, prevRow, std::size_t(p.ow) * nc * sizeof(T));
                } else {
                    const T* s = this->src_row(plane, rows_[y]);
                    this->emit(
                        d, y,
                        [&](int x, int n, T* out) {
                            if (halves_)
                                kernels::nearest_halves(s + cols_[x], n, nc, out);
                            else
                                kernels::nearest_row(s, cols_ + x, n, nc, nc, out);
                        },
                        [&](int x, int n, W* out) {
                            for (int j = 0; j < n; ++j)
                                for (int ch = 0; ch < nc; ++ch) out[j * nc + ch] = W(s[cols_[x + j] + ch]);
                        });
                }
                prevRow = d;
            }
        }
    }

private:
    std::int32_t* cols_ = nullptr;
    std::int32_t* rows_ = nullptr;
    bool halves_ = false;
};

// ---- separable bilinear, cubic and Lanczos ----

template <class T>
class SeparableEngine : public Frame<T> {
public:
    using W = Work<T>;
    using Frame<T>::Frame;

    bool prepare(Rok8u* buffer) {
        const ResizePlan& p = this->p_;
        const int method = int(p.rec.method);
        taps_ = taps_of(method);
        first_ = first_tap(method);
        Carver c(buffer, 0);
        std::int32_t* colIndex = c.take<std::int32_t>(std::size_t(p.ow));
        rowIndex_ = c.take<std::int32_t>(std::size_t(p.oh));
        W* colFrac = nullptr;
        W* colWeights = nullptr;
        if (method == kLinear) {
            colFrac = c.take<W>(std::size_t(p.ow));
            rowFrac_ = c.take<W>(std::size_t(p.oh));
        } else {
            colWeights = c.take<W>(round8(std::size_t(p.ow)) * taps_);
            rowWeights_ = c.take<W>(std::size_t(p.oh) * taps_);
        }
        privateAt_ = c.used();
        slotStride_ = round8(std::size_t(p.ow) * this->nc_);
        c.take<W>(slotStride_ * taps_);
        if (c.used() > p.sliceBytes) return false;
        const int overread = kernels::hpass_overread(taps_, this->nc_, int(sizeof(T)));
        build_columns<W>(method, p.ow, p.cols(), p.sx0, p.sx1, this->nc_, overread,
                         colIndex, colFrac, colWeights, &cols_);
        build_rows<W>(method, p.oh, p.rows(), p.sy0, p.sy1, rowIndex_, rowFrac_,
                      rowWeights_);
        halves_ = method == kLinear && !this->framed_ && exact_halves();
        if (halves_) {
            // Columns whose two taps lie inside the rectangle.
            const int lo = p.sx0 * this->nc_;
            const int hi = int(std::min((long long)p.sx1 * this->nc_ - 2LL * this->nc_, (long long)INT_MAX));
            int firstIn = p.ow, lastIn = -1;
            for (int x = 0; x < p.ow; ++x) {
                const bool inside = colIndex[x] >= lo && colIndex[x] <= hi;
                firstIn = inside ? std::min(firstIn, x) : firstIn;
                lastIn = inside ? std::max(lastIn, x) : lastIn;
            }
            halfBegin_ = lastIn < 0 ? 0 : firstIn;
            halfEnd_ = lastIn < 0 ? 0 : lastIn + 1;
        }
        return true;
    }

    void band(Rok8u* slice, int first, int count) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        Carver c(slice, privateAt_);
        W* slots[6];
        int tags[6];
        for (int k = 0; k < taps_; ++k) slots[k] = c.take<W>(slotStride_);
        for (int plane = 0; plane < this->a_.planes; ++plane) {
            std::fill(tags, tags + taps_, INT_MIN);
            for (int y = first; y < first + count; ++y) {
                T* d = this->dst_row(plane, y);
                if (halves_ && half_row(y)) {
                    halves(plane, y, d);
                    continue;
                }
                // The source rows of this output row, each horizontal pass
                // done once and kept in its slot while later rows need it.
                const W* rows[6];
                for (int k = 0; k < taps_; ++k) {
                    const int r = clamp_index((long long)rowIndex_[y] + first_ + k, p.sy0, p.sy1);
                    const int s = r % taps_;
                    if (tags[s] != r) {
                        kernels::hpass(this->src_row(plane, r), cols_, 0, p.ow, slots[s]);
                        tags[s] = r;
                    }
                    rows[k] = slots[s];
                }
                this->emit(
                    d, y, [&](int x, int n, T* out) { vertical(rows, y, x, n * nc, out); },
                    [&](int x, int n, W* out) { vertical(rows, y, x, n * nc, out); });
            }
        }
    }

    std::size_t privateAt_ = 0;

private:
    template <class D>
    void vertical(const W* const* rows, int y, int x, int samples, D* out) const {
        const std::size_t at = std::size_t(x) * this->nc_;
        if (taps_ == 2) return kernels::vpass_linear<D, W>(rows[0] + at, rows[1] + at, rowFrac_[y], samples, out);
        const W* shifted[6];
        for (int k = 0; k < taps_; ++k) shifted[k] = rows[k] + at;
        kernels::vpass<D, W>(shifted, rowWeights_ + std::size_t(y) * taps_, taps_, samples, out);
    }

    // A bilinear 2:1 reduction on pixel boundaries: every fraction is 1/2
    // and the taps advance by two pixels, so inside the source rectangle
    // each output comes from one 2x2 block.
    bool exact_halves() const {
        const ResizePlan& p = this->p_;
        if (p.rec.invX != 2.0 || p.rec.invY != 2.0) return false;
        // Counted without early exits, so that the loops run on vectors.
        int other = 0;
        for (int x = 0; x < p.ow; ++x) other += cols_.frac[x] != W(0.5);
        for (int y = 0; y < p.oh; ++y) other += rowFrac_[y] != W(0.5);
        return other == 0;
    }
    bool half_row(int y) const {
        return rowIndex_[y] >= this->p_.sy0 && rowIndex_[y] + 1 < this->p_.sy1 && halfBegin_ < halfEnd_;
    }
    void halves(int plane, int y, T* d) const {
        const T* r0 = this->src_row(plane, rowIndex_[y]);
        const T* r1 = this->src_row(plane, rowIndex_[y] + 1);
        const int nc = this->nc_;
        auto part = [&](int x, int n, T* out) {
            // Columns whose taps reach outside the rectangle, by the rule.
            alignas(32) W h0[kBlockPixels * 4], h1[kBlockPixels * 4];
            for (int i = 0; i < n; i += kBlockPixels) {
                const int m = std::min(kBlockPixels, n - i);
                kernels::hpass(r0, cols_, x + i, x + i + m, h0);
                kernels::hpass(r1, cols_, x + i, x + i + m, h1);
                kernels::vpass_linear<T, W>(h0, h1, rowFrac_[y], m * nc, out + std::size_t(i) * nc);
            }
        };
        auto direct = [&](int x, int n, T* out) {
            const int ib = std::clamp(halfBegin_, x, x + n), ie = std::clamp(halfEnd_, ib, x + n);
            if (ib > x) part(x, ib - x, out);
            if (ie > ib)
                kernels::halve_2x2(r0 + cols_.index[ib], r1 + cols_.index[ib], ie - ib, nc, kernels::Halving::Linear,
                                   out + std::size_t(ib - x) * nc, 2 * std::ptrdiff_t(this->a_.srcStep));
            if (x + n > ie) part(ie, x + n - ie, out + std::size_t(ie - x) * nc);
        };
        if (this->ac4_)
            ac4_row(d, this->p_.ow, [&](T* block, int x0, int n) { direct(x0, n, block); });
        else
            direct(0, this->p_.ow, d);
    }

    ColumnTaps<W> cols_{};
    std::int32_t* rowIndex_ = nullptr;
    W* rowFrac_ = nullptr;
    W* rowWeights_ = nullptr;
    int taps_ = 2, first_ = 0;
    std::size_t slotStride_ = 0;
    bool halves_ = false;
    int halfBegin_ = 0, halfEnd_ = 0;
};

// ---- super-sampling ----

template <class T>
class SuperEngine : public Frame<T> {
public:
    using W = Work<T>;
    using Frame<T>::Frame;

    bool prepare(Rok8u* buffer) {
        const ResizePlan& p = this->p_;
        const double a0 = p.col_edge(0), a1 = p.col_edge(p.ow);
        c0_ = std::max(p.sx0, int(std::max(std::floor(a0), double(INT_MIN))));
        c1_ = std::min(p.sx1, int(std::min(std::ceil(a1), double(INT_MAX))));
        cols_ = c1_ - c0_;
        leftExtra_ = W(a0 < p.sx0 ? p.sx0 - a0 : 0.0);
        rightExtra_ = W(a1 > p.sx1 ? a1 - p.sx1 : 0.0);
        area_ = W(p.rec.area);
        Carver c(buffer, 0);
        split_ = c.take<W>(std::size_t(cols_), sizeof(W));
        privateAt_ = c.used();
        c.take<W>(std::size_t(std::max(cols_, p.ow)) * this->nc_, sizeof(W));
        if (c.used() > p.sliceBytes) return false;
        // Per source column, the part that falls in the output pixel where
        // the column begins; negative where that pixel ends in the column.
        int d = 0;
        for (int col = c0_; col < c1_; ++col) {
            const double start = col == c0_ ? std::max(double(col), a0) : double(col);
            const double next = d + 1 < p.ow ? p.col_edge(d + 1) : a1;
            double part;
            if (next <= col + 1.0 && d < p.ow) {
                part = -(next - start);
                ++d;
            } else {
                part = std::min(col + 1.0, a1) - start;
            }
            split_[col - c0_] = W(part);
        }
        halves_ = !this->framed_ && p.rec.invX == 2.0 && p.rec.invY == 2.0 && p.rec.offX == std::floor(p.rec.offX) &&
                  p.rec.offY == std::floor(p.rec.offY);
        if (halves_) {
            // Output columns [xa, xb) cover two whole columns of the rectangle.
            xa_ = 0;
            while (xa_ < p.ow && p.col_edge(xa_) < p.sx0) ++xa_;
            xb_ = xa_;
            while (xb_ < p.ow && p.col_edge(xb_) + 2.0 <= p.sx1) ++xb_;
        }
        return true;
    }

    void band(Rok8u* slice, int first, int count) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        Carver c(slice, privateAt_);
        W* acc = c.take<W>(std::size_t(std::max(cols_, p.ow)) * nc, sizeof(W));
        for (int plane = 0; plane < this->a_.planes; ++plane) {
            for (int y = first; y < first + count; ++y) {
                T* d = this->dst_row(plane, y);
                const double b0 = p.row_edge(y), b1 = p.row_edge(y + 1);
                if (halves_ && b0 >= p.sy0 && b1 <= p.sy1) {
                    halves(plane, y, int(b0), acc, d);
                    continue;
                }
                accumulate(plane, b0, b1, 0, cols_, acc);
                kernels::super_columns<W>(acc, cols_, split_, leftExtra_, rightExtra_, area_, nc, p.ow, acc);
                this->emit(
                    d, y,
                    [&](int x, int n, T* out) { kernels::store_row<T, W>(acc + std::size_t(x) * nc, n * nc, out); },
                    [&](int x, int n, W* out) {
                        std::memcpy(out, acc + std::size_t(x) * nc, std::size_t(n) * nc * sizeof(W));
                    });
            }
        }
    }

private:
    // Sums the source rows that output row [b0, b1) covers, each weighted by
    // its covered part (the part beyond the rectangle by the edge row), over
    // source columns c0_ + [from, to).
    void accumulate(int plane, double b0, double b1, int from, int to, W* acc) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        const std::size_t at = std::size_t(c0_ + from) * nc, n = std::size_t(to - from) * nc;
        W* out = acc + std::size_t(from) * nc;
        bool first = true;
        auto add = [&](int r, double w) {
            kernels::accumulate_row<T, W>(this->src_row(plane, r) + at, W(w), int(n), first, out);
            first = false;
        };
        if (b0 < p.sy0) add(p.sy0, p.sy0 - b0);
        const int r0 = std::max(p.sy0, int(std::max(std::floor(b0), double(INT_MIN))));
        const int r1 = std::min(p.sy1, int(std::min(std::ceil(b1), double(INT_MAX))));
        for (int r = r0; r < r1; ++r) {
            const double w = std::min(r + 1.0, b1) - std::max(double(r), b0);
            if (w > 0.0) add(r, w);
        }
        if (b1 > p.sy1) add(p.sy1 - 1, b1 - p.sy1);
    }

    // A 2:1 reduction on pixel boundaries: inside the rectangle each output
    // comes from one 2x2 block; the edge columns go by the general walk.
    void halves(int plane, int y, int r, W* acc, T* d) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        const double b0 = p.row_edge(y), b1 = p.row_edge(y + 1);
        const int leftCols = int(p.col_edge(xa_)) - c0_;
        const int rightFrom = int(p.col_edge(xb_)) - c0_;
        if (xa_ > 0) {
            accumulate(plane, b0, b1, 0, leftCols, acc);
            kernels::super_columns<W>(acc, leftCols, split_, leftExtra_, W(0), area_, nc, xa_, acc);
        }
        if (xb_ < p.ow) {
            W* part = acc + std::size_t(xa_) * nc;
            accumulate(plane, b0, b1, rightFrom, cols_, acc);
            kernels::super_columns<W>(acc + std::size_t(rightFrom) * nc, cols_ - rightFrom, split_ + rightFrom, W(0),
                                      rightExtra_, area_, nc, p.ow - xb_, part);
        }
        const T* r0 = this->src_row(plane, r);
        const T* r1 = this->src_row(plane, r + 1);
        const std::size_t from = std::size_t(p.col_edge(xa_)) * nc;
        auto direct = [&](int x, int n, T* out) {
            const int ib = std::clamp(xa_, x, x + n), ie = std::clamp(xb_, ib, x + n);
            if (ib > x) kernels::store_row<T, W>(acc + std::size_t(x) * nc, (ib - x) * nc, out);
            if (ie > ib)
                kernels::halve_2x2(r0 + from + std::size_t(ib - xa_) * 2 * nc,
                                   r1 + from + std::size_t(ib - xa_) * 2 * nc, ie - ib, nc, kernels::Halving::Super,
                                   out + std::size_t(ib - x) * nc, 2 * std::ptrdiff_t(this->a_.srcStep));
            if (x + n > ie)
                kernels::store_row<T, W>(acc + std::size_t(xa_ + ie - xb_) * nc, (x + n - ie) * nc,
                                         out + std::size_t(ie - x) * nc);
        };
        if (this->ac4_)
            ac4_row(d, p.ow, [&](T* block, int x0, int n) { direct(x0, n, block); });
        else
            direct(0, p.ow, d);
    }

    std::size_t privateAt_ = 0;
    W* split_ = nullptr;
    int c0_ = 0, c1_ = 0, cols_ = 0;
    W leftExtra_ = 0, rightExtra_ = 0, area_ = 0;
    bool halves_ = false;
    int xa_ = 0, xb_ = 0;
};

// ---- anti-aliasing engine ----

// Taps of one output position for the anti-aliasing engine: the method's
// kernel stretched by the reduction (1 when enlarging), over every source
// pixel inside its support; taps beyond the rectangle add their weight to
// the nearest edge pixel, and the weights are divided by their sum.
struct AntiAliasAxis {
    int method, radius;
    double inv;  // source pixels per output pixel
    int lo, hi;

    double scale() const { return inv > 1.0 ? inv : 1.0; }
    void window(double pos, long long* jlo, long long* jhi) const {
        const double s = scale();
        if (s == 1.0) {
            const long long i = (long long)std::floor(pos);
            *jlo = i - radius + 1;
            *jhi = i + radius;
        } else {
            *jlo = (long long)std::ceil(pos - radius * s);
            *jhi = (long long)std::floor(pos + radius * s);
        }
    }
    // Source pixels [first, last] that the position reads.
    void span(double pos, int* first, int* last) const {
        long long jlo, jhi;
        window(pos, &jlo, &jhi);
        *first = clamp_index(jlo, lo, hi);
        *last = clamp_index(jhi, lo, hi);
    }
    double kernel(long long j, double pos) const {
        return stretched_kernel(method, std::fabs(double(j) - pos), scale());
    }
    double total(double pos) const {
        long long jlo, jhi;
        window(pos, &jlo, &jhi);
        double t = 0.0;
        for (long long j = jlo; j <= jhi; ++j) t += kernel(j, pos);
        return t;
    }
    // Weight of source pixel r (inside the span), the taps that clamp to it
    // summed in ascending order and divided by the total.
    double weight(double pos, int r, double total) const {
        long long jlo, jhi;
        window(pos, &jlo, &jhi);
        double sum = 0.0;
        const long long from = r == lo ? jlo : r, to = r == hi - 1 ? jhi : r;
        for (long long j = std::max(from, jlo); j <= std::min(to, jhi); ++j) sum += kernel(j, pos);
        return sum / total;
    }
};

template <class T>
class AntiAliasEngine : public Frame<T> {
public:
    using W = Work<T>;
    using Frame<T>::Frame;

    bool prepare(Rok8u* buffer) {
        const ResizePlan& p = this->p_;
        const int method = int(p.rec.method);
        const int radius = support_radius(method);
        xs_ = {method, radius, p.rec.invX, p.sx0, p.sx1};
        ys_ = {method, radius, p.rec.invY, p.sy0, p.sy1};
        Carver c(buffer, 0);
        W* frac = nullptr;
        W* weights = nullptr;
        if (xs_.scale() == 1.0) {
            // A growing axis is resized by the method as it is.
            std::int32_t* index = c.take<std::int32_t>(std::size_t(p.ow));
            if (method == kLinear)
                frac = c.take<W>(std::size_t(p.ow));
            else
                weights = c.take<W>(round8(std::size_t(p.ow)) * taps_of(method));
            if (c.used() > p.sliceBytes) return false;
            build_columns<W>(method, p.ow, p.cols(), p.sx0, p.sx1, this->nc_,
                             kernels::hpass_overread(taps_of(method), this->nc_, int(sizeof(T))), index, frac,
                             weights, &cols_);
        } else {
            start_ = c.take<std::int32_t>(std::size_t(p.ow));
            count_ = c.take<std::int32_t>(std::size_t(p.ow));
            offset_ = c.take<std::int32_t>(std::size_t(p.ow));
            long long total = 0;
            for (int x = 0; x < p.ow; ++x) {
                int first, last;
                xs_.span(p.col_pos(x), &first, &last);
                start_[x] = first;
                count_[x] = last - first + 1;
                offset_[x] = std::int32_t(total);
                total += count_[x];
                if (total > INT_MAX / 8) return false;
            }
            weights_ = c.take<W>(std::size_t(total));
            if (c.used() > p.sliceBytes) return false;
            for (int x = 0; x < p.ow; ++x) {
                const double pos = p.col_pos(x), t = xs_.total(pos);
                for (int k = 0; k < count_[x]; ++k) weights_[offset_[x] + k] = W(xs_.weight(pos, start_[x] + k, t));
            }
        }
        privateAt_ = c.used();
        slotStride_ = round8(std::size_t(p.ow) * this->nc_);
        // Growing rows: a ring of the 2R source rows of the method. Reducing:
        // a source row and the sums of the (at most 2R + 1) output rows
        // that read it.
        slots_ = ys_.scale() == 1.0 ? taps_of(method) : 2 * radius + 2;
        c.take<W>(slotStride_ * slots_);
        return c.used() <= p.sliceBytes;
    }

    void band(Rok8u* slice, int first, int count) const {
        Carver c(slice, privateAt_);
        W* slots[8];
        for (int k = 0; k < slots_; ++k) slots[k] = c.take<W>(slotStride_);
        for (int plane = 0; plane < this->a_.planes; ++plane) {
            if (ys_.scale() == 1.0)
                enlarge(plane, first, count, slots);
            else
                reduce(plane, first, count, slots);
        }
    }

private:
    void horizontal(int plane, int r, W* out) const {
        if (xs_.scale() == 1.0)
            kernels::hpass(this->src_row(plane, r), cols_, 0, this->p_.ow, out);
        else
            kernels::hpass_general<T, W>(this->src_row(plane, r), start_, count_, offset_, weights_, this->p_.ow,
                                         this->nc_, out);
    }

    // Output row y from intermediate rows (nc samples per pixel).
    template <class Direct, class Values>
    void write(int plane, int y, Direct&& direct, Values&& values) const {
        this->emit(this->dst_row(plane, y), y, direct, values);
    }

    // Growing rows: the method's taps and weights, rows kept in a ring.
    void enlarge(int plane, int first, int count, W* const* slots) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_, method = xs_.method, taps = taps_of(method), from = first_tap(method);
        int tags[8];
        std::fill(tags, tags + slots_, INT_MIN);
        for (int y = first; y < first + count; ++y) {
            long long i;
            const W t = fraction_of<W>(p.row_pos(y), &i);
            double wd[6];
            tap_weights(method, double(t), wd);
            const W* rows[6];
            W w[6];
            for (int k = 0; k < taps; ++k) {
                const int r = clamp_index(i + from + k, p.sy0, p.sy1);
                const int s = r % slots_;
                if (tags[s] != r) {
                    horizontal(plane, r, slots[s]);
                    tags[s] = r;
                }
                rows[k] = slots[s];
                w[k] = W(wd[k]);
            }
            auto vertical = [&](auto* out, int x, int n) {
                const std::size_t at = std::size_t(x) * nc;
                if (taps == 2) return kernels::vpass_linear(rows[0] + at, rows[1] + at, t, n * nc, out);
                const W* shifted[6];
                for (int k = 0; k < taps; ++k) shifted[k] = rows[k] + at;
                kernels::vpass(shifted, w, taps, n * nc, out);
            };
            write(
                plane, y, [&](int x, int n, T* out) { vertical(out, x, n); },
                [&](int x, int n, W* out) { vertical(out, x, n); });
        }
    }

    // Each source row is filtered across once and added, weighted, to the
    // sums of every output row that reads it, in ascending source order;
    // an output row is written when its last source row is in.
    void reduce(int plane, int first, int count, W* const* slots) const {
        const ResizePlan& p = this->p_;
        const int nc = this->nc_;
        const int sums = slots_ - 1;
        W* row = slots[sums];
        const std::size_t samples = std::size_t(p.ow) * nc;
        const int end = first + count;
        int from, last, opened = first;  // rows [first, opened) have begun
        double totals[8];
        ys_.span(p.row_pos(first), &from, &last);
        ys_.span(p.row_pos(end - 1), &last, &last);
        int done = first;
        for (int r = from; r <= last && done < end; ++r) {
            horizontal(plane, r, row);
            // Open the output rows whose span starts here.
            while (opened < end) {
                int r0, r1;
                ys_.span(p.row_pos(opened), &r0, &r1);
                if (r0 > r) break;
                totals[opened % sums] = ys_.total(p.row_pos(opened));
                ++opened;
            }
            for (int y = done; y < opened; ++y) {
                int r0, r1;
                const double pos = p.row_pos(y);
                ys_.span(pos, &r0, &r1);
                W* acc = slots[y % sums];
                kernels::accumulate_row<W, W>(row, W(ys_.weight(pos, r, totals[y % sums])), int(samples), r == r0,
                                              acc);
            }
            // Write the rows that are complete.
            while (done < opened) {
                int r0, r1;
                ys_.span(p.row_pos(done), &r0, &r1);
                if (r1 > r) break;
                const W* acc = slots[done % sums];
                write(
                    plane, done,
                    [&](int x, int n, T* out) {
                        kernels::store_row<T, W>(acc + std::size_t(x) * nc, n * nc, out);
                    },
                    [&](int x, int n, W* out) {
                        std::memcpy(out, acc + std::size_t(x) * nc, std::size_t(n) * nc * sizeof(W));
                    });
                ++done;
            }
        }
    }

    AntiAliasAxis xs_{}, ys_{};
    ColumnTaps<W> cols_{};  // a growing axis
    std::int32_t *start_ = nullptr, *count_ = nullptr, *offset_ = nullptr;
    W* weights_ = nullptr;
    std::size_t privateAt_ = 0, slotStride_ = 0;
    int slots_ = 2;
};

template <class Engine>
RokStatus run_engine(const ResizePlan& p) {
    Engine e(p);
    Rok8u* buffer = p.args->buffer;
    if (!e.prepare(buffer)) return rokStatusBadSize;
    // Each part is a run of consecutive rows, done as a band of its own in
    // the slice of the buffer that belongs to the thread running it.
    if (p.team <= 1) {
        e.band(buffer, 0, p.oh);
        return rokStatusOk;
    }
    return parallel_for(p.oh, p.team, [&](int begin, int end, int slot) {
        e.band(buffer + p.sliceBytes * std::size_t(slot), begin, end - begin);
    });
}

}  // namespace

template <class T>
RokStatus run_resize(const ResizePlan& p) {
    const int method = int(p.rec.method);
    if (method == kNearest) return run_engine<NearestEngine<T>>(p);
    if (method == kSuper) return run_engine<SuperEngine<T>>(p);
    // Anti-aliasing matters only where an axis shrinks.
    if (p.rec.antialias && (p.rec.invX > 1.0 || p.rec.invY > 1.0)) return run_engine<AntiAliasEngine<T>>(p);
    return run_engine<SeparableEngine<T>>(p);
}

template RokStatus run_resize<Rok8u>(const ResizePlan&);
template RokStatus run_resize<Rok16u>(const ResizePlan&);
template RokStatus run_resize<Rok16s>(const ResizePlan&);
template RokStatus run_resize<Rok32f>(const ResizePlan&);
template RokStatus run_resize<Rok64f>(const ResizePlan&);

}  // namespace rok::geometry
