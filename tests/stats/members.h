// Tables of every type and layout of the statistics families. A test file
// defines its Members<T> record and ROK_MEMBERS(t, T, layout, channels,
// processed channels), then writes ROK_MEMBER_TABLES to get members<T>().
#pragma once

#include <vector>

#define ROK_LAYOUTS(t, T) \
    ROK_MEMBERS(t, T, C1, 1, 1), ROK_MEMBERS(t, T, C3, 3, 3), ROK_MEMBERS(t, T, C4, 4, 4), ROK_MEMBERS(t, T, AC4, 4, 3)

#define ROK_MEMBER_TABLES                                                                 \
    template <class T>                                                                    \
    std::vector<Members<T>> members();                                                    \
    template <>                                                                           \
    std::vector<Members<Rok8u>> members() { return {ROK_LAYOUTS(8u, Rok8u)}; }          \
    template <>                                                                           \
    std::vector<Members<Rok16s>> members() { return {ROK_LAYOUTS(16s, Rok16s)}; }       \
    template <>                                                                           \
    std::vector<Members<Rok16u>> members() { return {ROK_LAYOUTS(16u, Rok16u)}; }       \
    template <>                                                                           \
    std::vector<Members<Rok32f>> members() { return {ROK_LAYOUTS(32f, Rok32f)}; }
