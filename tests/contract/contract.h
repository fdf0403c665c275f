// The contract suite's view of an export: the role of every argument, as
// generated from the manifest and its shapes (api/contract.py), and the
// values of one call.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "roki.h"

namespace rokc {

enum class Kind : unsigned char {
    Image, Planes, Array, Out, Buffer, Roi, Size, Int, Real, Point, Value, Step,
    Record,  // a specification or state record the suite makes for the call
    Made,    // where the call writes a record it makes
    Rect,    // a RokiRect: x and y from value and value2, width and height from size
};
enum class Dir : unsigned char { In, Out, InOut };
enum class Fill : unsigned char { Random, Range, Rising };

// Sample and element types; S and D stand for the export's source and
// destination types.
enum class Type : signed char { D = -2, S = -1, None, U8, S8, U16, S16, U32, S32, F32, S64, F64, SC16, SC32, FC32, FC64 };

// Alignment a typed pointer needs: complex types align as their parts.
inline int type_align(Type t);

inline int type_bytes(Type t) {
    switch (t) {
        case Type::U8: case Type::S8: return 1;
        case Type::U16: case Type::S16: case Type::SC16: return t == Type::SC16 ? 4 : 2;
        case Type::U32: case Type::S32: case Type::F32: return 4;
        case Type::S64: case Type::F64: case Type::SC32: case Type::FC32: return 8;
        case Type::FC64: return 16;
        default: return 0;
    }
}

inline int type_align(Type t) {
    const bool complex = t == Type::SC16 || t == Type::SC32 || t == Type::FC32 || t == Type::FC64;
    return complex ? type_bytes(t) / 2 : type_bytes(t);
}

// Filter taps for the records of the wavelet shapes (api/shapes): the low
// filter's taps from the start, the high one's from index 16.
inline const Rok32f kContractTaps[32] = {0.5f,  0.25f, -0.125f, 0.75f, -0.5f, 0.375f, 0.0625f, -0.25f,
                                         0.125f, 0.5f, 0.0f,    0.0f,  0.0f,  0.0f,   0.0f,    0.0f,
                                         0.5f,  -0.5f, 0.25f,   -0.25f, 0.125f, -0.375f, 0.625f, -0.0625f,
                                         0.75f, -0.125f, 0.0f,  0.0f,  0.0f,  0.0f,   0.0f,    0.0f};

inline constexpr int kNoProbe = 1 << 30;
inline constexpr int kMaxArgs = 24;

// Expressions over arguments are evaluated in 64 bits, so that the wild
// values of the fuzzer cannot overflow them; a result outside the range of
// its argument rules the layout out.
struct WideSize {
    long long width, height;
};
struct WidePoint {
    long long x, y;
};
struct WideRect {
    long long x, y, width, height;
};

struct Call;
using IntFn = long long (*)(Call&);
using RealFn = double (*)(Call&);
using SizeFn = WideSize (*)(Call&);

struct Arg {
    const char* name = nullptr;
    Kind kind = Kind::Int;
    Dir dir = Dir::In;
    Type elem = Type::None;  // sample or element type
    int ch = 0;              // channels per pixel; -1 / -2 the layout's source / destination count
    int step = -1;           // index of the step argument of an image
    SizeFn size = nullptr;   // image or plane size in pixels; a size argument's value
    IntFn border[4] = {};    // pixels read left, above, right and below the image's ROI
    IntFn count = nullptr;   // elements of an array or result, planes of a plane array
    Fill fill = Fill::Random;
    int lo = 0, hi = 0;      // Fill::Range
    IntFn value = nullptr;   // an int argument; a point's x
    IntFn value2 = nullptr;  // a point's y
    RealFn real = nullptr;   // a real argument, or a sample value drawn as a number
    bool square = false;     // a roi whose height is its width
    int bad = kNoProbe;      // status for a size (or int size) of 0 or -1
    bool optional = false;   // a null pointer is a valid value (scratch the function can allocate)
    bool consumed = false;   // a successful call releases the record
};

using Thunk = int (*)(Call&);

struct Export {
    const char* name = nullptr;
    Thunk call = nullptr;      // null: not an image function the suite can drive
    const Arg* args = nullptr;
    int nargs = 0;
    const int* order = nullptr;  // scalar arguments in the order they are drawn, ending with -1
    Type sType = Type::None, dType = Type::None;  // source and destination sample types
    int chS = 1, chD = 1;        // source and destination channels of the layout
    int nc = 1;                  // values a constant array holds
    int nullStatus = rokStatusNullPtr;
    int nvars = 0;               // arguments and the numbers that only the suite draws (args[nargs..])
    int threadsW = 160, threadsH = 80;  // 0: results depend on the thread count by design
    Thunk buffer = nullptr;      // bytes of scratch the call needs, -1 when the query fails
    void* (*make)(Call&) = nullptr;   // makes the record a call takes; null on failure
    void (*release)(void*) = nullptr;  // releases a record
    std::vector<int> accept = {};  // statuses a call with drawn values may give
    std::vector<int> writes = {};  // errors that come with the outputs written, by design

