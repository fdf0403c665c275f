// Look-up tables beside cv::LUT. The rokIP table is given as 257 levels
// (one interval per value) whose values are a random byte table, so both
// sides apply the same 256 entries; `bytes` counts the image read and the
// image written.
#include <opencv2/core.hpp>

#include <array>
#include <memory>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::roi_of;
using rokbench::step_of;

struct Table {
    std::vector<Rok32s> levels, values;
    cv::Mat lut;  // 1 x 256, the same entries
};

Table random_table(unsigned seed) {
    Table t;
    t.lut = cv::Mat(1, 256, CV_8UC1);
    cv::RNG rng(seed);
    for (int v = 0; v <= 256; ++v) t.levels.push_back(v);
    for (int v = 0; v < 256; ++v) {
        t.values.push_back(int(rng.uniform(0, 256)));
        t.lut.at<Rok8u>(0, v) = Rok8u(t.values.back());
    }
    t.values.push_back(0);
    return t;
}

Case lut_case(int w, int h, int channels, bool sameTables) {
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, CV_8UC(channels)));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_8UC(channels));
    auto theirs = std::make_shared<cv::Mat>(h, w, CV_8UC(channels));
    auto tables = std::make_shared<std::array<Table, 3>>();
    for (int c = 0; c < 3; ++c) (*tables)[std::size_t(c)] = random_table(sameTables ? 7u : 7u + unsigned(c));
    auto lut = std::make_shared<cv::Mat>();
    if (channels == 1 || sameTables) {
        *lut = (*tables)[0].lut;
    } else {
        std::vector<cv::Mat> planes = {(*tables)[0].lut, (*tables)[1].lut, (*tables)[2].lut};
        cv::merge(planes, *lut);
    }
    Case c;
    c.rok = [=] {
        const Table& t = (*tables)[0];
        if (channels == 1) {
            rokiLUT_8u_C1R(src->ptr<Rok8u>(), step_of(*src), ours->ptr<Rok8u>(), step_of(*ours), roi_of(*src),
                           t.values.data(), t.levels.data(), 257);
        } else {
            const Rok32s* v[3] = {(*tables)[0].values.data(), (*tables)[1].values.data(), (*tables)[2].values.data()};
            const Rok32s* l[3] = {t.levels.data(), t.levels.data(), t.levels.data()};
            const int n[3] = {257, 257, 257};
            rokiLUT_8u_C3R(src->ptr<Rok8u>(), step_of(*src), ours->ptr<Rok8u>(), step_of(*ours), roi_of(*src), v, l,
                           n);
        }
    };
    c.cv = [=] { cv::LUT(*src, *lut, *theirs); };
    c.bytes = 2 * src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs);
    };
    return c;
}

const bool lut1 = rokbench::add("LUT_8u_C1R", [](int w, int h) { return lut_case(w, h, 1, true); });
const bool lut3 = rokbench::add("LUT_8u_C3R", [](int w, int h) { return lut_case(w, h, 3, true); });
const bool lut3x = rokbench::add("LUT_8u_C3R(3 tables)", [](int w, int h) { return lut_case(w, h, 3, false); });

}  // namespace
