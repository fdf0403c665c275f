// Copy, set, channel and reordering cases beside their OpenCV equivalents.
#include <opencv2/core.hpp>

#include <algorithm>
#include <memory>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::random_mat;
using rokbench::roi_of;
using rokbench::step_of;

struct Images {
    cv::Mat src, dst, ref, mask;
    std::vector<cv::Mat> planes, refPlanes;
};

std::shared_ptr<Images> images(int w, int h, int type, int dstType = -1) {
    auto m = std::make_shared<Images>();
    m->src = random_mat(w, h, type);
    m->dst = cv::Mat::zeros(h, w, dstType < 0 ? type : dstType);
    m->ref = m->dst.clone();
    return m;
}

std::size_t bytes_of(const cv::Mat& m) { return m.total() * m.elemSize(); }

// Whole-pixel copy beside copyTo.
template <class T>
Case copy_case(int w, int h, int type, RokStatus (*fn)(const T*, int, T*, int, RokiSize)) {
    auto m = images(w, h, type);
    Case c;
    c.rok = [m, fn] { fn(m->src.ptr<T>(), step_of(m->src), m->dst.ptr<T>(), step_of(m->dst), roi_of(m->src)); };
    c.cv = [m] { m->src.copyTo(m->ref); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

const bool copy8 = rokbench::add("Copy_8u_C1R", [](int w, int h) { return copy_case<Rok8u>(w, h, CV_8UC1, rokiCopy_8u_C1R); });
const bool copy8c3 = rokbench::add("Copy_8u_C3R", [](int w, int h) { return copy_case<Rok8u>(w, h, CV_8UC3, rokiCopy_8u_C3R); });
const bool copy32c4 = rokbench::add("Copy_32f_C4R", [](int w, int h) { return copy_case<Rok32f>(w, h, CV_32FC4, rokiCopy_32f_C4R); });

// Masked copy: a mask of random 0/1 bytes, so most 16-byte blocks are mixed.
template <class T>
Case masked_case(int w, int h, int type, RokStatus (*fn)(const T*, int, T*, int, RokiSize, const Rok8u*, int)) {
    auto m = images(w, h, type);
    m->mask = random_mat(w, h, CV_8UC1, 0, 2);
    Case c;
    c.rok = [m, fn] {
        fn(m->src.ptr<T>(), step_of(m->src), m->dst.ptr<T>(), step_of(m->dst), roi_of(m->src), m->mask.ptr<Rok8u>(), step_of(m->mask));
    };
    c.cv = [m] { m->src.copyTo(m->ref, m->mask); };
    c.bytes = 3 * bytes_of(m->src) + bytes_of(m->mask);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

const bool masked8 = rokbench::add("Copy_8u_C1MR", [](int w, int h) { return masked_case<Rok8u>(w, h, CV_8UC1, rokiCopy_8u_C1MR); });
const bool masked8c3 = rokbench::add("Copy_8u_C3MR", [](int w, int h) { return masked_case<Rok8u>(w, h, CV_8UC3, rokiCopy_8u_C3MR); });

const bool set8c3 = rokbench::add("Set_8u_C3R", [](int w, int h) {
    auto m = images(w, h, CV_8UC3);
    Case c;
    c.rok = [m] { const Rok8u v[3] = {10, 20, 30}; rokiSet_8u_C3R(v, m->dst.ptr<Rok8u>(), step_of(m->dst), roi_of(m->dst)); };
    c.cv = [m] { m->ref.setTo(cv::Scalar(10, 20, 30)); };
    c.bytes = 2 * bytes_of(m->dst);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

const bool set32mask = rokbench::add("Set_32f_C1MR", [](int w, int h) {
    auto m = images(w, h, CV_32FC1);
    m->mask = random_mat(w, h, CV_8UC1, 0, 2);
    Case c;
    c.rok = [m] { rokiSet_32f_C1MR(2.5f, m->dst.ptr<Rok32f>(), step_of(m->dst), roi_of(m->dst), m->mask.ptr<Rok8u>(), step_of(m->mask)); };
    c.cv = [m] { m->ref.setTo(cv::Scalar(2.5), m->mask); };
    c.bytes = 2 * bytes_of(m->dst) + bytes_of(m->mask);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

// Interleaved to planar beside cv::split, and back beside cv::merge.
template <class T, int C>
Case split_case(int w, int h, int type, RokStatus (*fn)(const T*, int, T* const*, int, RokiSize)) {
    auto m = images(w, h, type);
    for (int k = 0; k < C; ++k) {
        m->planes.push_back(cv::Mat::zeros(h, w, CV_MAKETYPE(CV_MAT_DEPTH(type), 1)));
        m->refPlanes.push_back(m->planes.back().clone());
    }
    Case c;
    c.rok = [m, fn] {
        T* p[C];
        for (int k = 0; k < C; ++k) p[k] = m->planes[k].ptr<T>();
        fn(m->src.ptr<T>(), step_of(m->src), p, step_of(m->planes[0]), roi_of(m->src));
    };
    c.cv = [m] { cv::split(m->src, m->refPlanes); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] {
        c.rok(); c.cv();
        for (int k = 0; k < C; ++k)
            if (!rokbench::equal_mats(m->planes[k], m->refPlanes[k])) return false;
        return true;
    };
    return c;
}

template <class T, int C>
Case merge_case(int w, int h, int type, RokStatus (*fn)(const T* const*, int, T*, int, RokiSize)) {
    const int planeType = CV_MAKETYPE(CV_MAT_DEPTH(type), 1);
    auto m = images(w, h, planeType, type);
    for (int k = 0; k < C; ++k) m->planes.push_back(random_mat(w, h, planeType));
    Case c;
    c.rok = [m, fn] {
        const T* p[C];
        for (int k = 0; k < C; ++k) p[k] = m->planes[k].ptr<T>();
        fn(p, step_of(m->planes[0]), m->dst.ptr<T>(), step_of(m->dst), roi_of(m->dst));
    };
    c.cv = [m] { cv::merge(m->planes, m->ref); };
    c.bytes = 2 * bytes_of(m->dst);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

const bool split8 = rokbench::add("Copy_8u_C3P3R", [](int w, int h) { return split_case<Rok8u, 3>(w, h, CV_8UC3, rokiCopy_8u_C3P3R); });
const bool merge8 = rokbench::add("Copy_8u_P3C3R", [](int w, int h) { return merge_case<Rok8u, 3>(w, h, CV_8UC3, rokiCopy_8u_P3C3R); });
const bool split16 = rokbench::add("Copy_16u_C3P3R", [](int w, int h) { return split_case<Rok16u, 3>(w, h, CV_16UC3, rokiCopy_16u_C3P3R); });
const bool merge16 = rokbench::add("Copy_16u_P3C3R", [](int w, int h) { return merge_case<Rok16u, 3>(w, h, CV_16UC3, rokiCopy_16u_P3C3R); });
const bool split16c4 = rokbench::add("Copy_16s_C4P4R", [](int w, int h) { return split_case<Rok16s, 4>(w, h, CV_16SC4, rokiCopy_16s_C4P4R); });
const bool merge32c4 = rokbench::add("Copy_32f_P4C4R", [](int w, int h) { return merge_case<Rok32f, 4>(w, h, CV_32FC4, rokiCopy_32f_P4C4R); });
const bool split32c4 = rokbench::add("Copy_32f_C4P4R", [](int w, int h) { return split_case<Rok32f, 4>(w, h, CV_32FC4, rokiCopy_32f_C4P4R); });

// Channel moves beside cv::mixChannels with the same pairs: `pairs` lists
// source and destination channel indices as mixChannels takes them.
template <class T>
Case mix_case(int w, int h, int srcType, int dstType, std::vector<int> pairs,
              RokStatus (*fn)(const T*, int, T*, int, RokiSize), int srcChannel = 0, int dstChannel = 0) {
    auto m = images(w, h, srcType, dstType);
    m->dst = random_mat(w, h, dstType);
    m->ref = m->dst.clone();
    Case c;
    c.rok = [m, fn, srcChannel, dstChannel] {
        fn(m->src.ptr<T>() + srcChannel, step_of(m->src), m->dst.ptr<T>() + dstChannel, step_of(m->dst), roi_of(m->src));
    };
    c.cv = [m, pairs] { cv::mixChannels(&m->src, 1, &m->ref, 1, pairs.data(), pairs.size() / 2); };
    c.bytes = bytes_of(m->src) + bytes_of(m->dst);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

const bool ac4c3 = rokbench::add("Copy_16u_AC4C3R", [](int w, int h) {
    return mix_case<Rok16u>(w, h, CV_16UC4, CV_16UC3, {0, 0, 1, 1, 2, 2}, rokiCopy_16u_AC4C3R);
});
const bool c3ac4 = rokbench::add("Copy_8u_C3AC4R", [](int w, int h) {
    return mix_case<Rok8u>(w, h, CV_8UC3, CV_8UC4, {0, 0, 1, 1, 2, 2}, rokiCopy_8u_C3AC4R);
});
const bool c3c1 = rokbench::add("Copy_16s_C3C1R", [](int w, int h) {
    return mix_case<Rok16s>(w, h, CV_16SC3, CV_16SC1, {1, 0}, rokiCopy_16s_C3C1R, 1, 0);
});
const bool c1c4 = rokbench::add("Copy_32f_C1C4R", [](int w, int h) {
    return mix_case<Rok32f>(w, h, CV_32FC1, CV_32FC4, {0, 2}, rokiCopy_32f_C1C4R, 0, 2);
});
const bool c3cr = rokbench::add("Copy_8u_C3CR", [](int w, int h) {
    return mix_case<Rok8u>(w, h, CV_8UC3, CV_8UC3, {1, 1}, rokiCopy_8u_C3CR, 1, 1);
});

// One plane to every channel beside cv::merge of the same plane.
const bool dup3 = rokbench::add("Dup_8u_C1C3R", [](int w, int h) {
    auto m = images(w, h, CV_8UC1, CV_8UC3);
    Case c;
    c.rok = [m] { rokiDup_8u_C1C3R(m->src.ptr<Rok8u>(), step_of(m->src), m->dst.ptr<Rok8u>(), step_of(m->dst), roi_of(m->src)); };
    c.cv = [m] { const cv::Mat planes[3] = {m->src, m->src, m->src}; cv::merge(planes, 3, m->ref); };
    c.bytes = bytes_of(m->src) + bytes_of(m->dst);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

const bool swap8 = rokbench::add("SwapChannels_8u_C3R", [](int w, int h) {
    auto m = images(w, h, CV_8UC3);
    Case c;
    c.rok = [m] {
        const int order[3] = {2, 1, 0};
        rokiSwapChannels_8u_C3R(m->src.ptr<Rok8u>(), step_of(m->src), m->dst.ptr<Rok8u>(), step_of(m->dst), roi_of(m->src), order);
    };
    c.cv = [m] { const int pairs[] = {0, 2, 1, 1, 2, 0}; cv::mixChannels(&m->src, 1, &m->ref, 1, pairs, 3); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

const bool swap16 = rokbench::add("SwapChannels_16u_C3R", [](int w, int h) {
    auto m = images(w, h, CV_16UC3);
    Case c;
    c.rok = [m] {
        const int order[3] = {2, 1, 0};
        rokiSwapChannels_16u_C3R(m->src.ptr<Rok16u>(), step_of(m->src), m->dst.ptr<Rok16u>(), step_of(m->dst), roi_of(m->src), order);
    };
    c.cv = [m] { const int pairs[] = {0, 2, 1, 1, 2, 0}; cv::mixChannels(&m->src, 1, &m->ref, 1, pairs, 3); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

const bool swapac4 = rokbench::add("SwapChannels_8u_AC4R", [](int w, int h) {
    auto m = images(w, h, CV_8UC4);
    m->dst = random_mat(w, h, CV_8UC4);
    m->ref = m->dst.clone();
    Case c;
    c.rok = [m] {
        const int order[3] = {2, 1, 0};
        rokiSwapChannels_8u_AC4R(m->src.ptr<Rok8u>(), step_of(m->src), m->dst.ptr<Rok8u>(), step_of(m->dst), roi_of(m->src), order);
    };
    c.cv = [m] { const int pairs[] = {0, 2, 1, 1, 2, 0}; cv::mixChannels(&m->src, 1, &m->ref, 1, pairs, 3); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
});

template <class T>
Case transpose_case(int w, int h, int type, RokStatus (*fn)(const T*, int, T*, int, RokiSize)) {
    auto m = std::make_shared<Images>();
    m->src = random_mat(w, h, type);
    m->dst = cv::Mat::zeros(w, h, type);
    m->ref = m->dst.clone();
    Case c;
    c.rok = [m, fn] { fn(m->src.ptr<T>(), step_of(m->src), m->dst.ptr<T>(), step_of(m->dst), roi_of(m->src)); };
    c.cv = [m] { cv::transpose(m->src, m->ref); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

// In place on the largest square of the frame; OpenCV turns a square
// matrix in place too. Each call leaves the image transposed, so the timed
// loop alternates between the two orientations on both sides.
template <class T>
Case transpose_inplace_case(int w, int h, int type, RokStatus (*fn)(T*, int, RokiSize)) {
    const int n = std::min(w, h);
    auto m = std::make_shared<Images>();
    m->dst = random_mat(n, n, type);
    m->ref = m->dst.clone();
    Case c;
    c.rok = [m, fn, n] { fn(m->dst.ptr<T>(), step_of(m->dst), {n, n}); };
    c.cv = [m] { cv::transpose(m->ref, m->ref); };
    c.bytes = 2 * bytes_of(m->dst);
    c.same = [m, c] {
        m->ref = m->dst.clone();
        c.rok();
        c.cv();
        return rokbench::equal_mats(m->dst, m->ref);
    };
    return c;
}

const bool tr8c4 = rokbench::add("Transpose_8u_C4R", [](int w, int h) { return transpose_case<Rok8u>(w, h, CV_8UC4, rokiTranspose_8u_C4R); });
const bool tr8c3 = rokbench::add("Transpose_8u_C3R", [](int w, int h) { return transpose_case<Rok8u>(w, h, CV_8UC3, rokiTranspose_8u_C3R); });
const bool tr32c3 = rokbench::add("Transpose_32f_C3R", [](int w, int h) { return transpose_case<Rok32f>(w, h, CV_32FC3, rokiTranspose_32f_C3R); });
const bool tr8 = rokbench::add("Transpose_8u_C1R", [](int w, int h) { return transpose_case<Rok8u>(w, h, CV_8UC1, rokiTranspose_8u_C1R); });
const bool tr32 = rokbench::add("Transpose_32f_C1R", [](int w, int h) { return transpose_case<Rok32f>(w, h, CV_32FC1, rokiTranspose_32f_C1R); });
const bool tr16 = rokbench::add("Transpose_16u_C1R", [](int w, int h) { return transpose_case<Rok16u>(w, h, CV_16UC1, rokiTranspose_16u_C1R); });
const bool tr8i = rokbench::add("Transpose_8u_C1IR", [](int w, int h) { return transpose_inplace_case<Rok8u>(w, h, CV_8UC1, rokiTranspose_8u_C1IR); });
const bool tr32c3i = rokbench::add("Transpose_32f_C3IR", [](int w, int h) { return transpose_inplace_case<Rok32f>(w, h, CV_32FC3, rokiTranspose_32f_C3IR); });

template <class T>
Case mirror_case(int w, int h, int type, int axis, RokStatus (*fn)(const T*, int, T*, int, RokiSize, int)) {
    auto m = images(w, h, type);
    Case c;
    c.rok = [m, fn, axis] { fn(m->src.ptr<T>(), step_of(m->src), m->dst.ptr<T>(), step_of(m->dst), roi_of(m->src), axis); };
    // OpenCV's flip codes: 0 about the x axis, 1 about the y axis, -1 both.
    const int code = axis == 0 ? 0 : axis == 1 ? 1 : -1;
    c.cv = [m, code] { cv::flip(m->src, m->ref, code); };
    c.bytes = 2 * bytes_of(m->src);
    c.same = [m, c] { c.rok(); c.cv(); return rokbench::equal_mats(m->dst, m->ref); };
    return c;
}

const bool mir0 = rokbench::add("Mirror_8u_C1R_axis0", [](int w, int h) { return mirror_case<Rok8u>(w, h, CV_8UC1, 0, rokiMirror_8u_C1R); });
const bool mir1 = rokbench::add("Mirror_8u_C1R_axis1", [](int w, int h) { return mirror_case<Rok8u>(w, h, CV_8UC1, 1, rokiMirror_8u_C1R); });
const bool mir3 = rokbench::add("Mirror_8u_C3R_axis1", [](int w, int h) { return mirror_case<Rok8u>(w, h, CV_8UC3, 1, rokiMirror_8u_C3R); });
const bool mir16c3 = rokbench::add("Mirror_16u_C3R_axis1", [](int w, int h) { return mirror_case<Rok16u>(w, h, CV_16UC3, 1, rokiMirror_16u_C3R); });
const bool mir32c3 = rokbench::add("Mirror_32f_C3R_axis2", [](int w, int h) { return mirror_case<Rok32f>(w, h, CV_32FC3, 2, rokiMirror_32f_C3R); });
const bool mir4 = rokbench::add("Mirror_8u_C4R_axis2", [](int w, int h) { return mirror_case<Rok8u>(w, h, CV_8UC4, 2, rokiMirror_8u_C4R); });

}  // namespace
