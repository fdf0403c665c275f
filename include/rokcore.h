/* rokIP core services: aligned memory, thread count, cache size.
 * Valid C99 and C++. */
#ifndef ROKCORE_H
#define ROKCORE_H

#ifndef ROKI_TYPES_H
#include "roki.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Allocates len bytes aligned to 64 bytes; null for len < 1 or on failure.
 * The memory is not cleared. */
ROKI_API void* rokMalloc(int len);

/* Releases memory from rokMalloc; null is accepted and ignored. */
ROKI_API void rokFree(void* ptr);

/* Writes the size in bytes of the processor's largest cache to *pSize
 * (0 when the processor reports none). Null pSize: rokStatusNullPtr. */
ROKI_API RokStatus rokGetMaxCacheSizeB(int* pSize);

/* Sets the number of threads the library's parallel regions use from now on.
 * n < 1: rokStatusBadArg and the count is unchanged. The default is the
 * number of processors the OpenMP runtime reports. */
ROKI_API RokStatus rokSetNumThreads(int n);

/* Writes the current thread count to *pN. Null pN: rokStatusNullPtr. */
ROKI_API RokStatus rokGetNumThreads(int* pN);

/* The name and a one-line message of a status code, as one static string
 * "name: message", e.g. "rokStatusBadSize: a width or height below 1, ...".
 * A code the library does not know gives
 * "rokStatusUnknown: not a status code of this library"; never null. */
ROKI_API const char* rokGetStatusString(RokStatus status);

#ifdef __cplusplus
}
#endif

#endif /* ROKCORE_H */
