/* Types, status codes, enumerations and records shared by every export.
 * Kept in one block with its own guard so that the library's sources can
 * include it without the declarations of every export. */
#ifndef ROKI_TYPES_H
#define ROKI_TYPES_H

#include <stdint.h>

#if defined(ROKIP_BUILDING_LIBRARY)
#define ROKI_API __attribute__((visibility("default")))
#else
#define ROKI_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- sample types ---- */
typedef uint8_t Rok8u;
typedef int8_t Rok8s;
typedef uint16_t Rok16u;
typedef int16_t Rok16s;
typedef uint32_t Rok32u;
typedef int32_t Rok32s;
typedef float Rok32f;
typedef int64_t Rok64s;
typedef double Rok64f;
typedef struct { Rok16s re; Rok16s im; } Rok16sc;
typedef struct { Rok32s re; Rok32s im; } Rok32sc;
typedef struct { Rok32f re; Rok32f im; } Rok32fc;
typedef struct { Rok64f re; Rok64f im; } Rok64fc;

/* ---- shared records ---- */
typedef struct { int32_t width; int32_t height; } RokiSize;
typedef struct { int32_t x; int32_t y; int32_t width; int32_t height; } RokiRect;
typedef struct { int32_t x; int32_t y; } RokiPoint;

/* ---- status codes: 0 success, negative error (nothing written), positive warning ---- */
typedef int32_t RokStatus;
enum {
    rokStatusOk = 0,
    rokStatusNoWorkBuffer = -4,
    rokStatusBadArg = -5,
    rokStatusBadSize = -6,
    rokStatusBadRange = -7,
    rokStatusNullPtr = -8,
    rokStatusNoMemory = -9,
    rokStatusDivByZeroErr = -10,
    rokStatusOutOfRange = -11,
    rokStatusBadScaleRange = -13,
    rokStatusBadStep = -14,
    rokStatusBadFftOrder = -15,
    rokStatusBadFftFlag = -16,
    rokStatusBadContext = -17,
    rokStatusBadThresholds = -18,
    rokStatusMomentTooSmall = -20,
    rokStatusBadMirrorAxis = -21,
    rokStatusBadInterpolation = -22,
    rokStatusBadResizeFactor = -23,
    rokStatusBadFirLength = -26,
    rokStatusBadFirPhase = -28,
    rokStatusBadFirFactor = -29,
    rokStatusBadMaskSize = -33,
    rokStatusBadAnchor = -34,
    rokStatusBadEps = -36,
    rokStatusStepTooShort = -37,
    rokStatusBadChannel = -47,
    rokStatusBadAlphaType = -50,
    rokStatusBadFilterDivisor = -51,
    rokStatusBadChannelCount = -53,
    rokStatusBadQuad = -56,
    rokStatusBadRect = -57,
    rokStatusBadCoeffs = -58,
    rokStatusZeroMask = -59,
    rokStatusBadChannelOrder = -60,
    rokStatusBadLutLevels = -106,
    rokStatusBadHistLevels = -107,
    rokStatusMisalignedStep = -108,
    rokStatusBadNoise = -125,
    rokStatusResizeTooSmall = -201,
    rokStatusQualityIndexErr = -210,
    rokStatusBadWeight = -211,
    rokStatusBadDecimation = -212,
    rokStatusBadRoundMode = -213,
    rokStatusBadBorder = -225,
    rokStatusOddValue = -227,
    rokStatusBadMode = -9999,
    rokStatusDivByZero = 6,
    rokStatusLnZeroArg = 7,
    rokStatusLnNegArg = 8,
    rokStatusNoIntersection = 29,
    rokStatusWrongIntersectQuad = 30,
    rokStatusSizeExceedsSpec = 48
};

/* ---- enumerations (passed as signed 32-bit values) ---- */

/* Rounding mode of conversions and rounding filters. */
enum { rokRoundTruncate = 0, rokRoundNearestEven = 1, rokRoundHalfAway = 2 };

/* Algorithm hint; only rokHintAccurate changes behaviour. */
enum { rokHintDefault = 0, rokHintFast = 1, rokHintAccurate = 2 };

/* Comparison operation. */
enum {
    rokCompareLess = 0, rokCompareLessEq = 1, rokCompareEq = 2,
    rokCompareGreaterEq = 3, rokCompareGreater = 4
};

/* Mirror axis. */
enum { rokFlipAboutHorizontal = 0, rokFlipAboutVertical = 1, rokFlipBoth = 2 };

/* Interpolation method (low 29 bits) and at most one edge flag (top bits). */
enum {
    rokInterNearest = 1, rokInterLinear = 2, rokInterCubic = 4, rokInterBSpline = 5,
    rokInterCatmullRom = 6, rokInterCubicB05C03 = 7, rokInterSuper = 8, rokInterLanczos = 16
};
#define rokEdgeSmooth ((int32_t)0x80000000u)
#define rokEdgeSubpixel ((int32_t)0x40000000)
#define rokAntiAlias ((int32_t)0x20000000)

/* FFT and DFT normalisation flag. */
enum { rokFftDivFwd = 1, rokFftDivInv = 2, rokFftDivSqrt = 4, rokFftNoDiv = 8 };

/* Mask-size codes of the fixed-kernel and one-dimensional median filters. */
enum {
    rokMskSize3x3 = 33, rokMskSize5x5 = 55,
    rokMskSize3x1 = 31, rokMskSize5x1 = 51, rokMskSize1x3 = 13, rokMskSize1x5 = 15
};

/* Identifier in the first word of every specification or state record. */
enum {
    rokIdFftC = 25, rokIdFftR = 26, rokIdDftC = 27, rokIdDftR = 28,
    rokIdFftR32s = 29, rokIdDftR32s = 30, rokIdDctFwd = 31, rokIdDctInv = 32,
    rokIdMoment64f = 33, rokIdMoment64s = 34, rokIdWtFwd = 46
};

/* ---- moment states: 400-byte records that the caller holds but does not
 * read; made by rokiMomentInitAlloc_64f/_64s (or, for 64s, rokiMomentInit_64s
 * in caller memory of rokiMomentGetStateSize_64s bytes) ---- */
typedef struct RokiMomentState_64f RokiMomentState_64f;
typedef struct RokiMomentState_64s RokiMomentState_64s;

/* ---- version record ---- */
typedef struct {
    int32_t major;
    int32_t minor;
    int32_t majorBuild;
    int32_t build;
    char targetCpu[4];
    const char* Name;
    const char* Version;
    const char* BuildDate;
} RokLibraryVersion;

#ifdef __cplusplus
}
#endif

#endif /* ROKI_TYPES_H */
