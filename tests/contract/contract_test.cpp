// Every export keeps its contract, checked from the manifest alone: a null
// pointer in any position gives the family's first status and writes
// nothing; a size of 0 or -1 gives its stated status and writes nothing;
// calls on small random images whose every buffer ends at (and, in a second
// run, starts after) a protected page do not fault; and the results do not
// depend on the thread count. ROKC_FILTER=<text> limits the run to the
// exports whose name contains the text.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "contract.h"
#include "engine.h"
#include "rokcore.h"

namespace rokc {

namespace {

// The export under test, for the fault handler.
const char* volatile g_current = "";

[[maybe_unused]] void report_fault(int sig) {
    const char* name = g_current;
    (void)!write(2, "\ncontract: fault in ", 20);
    (void)!write(2, name, std::strlen(name));
    (void)!write(2, "\n", 1);
    signal(sig, SIG_DFL);
}

[[maybe_unused]] const bool handlers = [] {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    signal(SIGSEGV, report_fault);
    signal(SIGBUS, report_fault);
#endif
    return true;
}();

bool selected(const Export& e) {
    static const char* filter = std::getenv("ROKC_FILTER");
    return e.call && (!filter || std::strstr(e.name, filter));
}

bool acceptable(const Export& e, int status) {
    return status >= 0 || std::find(e.accept.begin(), e.accept.end(), status) != e.accept.end();
}

std::string describe(const Export& e, const Plan& p) {
    char buf[160];
    std::snprintf(buf, sizeof buf, "%s %dx%d %s step, buffers %s a protected page", e.name, p.roi.width,
                  p.roi.height, p.padded ? "padded" : "exact",
                  p.guard == rokt::Guard::After ? "ending at" : "starting after");
    return buf;
}

// Small sizes that reach every vector tail, and two drawn per export.
std::vector<RokiSize> small_sizes(std::uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<RokiSize> sizes = {{1, 1}, {67, 5}, {33, 2}};
    for (int k = 0; k < 2; ++k)
        sizes.push_back({std::uniform_int_distribution<int>(1, 67)(rng), std::uniform_int_distribution<int>(1, 5)(rng)});
    return sizes;
}

std::uint32_t seed_of(const char* name) {
    std::uint32_t h = 2166136261u;
    for (const char* c = name; *c; ++c) h = (h ^ std::uint8_t(*c)) * 16777619u;
    return h;
}

struct Counts {
    long exports = 0, calls = 0, skipped = 0;
};

void print_counts(const char* what, const Counts& c) {
    std::printf("%s: %ld exports, %ld calls, %ld layouts the drawn values ruled out\n", what, c.exports, c.calls,
                c.skipped);
}

TEST(Contract, EveryExportIsDescribed) {
    long driven = 0, others = 0;
    for (const Export* e : exports()) (e->call ? driven : others)++;
    std::printf("%ld exports driven by the suite, %ld not image functions (allocation, version)\n", driven, others);
    EXPECT_GT(driven, 1000);
}

TEST(Contract, CallsInGuardedBuffersDoNotFault) {
    Counts n;
    for (const Export* e : exports()) {
        if (!selected(*e)) continue;
        g_current = e->name;
        ++n.exports;
        const std::uint32_t seed = seed_of(e->name);
        for (RokiSize roi : small_sizes(seed)) {
            for (bool padded : {false, true}) {
                for (rokt::Guard guard : {rokt::Guard::After, rokt::Guard::Before}) {
                    const Plan plan{roi, padded, guard, seed + std::uint32_t(roi.width * 7 + roi.height)};
                    Trial s(*e, plan);
                    if (!s.problem().empty()) {
                        ++n.skipped;
                        continue;
                    }
                    const int status = s.invoke();
                    ++n.calls;
                    EXPECT_TRUE(acceptable(*e, status)) << describe(*e, plan) << ": status " << status;
                }
            }
        }
    }
    print_counts("valid calls", n);
}

TEST(Contract, NullPointersGiveTheFirstStatusAndWriteNothing) {
    Counts n;
    for (const Export* e : exports()) {
        if (!selected(*e)) continue;
        g_current = e->name;
        ++n.exports;
        const Plan plan{{13, 3}, true, rokt::Guard::After, seed_of(e->name)};
        const std::size_t sites = Trial(*e, plan).pointer_sites().size();
        for (std::size_t k = 0; k < sites; ++k) {
            Trial s(*e, plan);
            if (!s.problem().empty()) {
                ++n.skipped;
                continue;
            }
            const PointerSite site = s.pointer_sites()[k];
            s.clear(site);
            const auto before = s.snapshot();
            const int status = s.invoke();
            ++n.calls;
            char where[160];
            std::snprintf(where, sizeof where, "%s, %s[%d] null", e->name, e->args[site.arg].name, site.plane);
            EXPECT_EQ(status, e->nullStatus) << where;
            EXPECT_TRUE(s.snapshot() == before) << where << ": something was written";
        }
    }
    print_counts("null pointers", n);
}

TEST(Contract, SizesOfZeroAndMinusOneGiveTheirStatusAndWriteNothing) {
    Counts n;
    for (const Export* e : exports()) {
        if (!selected(*e)) continue;
        g_current = e->name;
        ++n.exports;
        const Plan plan{{13, 3}, false, rokt::Guard::After, seed_of(e->name) + 1};
        const std::vector<int> args = Trial(*e, plan).size_args();
        for (int arg : args) {
            const int parts = e->args[arg].kind == Kind::Int ? 1 : 2;
            for (int part = 0; part < parts; ++part) {
                for (int value : {0, -1}) {
                    Trial s(*e, plan);
                    if (!s.problem().empty()) {
                        ++n.skipped;
                        continue;
                    }
                    s.set_size_part(arg, part, value);
                    const auto before = s.snapshot();
                    const int status = s.invoke();
                    ++n.calls;
                    char where[160];
                    std::snprintf(where, sizeof where, "%s, %s%s = %d", e->name, e->args[arg].name,
                                  parts == 2 ? (part ? ".height" : ".width") : "", value);
                    EXPECT_EQ(status, e->args[arg].bad) << where;
                    EXPECT_TRUE(s.snapshot() == before) << where << ": something was written";
                }
            }
        }
    }
    print_counts("sizes of 0 and -1", n);
}

TEST(Contract, ResultsDoNotDependOnTheThreadCount) {
    int saved = 1;
    rokGetNumThreads(&saved);
    Counts n;
    for (const Export* e : exports()) {
        if (!selected(*e) || e->threadsW == 0) continue;
        g_current = e->name;
        ++n.exports;
        const Plan plan{{e->threadsW, e->threadsH}, false, rokt::Guard::After, seed_of(e->name) + 2};
        // Scratch sized for the most threads of the comparison.
        rokSetNumThreads(7);
        Trial s(*e, plan);
        if (!s.problem().empty()) {
            ++n.skipped;
            continue;
        }
        const auto inputs = s.snapshot();
        std::vector<std::uint8_t> first;
        int firstStatus = 0;
        for (int threads : {1, 2, 7}) {
            s.restore(inputs);
            rokSetNumThreads(threads);
            const int status = s.invoke();
            ++n.calls;
            if (threads == 1) {
                first = s.snapshot(true);
                firstStatus = status;
                EXPECT_TRUE(acceptable(*e, status)) << e->name << ": status " << status;
            } else {
                EXPECT_EQ(status, firstStatus) << e->name << " at " << threads << " threads";
                EXPECT_TRUE(s.snapshot(true) == first) << e->name << ": results differ at " << threads << " threads";
            }
        }
    }
    rokSetNumThreads(saved);
    print_counts("thread counts 1, 2 and 7", n);
}

}  // namespace

}  // namespace rokc
