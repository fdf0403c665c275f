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

    {   /* addition: the image added to itself, halved with round-half-to-even */
        int sstep = 0;
        Rok8u* sum = rokiMalloc_8u_C1(kWidth, kHeight, &sstep);
        RokiSize roi = {kWidth, kHeight};
        if (sum) {
            RokStatus st;
            t0 = seconds_now();
            st = rokiAdd_8u_C1RSfs(src, step, src, step, sum, sstep, roi, 1);
            t1 = seconds_now();
            printf("add (scale factor 1): %.3f ms (status %d), pixel 0: %u -> %u\n", 1e3 * (t1 - t0), (int)st,
                   (unsigned)src[0], (unsigned)sum[0]);
        }
        rokiFree(sum);
    }
    {   /* depth conversion: 8u -> 32f and back, rounding to nearest even */
        int fstep = 0, bstep = 0;
        RokiSize roi = {kWidth, kHeight};
        Rok32f* f = rokiMalloc_32f_C1(kWidth, kHeight, &fstep);
        Rok8u* back = rokiMalloc_8u_C1(kWidth, kHeight, &bstep);
        if (f && back) {
            RokStatus s1, s2;
            double c0 = seconds_now(), c1, c2;
            s1 = rokiConvert_8u32f_C1R(src, step, f, fstep, roi);
            c1 = seconds_now();
            s2 = rokiConvert_32f8u_C1R(f, fstep, back, bstep, roi, rokRoundNearestEven);
            c2 = seconds_now();
            printf("convert 8u->32f: %.3f ms (status %d), 32f->8u: %.3f ms (status %d), round trip %s\n",
                   1e3 * (c1 - c0), (int)s1, 1e3 * (c2 - c1), (int)s2,
                   checksum(back, bstep) == checksum(src, step) ? "exact" : "DIFFERS");
        }
        rokiFree(f);
        rokiFree(back);
    }
    {   /* mirror about both axes in place, twice: the image comes back */
        unsigned long before = checksum(src, step);
        RokiSize roi = {kWidth, kHeight};
        RokStatus st1, st2;
        t0 = seconds_now();
        st1 = rokiMirror_8u_C1IR(src, step, roi, rokFlipBoth);
        t1 = seconds_now();
        st2 = rokiMirror_8u_C1IR(src, step, roi, rokFlipBoth);
        printf("mirror both axes in place: %.3f ms (status %d); twice restores the image: %s (status %d)\n",
               1e3 * (t1 - t0), (int)st1, checksum(src, step) == before ? "yes" : "NO", (int)st2);
    }
    {   /* statistics: sum, mean, extremes and where the darkest pixel first occurs */
        RokiSize roi = {kWidth, kHeight};
        Rok64f sum = 0, mean = 0, l2 = 0;
        Rok8u lo = 0, hi = 0, darkest = 0;
        int x = 0, y = 0, inside = 0;
        RokStatus st;
        t0 = seconds_now();
        st = rokiSum_8u_C1R(src, step, roi, &sum);
        if (st == rokStatusOk) st = rokiMean_8u_C1R(src, step, roi, &mean);
        if (st == rokStatusOk) st = rokiNorm_L2_8u_C1R(src, step, roi, &l2);
        if (st == rokStatusOk) st = rokiMinMax_8u_C1R(src, step, roi, &lo, &hi);
        if (st == rokStatusOk) st = rokiMinIndx_8u_C1R(src, step, roi, &darkest, &x, &y);
        if (st == rokStatusOk) st = rokiCountInRange_8u_C1R(src, step, roi, &inside, 64, 191);
        t1 = seconds_now();
        printf("statistics: sum %.0f, mean %.3f, L2 norm %.1f, min %d at (%d, %d), max %d, %d pixels in 64..191: "
               "%.3f ms (status %d)\n",
               sum, mean, l2, (int)lo, x, y, (int)hi, inside, 1e3 * (t1 - t0), (int)st);
    }
    {   /* a replicated border of 2 pixels, then a 5x5 binomial smoothing */
        static const Rok32s k5[25] = {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6,
                                      4, 16, 24, 16, 4, 1, 4, 6, 4, 1};
        int bstep = 0, fstep = 0;
        Rok8u* bordered = rokiMalloc_8u_C1(kWidth + 4, kHeight + 4, &bstep);
        Rok8u* smooth = rokiMalloc_8u_C1(kWidth, kHeight, &fstep);
        RokiSize roi = {kWidth, kHeight}, big = {kWidth + 4, kHeight + 4}, ks = {5, 5};
        RokiPoint anchor = {2, 2};
        if (bordered && smooth) {
            RokStatus sb, sf;
            double tb, tf, te;
            tb = seconds_now();
            sb = rokiCopyReplicateBorder_8u_C1R(src, step, roi, bordered, bstep, big, 2, 2);
            tf = seconds_now();
            sf = rokiFilter_8u_C1R(bordered + 2L * bstep + 2, bstep, smooth, fstep, roi, k5, ks, anchor, 256);
            te = seconds_now();
            printf("replicate border 2: %.3f ms (status %d); 5x5 filter: %.3f ms (status %d), checksum %lx\n",
                   1e3 * (tf - tb), (int)sb, 1e3 * (te - tf), (int)sf, checksum(smooth, fstep));
        }
        rokiFree(bordered);
        rokiFree(smooth);
    }

    rokiFree(src);
    return 0;
}
