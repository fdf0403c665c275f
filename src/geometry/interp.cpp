#include "geometry/interp.h"

namespace rok::geometry {

namespace {

// L(i/100) for i = 0 .. 300, L(x) = 3 sin(pi x) sin(pi x / 3) / (pi x)^2 and
// L(0) = 1, each the float nearest to the exact value (so L(1), L(2) and
// L(3) are exactly 0), followed by one zero for the interpolation at 3.
alignas(64) constexpr float kLanczosTable[kLanczosEntries] = {
    1.0f, 0.99981725f, 0.99926907f, 0.998356f, 0.99707854f, 0.99543774f, 0.9934348f, 0.99107116f,
    0.98834854f, 0.98526907f, 0.9818348f, 0.9780485f, 0.9739127f, 0.9694306f, 0.9646055f, 0.9594408f,
    0.9539404f, 0.94810826f, 0.9419486f, 0.935466f, 0.9286651f, 0.92155087f, 0.9141284f, 0.90640324f,
    0.8983809f, 0.89006704f, 0.8814678f, 0.87258935f, 0.863438f, 0.8540204f, 0.8443432f, 0.8344133f,
    0.8242378f, 0.81382394f, 0.803179f, 0.7923106f, 0.78122634f, 0.76993394f, 0.75844145f, 0.74675673f,
    0.734888f, 0.7228434f, 0.7106314f, 0.6982602f, 0.68573844f, 0.67307454f, 0.66027725f, 0.6473551f,
    0.63431686f, 0.62117124f, 0.6079271f, 0.59459317f, 0.5811783f, 0.5676913f, 0.55414104f, 0.5405362f,
    0.5268858f, 0.51319844f, 0.4994829f, 0.48574793f, 0.4720022f, 0.45825428f, 0.44451272f, 0.43078604f,
    0.4170826f, 0.40341076f, 0.38977876f, 0.37619472f, 0.3626667f, 0.3492026f, 0.33581027f, 0.3224974f,
    0.30927154f, 0.29614016f, 0.28311053f, 0.27018982f, 0.25738505f, 0.24470301f, 0.23215047f, 0.2197339f,
    0.20745967f, 0.19533397f, 0.18336281f, 0.17155202f, 0.15990722f, 0.14843388f, 0.13713723f, 0.12602235f,
    0.115094095f, 0.10435713f, 0.09381591f, 0.08347468f, 0.073337495f, 0.063408166f, 0.05369032f, 0.04418737f,
    0.03490249f, 0.025838668f, 0.016998654f, 0.0083849905f, 0.0f, -0.008154211f, -0.016075755f, -0.02376296f,
    -0.03121437f, -0.03842875f, -0.045405068f, -0.05214252f, -0.058640506f, -0.06489863f, -0.07091673f, -0.07669481f,
    -0.08223311f, -0.087532066f, -0.09259231f, -0.097414665f, -0.102000155f, -0.10635f, -0.11046559f, -0.11434852f,
    -0.11800055f, -0.12142362f, -0.124619834f, -0.12759148f, -0.13034101f, -0.13287102f, -0.13518427f, -0.13728368f,
    -0.13917232f, -0.14085335f, -0.14233012f, -0.14360613f, -0.14468493f, -0.14557026f, -0.14626594f, -0.14677592f,
    -0.14710422f, -0.14725502f, -0.14723253f, -0.1470411f, -0.14668514f, -0.14616913f, -0.14549764f, -0.14467528f,
    -0.14370677f, -0.14259683f, -0.14135024f, -0.13997188f, -0.13846658f, -0.13683929f, -0.13509491f, -0.13323842f,
    -0.13127476f, -0.12920895f, -0.12704596f, -0.124790765f, -0.12244836f, -0.12002373f, -0.1175218f, -0.11494753f,
    -0.112305805f, -0.10960153f, -0.106839515f, -0.10402459f, -0.101161495f, -0.09825495f, -0.09530959f, -0.09233003f,
    -0.0893208f, -0.08628636f, -0.083231114f, -0.08015938f, -0.077075414f, -0.07398338f, -0.07088736f, -0.067791335f,
    -0.06469923f, -0.061614845f, -0.0585419f, -0.055484008f, -0.05244469f, -0.04942735f, -0.0464353f, -0.043471742f,
    -0.04053976f, -0.037642334f, -0.034782335f, -0.031962506f, -0.029185494f, -0.026453814f, -0.023769872f, -0.021135952f,
    -0.018554222f, -0.016026732f, -0.013555408f, -0.011142063f, -0.008788385f, -0.0064959475f, -0.004266201f, -0.00210048f,
    0.0f, 0.00203414f, 0.0040009576f, 0.005899586f, 0.007729272f, 0.009489375f, 0.011179369f, 0.012798834f,
    0.014347461f, 0.015825046f, 0.017231494f, 0.018566808f, 0.019831093f, 0.021024557f, 0.0221475f, 0.023200318f,
    0.0241835f, 0.025097622f, 0.025943346f, 0.026721423f, 0.027432684f, 0.028078033f, 0.028658457f, 0.029175011f,
    0.029628826f, 0.030021092f, 0.030353067f, 0.030626073f, 0.030841483f, 0.031000732f, 0.031105299f, 0.031156717f,
    0.03115656f, 0.03110645f, 0.03100804f, 0.030863024f, 0.030673124f, 0.030440096f, 0.030165717f, 0.02985179f,
    0.029500138f, 0.029112594f, 0.028691014f, 0.028237255f, 0.02775319f, 0.027240686f, 0.02670162f, 0.026137864f,
    0.025551284f, 0.024943741f, 0.024317084f, 0.02367315f, 0.023013763f, 0.022340724f, 0.021655815f, 0.020960798f,
    0.02025741f, 0.019547353f, 0.018832307f, 0.018113919f, 0.0173938f, 0.016673522f, 0.015954627f, 0.015238613f,
    0.014526936f, 0.0138210105f, 0.0131222075f, 0.012431852f, 0.011751219f, 0.011081538f, 0.01042399f, 0.009779703f,
    0.009149754f, 0.008535169f, 0.007936921f, 0.007355926f, 0.00679305f, 0.006249102f, 0.005724835f, 0.005220949f,
    0.0047380873f, 0.004276836f, 0.0038377263f, 0.003421235f, 0.0030277814f, 0.0026577308f, 0.0023113927f, 0.0019890224f,
    0.0016908207f, 0.0014169355f, 0.0011674612f, 0.00094244035f, 0.0007418642f, 0.0005656733f, 0.00041375877f, 0.00028596315f,
    0.00018208155f, 0.000101862664f, 4.5010092e-05f, 1.1183513e-05f, 0.0f,
    0.0f,
};

}  // namespace

bool parse_interp(int code, Interp* out) {
    const std::uint32_t bits = std::uint32_t(code);
    const int method = int(bits & kMethodMask);
    switch (method) {
        case kNearest: case kLinear: case kCubic: case kBSpline: case kCatmullRom: case kCubicB05C03: case kSuper:
        case kLanczos:
            break;
        default:
            return false;
    }
    const std::uint32_t flags = bits >> 29;
    if (flags != 0 && (flags & (flags - 1)) != 0) return false;
    out->method = method;
    out->smooth = (flags & 4) != 0;
    out->subpixel = (flags & 2) != 0;
    out->antialias = (flags & 1) != 0;
    return true;
}

bool parse_pixel_interp(int code, std::initializer_list<int> accepted, int* method, bool* smooth) {
    const int m = int(std::uint32_t(code) & 0x7FFFFFFFu);
    for (int a : accepted)
        if (m == a) {
            *method = m;
            *smooth = code < 0;
            return true;
        }
    return false;
}

double cubic_kernel(int method, double a) {
    if (a >= 2.0) return 0.0;
    if (method == kCubic) {
        // The Lagrange cubic through the four taps, written through its
        // roots so that it is exactly 1 at a = 0 and exactly 0 at 1 and 2.
        if (a < 1.0) return 0.5 * (a * a - 1.0) * (a - 2.0);
        return -(a - 1.0) * (a - 2.0) * (a - 3.0) / 6.0;
    }
    double b, c;
    switch (method) {
        case kBSpline: b = 1.0, c = 0.0; break;
        case kCatmullRom: b = 0.0, c = 0.5; break;
        default: b = 0.5, c = 0.3; break;
    }
    const double a2 = a * a, a3 = a2 * a;
    if (a < 1.0) return ((12.0 - 9.0 * b - 6.0 * c) * a3 + (-18.0 + 12.0 * b + 6.0 * c) * a2 + (6.0 - 2.0 * b)) / 6.0;
    return ((-b - 6.0 * c) * a3 + (6.0 * b + 30.0 * c) * a2 + (-12.0 * b - 48.0 * c) * a + (8.0 * b + 24.0 * c)) / 6.0;
}

const float* lanczos_table() { return kLanczosTable; }

double lanczos_kernel(double a) {
    const double x = (a < 3.0 ? a : 3.0) * 100.0;
    const double fl = std::floor(x);
    const int i = int(fl);
    const double lo = kLanczosTable[i], hi = kLanczosTable[i + 1];
    return lo + (hi - lo) * (x - fl);
}

void tap_weights(int method, double t, double* w) {
    if (method == kLinear) {
        w[0] = 1.0 - t;
        w[1] = t;
    } else if (method == kLanczos) {
        double sum = 0.0;
        for (int k = 0; k < 6; ++k) {
            w[k] = lanczos_kernel(std::fabs(double(k - 2) - t));
            sum += w[k];
        }
        for (int k = 0; k < 6; ++k) w[k] /= sum;
    } else {
        for (int k = 0; k < 4; ++k) w[k] = cubic_kernel(method, std::fabs(double(k - 1) - t));
    }
}

double stretched_kernel(int method, double a, double scale) {
    const double x = a / scale;
    if (method == kLinear) return x < 1.0 ? 1.0 - x : 0.0;
    if (method == kLanczos) return x < 3.0 ? lanczos_kernel(x) : 0.0;
    return cubic_kernel(method, x);
}

namespace {

template <class W>
void split_any(const Positions& p, int count, int lo, int hi, std::int32_t* whole, W* frac) {
    // The held range in double: lo - 64 and hi + 64 computed there cannot
    // overflow, and a whole number in it converts to int32 exactly.
    const double low = double(lo) - 64.0, high = double(hi) + 64.0;
    int k = kernels::split_positions(p.origin, p.inv, p.off, count, low, high, whole, frac);
    for (; k < count; ++k) {
        const double v = p.at(k), f = std::floor(v);
        frac[k] = W(v - f);
        whole[k] = std::int32_t(std::min(std::max(f, low), high));
    }
}

}  // namespace

void split_positions(const Positions& p, int count, int lo, int hi, std::int32_t* whole, float* frac) {
    split_any(p, count, lo, hi, whole, frac);
}
void split_positions(const Positions& p, int count, int lo, int hi, std::int32_t* whole, double* frac) {
    split_any(p, count, lo, hi, whole, frac);
}

}  // namespace rok::geometry
