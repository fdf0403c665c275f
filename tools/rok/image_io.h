// Image files for the rok tool: PNG (libpng), JPEG (libjpeg-turbo) and the
// netpbm family (PGM, PPM, PFM) read and written by hand. An image is packed
// rows of interleaved samples in the host's byte order.
#pragma once
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace rok {

enum class Depth { u8, u16, f32 };

inline int depth_bytes(Depth d) { return d == Depth::u8 ? 1 : d == Depth::u16 ? 2 : 4; }
inline const char* depth_name(Depth d) { return d == Depth::u8 ? "8u" : d == Depth::u16 ? "16u" : "32f"; }

struct Image {
    int width = 0, height = 0, channels = 0;
    Depth depth = Depth::u8;
    std::vector<std::uint8_t> data;  // 64-byte aligned rows are not needed: the library takes any step

    int step() const { return width * channels * depth_bytes(depth); }
    std::uint8_t* row(int y) { return data.data() + static_cast<std::size_t>(y) * step(); }
    const std::uint8_t* row(int y) const { return data.data() + static_cast<std::size_t>(y) * step(); }
    void allocate(int w, int h, int c, Depth d) {
        width = w; height = h; channels = c; depth = d;
        data.assign(static_cast<std::size_t>(w) * h * c * depth_bytes(d), 0);
    }
};

// A problem with a file or an argument: the message is shown as it stands.
struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Image read_image(const std::string& path);
// Writes to a temporary file beside the target and renames it into place, so
// that a failed write never leaves a partial file under the target's name.
void write_image(const Image& img, const std::string& path, int jpeg_quality = 92);
// The format a path names by its extension ("png", "jpg", "pgm", "ppm", "pfm"), or "" for none.
std::string format_of(const std::string& path);

}  // namespace rok
