// Test images whose buffer touches a protected page, so that a kernel reading
// or writing one byte too far (or too early) faults at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace rokt {

enum class Guard { After, Before };

// A byte region of `bytes` bytes whose last byte abuts an inaccessible page
// (Guard::After) or whose first byte follows one (Guard::Before).
class GuardedBuffer {
public:
    GuardedBuffer(std::size_t bytes, Guard guard);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    std::uint8_t* data() { return data_; }
    const std::uint8_t* data() const { return data_; }
    std::size_t size() const { return bytes_; }

private:
    void* map_ = nullptr;
    std::size_t map_bytes_ = 0;
    std::uint8_t* data_ = nullptr;
    std::size_t bytes_ = 0;
};

// An interleaved image of width x height pixels of `channels` samples. The
// row step is the row's bytes plus padSamples samples (an odd pad gives an odd
// step); the last row holds exactly its samples, so the ROI's last byte is the
// buffer's last byte for Guard::After.
template <class T>
class GuardedImage {
public:
    GuardedImage(int width, int height, int channels, int padSamples = 0, Guard guard = Guard::After)
        : width_(width), height_(height), channels_(channels),
          step_(int((std::size_t(width) * channels + padSamples) * sizeof(T))),
          buf_(bytes_for(width, height, channels, padSamples), guard) {}

    T* data() { return reinterpret_cast<T*>(buf_.data()); }
    const T* data() const { return reinterpret_cast<const T*>(buf_.data()); }
    int step() const { return step_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int channels() const { return channels_; }

    T* row(int y) { return reinterpret_cast<T*>(buf_.data() + std::size_t(step_) * y); }
    const T* row(int y) const { return reinterpret_cast<const T*>(buf_.data() + std::size_t(step_) * y); }
    T& at(int x, int y, int c = 0) { return row(y)[std::size_t(x) * channels_ + c]; }
    const T& at(int x, int y, int c = 0) const { return row(y)[std::size_t(x) * channels_ + c]; }

    // The last row and a negative step: the same image walked bottom-up.
    T* bottom_up() { return row(height_ - 1); }

    // Every byte of the buffer, padding included.
    std::vector<std::uint8_t> bytes() const { return {buf_.data(), buf_.data() + buf_.size()}; }
    void fill_bytes(std::uint8_t value);

private:
    static std::size_t bytes_for(int w, int h, int c, int pad) {
        if (w < 1 || h < 1) return sizeof(T);
        return ((std::size_t(h) - 1) * (std::size_t(w) * c + pad) + std::size_t(w) * c) * sizeof(T);
    }
    int width_, height_, channels_, step_;
    GuardedBuffer buf_;
};

template <class T>
void GuardedImage<T>::fill_bytes(std::uint8_t value) {
    std::uint8_t* p = buf_.data();
    for (std::size_t i = 0; i < buf_.size(); ++i) p[i] = value;
}

}  // namespace rokt
