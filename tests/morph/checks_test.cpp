// The checks of each family in their stated order (the first failing one
// decides), and nothing written on any error.
#include <gtest/gtest.h>

#include <vector>

#include "guarded.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;

struct Expect {
    RokStatus want, got;
};

void expect_all(const std::vector<Expect>& rows) {
    for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(rows[i].got, rows[i].want) << "check " << i;
}

TEST(MorphChecks, Square3x3StepsBeforeSize) {
    GuardedImage<Rok8u> src(12, 6, 1);
    GuardedImage<Rok8u> dst(10, 4, 1);
    dst.fill_bytes(0x3C);
    src.fill_bytes(0x5A);
    const auto dstBefore = dst.bytes(), srcBefore = src.bytes();
    const Rok8u* s = src.data();
    Rok8u* d = dst.data();
    Rok8u* io = src.data();
    const RokiSize roi{10, 4};
    GuardedImage<Rok16u> src16(12, 3, 4);
    GuardedImage<Rok32f> src32(12, 3, 3);
    GuardedImage<Rok64f> src64(12, 3, 1);
    GuardedImage<Rok16u> dst16(10, 1, 4);
    GuardedImage<Rok32f> dst32(10, 1, 3);
    GuardedImage<Rok64f> dst64(10, 1, 1);
    dst16.fill_bytes(1), dst32.fill_bytes(2), dst64.fill_bytes(3);
    const auto d16 = dst16.bytes(), d32 = dst32.bytes(), d64 = dst64.bytes();
    expect_all({
        {rokStatusNullPtr, rokiDilate3x3_8u_C1R(nullptr, 0, d, 0, {0, 0})},
        {rokStatusNullPtr, rokiErode3x3_8u_C1R(s, 12, nullptr, 10, roi)},
        {rokStatusBadStep, rokiDilate3x3_8u_C1R(s, 0, d, 10, {0, 0})},
        {rokStatusBadStep, rokiDilate3x3_8u_C1R(s, 12, d, -10, {10, -1})},
        {rokStatusBadSize, rokiErode3x3_8u_C1R(s, 1, d, 1, {0, 4})},
        {rokStatusBadSize, rokiErode3x3_8u_C1R(s, 12, d, 10, {10, 0})},
        // Source step width + 1 (one short of width + 2), destination one short.
        {rokStatusStepTooShort, rokiErode3x3_8u_C1R(s, 11, d, 10, roi)},
        {rokStatusStepTooShort, rokiErode3x3_8u_C1R(s, 12, d, 9, roi)},
        {rokStatusStepTooShort, rokiDilate3x3_16u_AC4R(src16.data(), 8 * 10 + 15, dst16.data(), 80, {10, 1})},
        {rokStatusStepTooShort, rokiDilate3x3_32f_C3R(src32.data(), 12 * 10 + 23, dst32.data(), 120, {10, 1})},
        {rokStatusStepTooShort, rokiErode3x3_64f_C1R(src64.data(), 8 * 12 - 1, dst64.data(), 80, {10, 1})},
        {rokStatusStepTooShort, rokiErode3x3_64f_C1R(src64.data(), 96, dst64.data(), 79, {10, 1})},
        // Equal images and steps: the in-place form's checks.
        {rokStatusNullPtr, rokiDilate3x3_8u_C1R(nullptr, 5, nullptr, 5, roi)},
        {rokStatusBadStep, rokiDilate3x3_8u_C1R(io, 0, io, 0, {0, 0})},
        {rokStatusStepTooShort, rokiDilate3x3_8u_C1R(io, 11, io, 11, roi)},
        {rokStatusNullPtr, rokiDilate3x3_8u_C1IR(nullptr, 0, {0, 0})},
        {rokStatusBadStep, rokiErode3x3_8u_C1IR(io, 0, {0, 0})},
        {rokStatusBadSize, rokiErode3x3_8u_C1IR(io, 12, {10, 0})},
        {rokStatusStepTooShort, rokiErode3x3_8u_C1IR(io, 11, roi)},
        {rokStatusStepTooShort, rokiErode3x3_16u_C3IR(src16.data(), 6 * 12 - 1, {10, 1})},
    });
    EXPECT_EQ(dst.bytes(), dstBefore);
    EXPECT_EQ(src.bytes(), srcBefore);
    EXPECT_EQ(dst16.bytes(), d16);
    EXPECT_EQ(dst32.bytes(), d32);
    EXPECT_EQ(dst64.bytes(), d64);
    // The step tests pass at the exact sizes.
    EXPECT_EQ(rokiDilate3x3_16u_AC4R(src16.data(), 8 * 10 + 16, dst16.data(), 80, {10, 1}), rokStatusOk);
    EXPECT_EQ(rokiErode3x3_64f_C1R(src64.data(), 96, dst64.data(), 80, {10, 1}), rokStatusOk);
}

