/* rokIP demo: prints the version record, allocates images, runs the library's
 * functions on a generated image and prints a timing line for each step. */
#include <stdio.h>
#include <time.h>

#include "rokcore.h"
#include "roki.h"

enum { kWidth = 1920, kHeight = 1080 };

static double seconds_now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
}

/* A diagonal ramp with a bright square: something with edges and gradients. */
static void make_test_image(Rok8u* img, int step) {
    int x, y;
    for (y = 0; y < kHeight; ++y) {
        Rok8u* row = img + (long)y * step;
        for (x = 0; x < kWidth; ++x) {
            int v = (x + y) * 255 / (kWidth + kHeight);
            if (x > kWidth / 3 && x < 2 * kWidth / 3 && y > kHeight / 3 && y < 2 * kHeight / 3) v = 240;
            row[x] = (Rok8u)v;
        }
    }
}

static unsigned long checksum(const Rok8u* img, int step) {
    unsigned long sum = 0;
    int x, y;
    for (y = 0; y < kHeight; ++y)
        for (x = 0; x < kWidth; ++x) sum = sum * 31u + img[(long)y * step + x];
    return sum;
}

int main(void) {
    const RokLibraryVersion* v = rokiGetLibVersion();
    int step = 0, threads = 0, cache = 0;
    Rok8u* src;
    double t0, t1;

    printf("%s %s, built %s (version %d.%d.%d.%d, target %s)\n", v->Name, v->Version, v->BuildDate, v->major,
           v->minor, v->majorBuild, v->build, v->targetCpu);
    rokGetNumThreads(&threads);
    rokGetMaxCacheSizeB(&cache);
    printf("threads: %d, largest cache: %d KiB\n", threads, cache / 1024);

    t0 = seconds_now();
    src = rokiMalloc_8u_C1(kWidth, kHeight, &step);
    if (!src) {
        fprintf(stderr, "allocation failed\n");
        return 1;
    }
    make_test_image(src, step);
    t1 = seconds_now();
    printf("allocate + generate %dx%d 8u C1 (step %d): %.3f ms, checksum %lx\n", kWidth, kHeight, step,
           1e3 * (t1 - t0), checksum(src, step));

    rokiFree(src);
    return 0;
}
