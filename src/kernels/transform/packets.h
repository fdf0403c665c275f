// Moving image samples into the engines' packets and back (see
// fft_engine.h: a real packet is sample n of eight sequences, a complex
// packet eight real parts then eight imaginary parts). Lanes that no
// sequence fills are set to 0 on gathering and ignored on scattering.
#pragma once

#include <cstddef>

namespace rok::kernels::fft {

// Rows: lane r is row r (rows at base + r * step bytes, r < rows <= 8);
// packet n takes sample n * stride of each row, n < count. With stride 1 a
// row of 2w interleaved complex samples gathers into w complex packets.
void gather_rows(const float* base, int step, int rows, int count, int stride, float* packets);
void scatter_rows(const float* packets, float* base, int step, int rows, int count, int stride);

// Columns: lane l is the sample at float offset offsets[l] of every row
// (-1: unused lane); packet y (y < count) comes from row y, at
// packets + y * packetFloats + laneBase. A complex column takes two calls,
// real parts at laneBase 0 and imaginary parts at laneBase 8 of 16-float
// packets.
void gather_columns(const float* base, int step, int count, const int* offsets, float* packets, int packetFloats,
                    int laneBase);
void scatter_columns(const float* packets, int packetFloats, int laneBase, float* base, int step, int count,
                     const int* offsets);

// Eight complex columns stored as interleaved (re, im) pairs at float
// offsets first .. first + 15 of every row, gathered into complex packets
// (lanes in the order 0 1 4 5 2 3 6 7, which scatter_pairs undoes).
void gather_pairs(const float* base, int step, int count, int first, float* packets, int blocks = 1);
void scatter_pairs(const float* packets, float* base, int step, int count, int first, int blocks = 1);

}  // namespace rok::kernels::fft