TEST(MorphChecks, MaskFormsZeroMaskBeforeAnchor) {
    GuardedImage<Rok8u> src(12, 6, 1);
    GuardedImage<Rok8u> dst(10, 4, 1);
    dst.fill_bytes(0x3C);
    src.fill_bytes(0x5A);
    const auto dstBefore = dst.bytes(), srcBefore = src.bytes();
    const Rok8u* s = src.data();
    Rok8u* d = dst.data();
    Rok8u* io = src.data();
    const RokiSize roi{10, 4}, ms{3, 3};
    const Rok8u mask[9] = {0, 0, 0, 0, 0, 0, 0, 0, 9};
    const Rok8u zeros[9] = {};
    const RokiPoint a{1, 1}, outside{3, 0};
    expect_all({
        {rokStatusNullPtr, rokiDilate_8u_C1R(s, 0, d, 0, {0, 0}, nullptr, {0, 0}, outside)},
        {rokStatusNullPtr, rokiErode_8u_C1R(nullptr, 12, d, 10, roi, mask, ms, a)},
        {rokStatusBadStep, rokiDilate_8u_C1R(s, 0, d, 10, {0, 0}, zeros, {0, 0}, outside)},
        {rokStatusBadStep, rokiDilate_8u_C1R(s, 12, d, -1, roi, mask, ms, a)},
        {rokStatusBadSize, rokiDilate_8u_C1R(s, 12, d, 10, {-1, 4}, zeros, {0, 0}, outside)},
        {rokStatusBadMaskSize, rokiDilate_8u_C1R(s, 12, d, 10, roi, zeros, {3, 0}, outside)},
        {rokStatusBadMaskSize, rokiDilate_8u_C1R(s, 12, d, 10, roi, zeros, {-2, 3}, a)},
        {rokStatusZeroMask, rokiErode_8u_C1R(s, 1, d, 1, roi, zeros, ms, outside)},
        {rokStatusBadAnchor, rokiErode_8u_C1R(s, 1, d, 1, roi, mask, ms, outside)},
        {rokStatusBadAnchor, rokiErode_8u_C1R(s, 12, d, 10, roi, mask, ms, {-1, 1})},
        {rokStatusBadAnchor, rokiErode_8u_C1R(s, 12, d, 10, roi, mask, ms, {1, 3})},
        {rokStatusStepTooShort, rokiErode_8u_C1R(s, 11, d, 10, roi, mask, ms, a)},
        {rokStatusStepTooShort, rokiErode_8u_C1R(s, 12, d, 9, roi, mask, ms, a)},
        {rokStatusStepTooShort, rokiDilate_8u_C1R(s, 13, d, 10, roi, mask + 4, {5, 1}, {0, 0})},
        // Equal images and steps: the in-place form, same order.
        {rokStatusNullPtr, rokiDilate_8u_C1R(io, 12, io, 12, roi, nullptr, ms, a)},
        {rokStatusZeroMask, rokiDilate_8u_C1R(io, 12, io, 12, roi, zeros, ms, outside)},
        {rokStatusStepTooShort, rokiDilate_8u_C1R(io, 11, io, 11, roi, mask, ms, a)},
        {rokStatusNullPtr, rokiDilate_8u_C1IR(nullptr, 0, {0, 0}, mask, {0, 0}, outside)},
        {rokStatusBadStep, rokiDilate_8u_C1IR(io, 0, {0, 0}, zeros, {0, 0}, outside)},
        {rokStatusBadSize, rokiDilate_8u_C1IR(io, 12, {0, 4}, zeros, {0, 0}, outside)},
        {rokStatusBadMaskSize, rokiErode_8u_C1IR(io, 12, roi, zeros, {1, 0}, outside)},
        {rokStatusZeroMask, rokiErode_8u_C1IR(io, 12, roi, zeros, ms, outside)},
        {rokStatusBadAnchor, rokiErode_8u_C1IR(io, 1, roi, mask, ms, outside)},
        {rokStatusStepTooShort, rokiErode_8u_C1IR(io, 11, roi, mask, ms, a)},
    });
    EXPECT_EQ(dst.bytes(), dstBefore);
    EXPECT_EQ(src.bytes(), srcBefore);
}

