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

/* ---- status codes: 0 success, negative error (nothing written), positive warning ----
 * Each code's comment is also its message from rokGetStatusString. */
typedef int32_t RokStatus;
enum {
    rokStatusOk = 0, /* success */
    rokStatusNoWorkBuffer = -4, /* an internal work buffer could not be obtained */
    rokStatusBadArg = -5, /* a real or count parameter is outside its range */
    rokStatusBadSize = -6, /* a width or height below 1, or a length or size outside what the function allows */
    rokStatusBadRange = -7, /* a lower bound is greater than its upper bound */
    rokStatusNullPtr = -8, /* a required pointer is null */
    rokStatusNoMemory = -9, /* memory could not be allocated */
    rokStatusDivByZeroErr = -10, /* division by a zero constant */
    rokStatusOutOfRange = -11, /* an integer parameter is outside its range */
    rokStatusBadScaleRange = -13, /* the scale range is empty (vMax not above vMin) */
    rokStatusBadStep = -14, /* a row step is below 1 or shorter than the function requires */
    rokStatusBadFftOrder = -15, /* an FFT order is out of range */
    rokStatusBadFftFlag = -16, /* an FFT or DFT normalisation flag is not accepted */
    rokStatusBadContext = -17, /* a specification or state record is of another kind, or was freed */
    rokStatusBadThresholds = -18, /* an upper threshold is below the lower one */
    rokStatusMomentTooSmall = -20, /* a normalising moment is too small */
    rokStatusBadMirrorAxis = -21, /* the mirror axis is not 0, 1 or 2 */
    rokStatusBadInterpolation = -22, /* the interpolation code is not accepted */
    rokStatusBadResizeFactor = -23, /* a resize factor is not above 0 */
    rokStatusBadFirLength = -26, /* a filter has fewer than 1 tap */
    rokStatusBadFirPhase = -28, /* a filter phase is outside 0 .. factor-1 */
    rokStatusBadFirFactor = -29, /* an up- or down-sampling factor is below 1 */
    rokStatusBadMaskSize = -33, /* a mask size is below 1, or not odd where it must be */
    rokStatusBadAnchor = -34, /* the anchor lies outside the mask */
    rokStatusBadEps = -36, /* the tolerance is negative */
    rokStatusStepTooShort = -37, /* a step is shorter than one row of the ROI */
    rokStatusBadChannel = -47, /* a channel index outside the channels the state holds */
    rokStatusBadAlphaType = -50, /* the alpha composition type is outside 0..11 */
    rokStatusBadFilterDivisor = -51, /* the filter divisor is 0 */
    rokStatusBadChannelCount = -53, /* the channel count is not supported */
    rokStatusBadQuad = -56, /* the transform cannot be computed for this quadrangle */
    rokStatusBadRect = -57, /* a rectangle has a width or height below 1 */
    rokStatusBadCoeffs = -58, /* the transform coefficients are degenerate */
    rokStatusZeroMask = -59, /* every element of the mask is 0 */
    rokStatusBadChannelOrder = -60, /* a channel order entry is not below the channel count */
    rokStatusBadLutLevels = -106, /* a table has fewer than 2 levels */
    rokStatusBadHistLevels = -107, /* a histogram has fewer than 2 levels */
    rokStatusMisalignedStep = -108, /* a step is not a multiple of the sample size */
    rokStatusBadNoise = -125, /* the noise level is outside [0, 1) */
    rokStatusResizeTooSmall = -201, /* the resized image would be narrower than 2 pixels */
    rokStatusQualityIndexErr = -210, /* the quality index cannot be formed */
    rokStatusBadWeight = -211, /* the centre weight is below 1 */
    rokStatusBadDecimation = -212, /* the decimation factor is not accepted */
    rokStatusBadRoundMode = -213, /* the rounding mode is not 0, 1 or 2 */
    rokStatusBadBorder = -225, /* the border type is not accepted */
    rokStatusOddValue = -227, /* an offset that must be even is odd */
    rokStatusBadMode = -9999, /* the mode is not supported */
    rokStatusDivByZero = 6, /* warning: division by zero occurred; the affected results hold substitutes */
    rokStatusLnZeroArg = 7, /* warning: the logarithm of 0 occurred */
    rokStatusLnNegArg = 8, /* warning: the logarithm of a negative value occurred */
    rokStatusQuadNotParallelogram = 28, /* warning: the quadrangle is not a parallelogram; the affine transform fits three of its corners */
    rokStatusNoIntersection = 29, /* warning: the source region lies outside the image; nothing was done */
    rokStatusWrongIntersectQuad = 30, /* warning: the transformed quadrangle misses the destination; nothing was done */
    rokStatusEvenMedianWeight = 39, /* warning: an even centre weight was reduced by one */
    rokStatusSizeExceedsSpec = 48 /* warning: the destination exceeds the specified size; only the part inside was written */
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
    rokIdMoment64f = 33, rokIdMoment64s = 34, rokIdWtFwd = 46, rokIdWtInv = 47
};

/* ---- transform specifications ----
 * Records that the library builds (InitAlloc, or Init in the caller's
 * memory) and that the caller only passes on and releases with the matching
 * Free. Their first word is the record's identifier (rokIdFftC ...). */
typedef struct RokiFFTSpec_C_32fc RokiFFTSpec_C_32fc;
typedef struct RokiFFTSpec_R_32f RokiFFTSpec_R_32f;
typedef struct RokiFFTSpec_R_32s RokiFFTSpec_R_32s;
typedef struct RokiDFTSpec_C_32fc RokiDFTSpec_C_32fc;
typedef struct RokiDFTSpec_R_32f RokiDFTSpec_R_32f;
typedef struct RokiDFTSpec_R_32s RokiDFTSpec_R_32s;
typedef struct RokiDCTFwdSpec_32f RokiDCTFwdSpec_32f;
typedef struct RokiDCTInvSpec_32f RokiDCTInvSpec_32f;
typedef struct RokiWTFwdSpec_32f RokiWTFwdSpec_32f;
typedef struct RokiWTInvSpec_32f RokiWTInvSpec_32f;

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
