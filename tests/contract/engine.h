// Builds one call of an export from its argument roles: draws the scalars,
// lays every image, plane, array, result and scratch buffer against a
// protected page, fills the inputs, and can take a picture of every byte
// the call could touch.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "contract.h"
#include "guarded.h"

namespace rokc {

struct Plan {
    Plan(RokiSize r, bool pad, rokt::Guard g, std::uint32_t s) : roi(r), padded(pad), guard(g), seed(s) {}

    RokiSize roi;         // the size the roi arguments take
    // Image steps padded by an odd number of bytes (of samples for samples
    // wider than a byte, whose rows must stay aligned for their type).
    bool padded = false;
    rokt::Guard guard = rokt::Guard::After;
    std::uint32_t seed = 1;
    std::size_t most_bytes = std::size_t(64) << 20;  // a larger buffer rules the layout out
    long long most_pixels = 1LL << 26;                // and so does a larger image (steps of 0 make them cheap)
    // The fuzzer's hooks: may replace a scalar just drawn (before any buffer
    // is laid out from it), and choose an image's step given its row bytes
    // and its samples' alignment (the buffer then holds every row at that
    // step).
    std::function<void(int arg, Call& call)> tweak_scalar;
    std::function<long long(long long rowBytes, int align)> choose_step;
};

// A pointer argument the null probe can clear: an argument, or one plane
// pointer inside a plane array.
struct PointerSite {
    int arg;
    int plane;  // -1: the argument itself
};

class Trial {
public:
    Trial(const Export& e, const Plan& plan);
    ~Trial();
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    // Empty when the drawn values could be laid out; else why not.
    const std::string& problem() const { return problem_; }
    // Calls the export; releases a record a successful call made (and puts
    // the canary back where it wrote the record's address).
    int invoke();

    // Every byte of every buffer; without_scratch leaves out the scratch
    // buffer, whose contents after a call are the function's own business.
    std::vector<std::uint8_t> snapshot(bool without_scratch = false) const;
    void restore(const std::vector<std::uint8_t>& bytes);

    std::vector<PointerSite> pointer_sites() const;
    void clear(const PointerSite& site);

    // Size-like arguments, and setting one of their parts (0 width, 1
    // height; an int has only part 0) to a value.
    std::vector<int> size_args() const;
    void set_size_part(int arg, int part, int value);

    Call& call() { return call_; }

private:
    std::uint8_t* buffer(std::size_t bytes);
    void draw_scalars(const Plan& plan);
    void lay_image(int i, const Arg& a, const Plan& plan);
    void lay_planes(int i, const Arg& a, const Plan& plan);
    void lay_array(int i, const Arg& a);
    long long step_for(const Plan& plan, long long row, int align);
    void fill_random(std::uint8_t* p, std::size_t n);

    const Export& e_;
    Call call_;
    std::vector<std::unique_ptr<rokt::GuardedBuffer>> buffers_;
    const rokt::GuardedBuffer* scratch_ = nullptr;
    rokt::Guard guard_;
    std::size_t most_bytes_;
    long long most_pixels_;
    std::string problem_;
    std::vector<std::uint8_t*> plane_arrays_;  // per argument: its pointer array, if a plane array
    struct Made {
        int arg;
        void* record;
        bool released;
    };
    std::vector<Made> records_;  // records the suite made, to release at the end
};

}  // namespace rokc