TEST(MorphChecks, FilterMinMaxSizeBeforeStep) {
    GuardedImage<Rok8u> src(12, 6, 1);
    GuardedImage<Rok8u> dst(10, 4, 1);
    dst.fill_bytes(0x3C);
    const auto before = dst.bytes();
    const Rok8u* s = src.data();
    Rok8u* d = dst.data();
    const RokiSize roi{10, 4}, ms{3, 3};
    const RokiPoint a{1, 1};
    GuardedImage<Rok32f> src32(12, 3, 4);
    GuardedImage<Rok32f> dst32(10, 1, 4);
    dst32.fill_bytes(7);
    const auto before32 = dst32.bytes();
    expect_all({
        {rokStatusNullPtr, rokiFilterMin_8u_C1R(nullptr, 0, d, 0, {0, 0}, {0, 0}, {-1, -1})},
        {rokStatusNullPtr, rokiFilterMax_8u_C1R(s, 12, nullptr, 10, roi, ms, a)},
        {rokStatusBadSize, rokiFilterMin_8u_C1R(s, 0, d, 0, {10, 0}, {0, 0}, {-1, -1})},
        {rokStatusBadStep, rokiFilterMin_8u_C1R(s, 0, d, 10, roi, {0, 0}, {-1, -1})},
        {rokStatusBadStep, rokiFilterMin_8u_C1R(s, 12, d, -10, roi, ms, a)},
        {rokStatusBadMaskSize, rokiFilterMax_8u_C1R(s, 1, d, 1, roi, {0, 3}, {-1, -1})},
        {rokStatusBadAnchor, rokiFilterMax_8u_C1R(s, 1, d, 1, roi, ms, {3, 1})},
        {rokStatusBadAnchor, rokiFilterMax_8u_C1R(s, 12, d, 10, roi, {1, 1}, {0, 1})},
        {rokStatusBadStep, rokiFilterMax_8u_C1R(s, 11, d, 10, roi, ms, a)},
        {rokStatusBadStep, rokiFilterMax_8u_C1R(s, 12, d, 9, roi, ms, a)},
        {rokStatusBadStep, rokiFilterMin_32f_AC4R(src32.data(), 16 * 12 - 1, dst32.data(), 160, {10, 1}, ms, a)},
        {rokStatusBadStep, rokiFilterMin_32f_AC4R(src32.data(), 16 * 12, dst32.data(), 159, {10, 1}, ms, a)},
    });
    EXPECT_EQ(dst.bytes(), before);
    EXPECT_EQ(dst32.bytes(), before32);
}

}  // namespace