    Type type(Type t) const { return t == Type::S ? sType : t == Type::D ? dType : t; }
    int channels(int ch) const { return ch == -1 ? chS : ch == -2 ? chD : ch; }
};

// v as a T: integers saturate (NaN gives 0), so that a drawn or wild number
// never makes the conversion itself undefined.
template <class T>
T number_as(double v) {
    if constexpr (std::is_integral_v<T>) {
        if (!(v == v)) return T(0);
        if (v <= double(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
        if (v >= double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        return T(v);
    } else {
        if (v > double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::infinity();
        if (v < -double(std::numeric_limits<T>::max())) return -std::numeric_limits<T>::infinity();
        return T(v);
    }
}

// The values of one call's arguments, by position.
struct Call {
    union Slot {
        void* p;
        int i;
        RokiSize s;
        RokiPoint pt;
        RokiRect r;
        double f;
        unsigned char raw[16];
    };
    Slot slot[kMaxArgs] = {};
    bool numeric[kMaxArgs] = {};  // a sample value given as slot.f rather than raw bytes
    int nc = 1;
    std::mt19937 rng;

    void* ptr(int i) const { return slot[i].p; }
    int integer(int i) const { return slot[i].i; }
    RokiSize size(int i) const { return slot[i].s; }
    RokiPoint point(int i) const { return slot[i].pt; }
    RokiRect rect(int i) const { return slot[i].r; }
    double real(int i) const { return slot[i].f; }
    WideSize wsize(int i) const { return {slot[i].s.width, slot[i].s.height}; }
    WidePoint wpoint(int i) const { return {slot[i].pt.x, slot[i].pt.y}; }
    WideRect wrect(int i) const { return {slot[i].r.x, slot[i].r.y, slot[i].r.width, slot[i].r.height}; }
    long long wint(int i) const { return slot[i].i; }
    // a << b for counts such as 1 << nBitSize: a shift that a wild argument
    // puts out of range gives a count too large for any buffer the suite makes.
    static long long shl(long long a, long long b) { return b < 0 || b > 40 ? 1LL << 50 : a << b; }
    long long rand(long long lo, long long hi) {
        return lo >= hi ? lo : std::uniform_int_distribution<long long>(lo, hi)(rng);
    }

    template <class T>
    T sample(int i) const {
        T v{};
        if (!numeric[i]) {
            std::memcpy(&v, slot[i].raw, sizeof(T));
        } else if constexpr (std::is_arithmetic_v<T>) {
            v = number_as<T>(slot[i].f);
        } else {
            v.re = number_as<decltype(v.re)>(slot[i].f);
        }
        return v;
    }
};

// Registers a generated table; returns true.
bool add(const Export* exports, std::size_t count);
const std::vector<const Export*>& exports();

}  // namespace rokc
