// The copy engine: moves a ROI of rows of rowBytes bytes, choosing between
// one merged run, short-row moves, ordinary stores and streaming stores.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::copy {

// Samples are moved by width only, so 16s/16u and 32s/32f share code.
template <class T>
using Raw = std::conditional_t<sizeof(T) == 1, std::uint8_t,
                               std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;

template <class T>
const Raw<T>* raw(const T* p) { return reinterpret_cast<const Raw<T>*>(p); }
template <class T>
Raw<T>* raw(T* p) { return reinterpret_cast<Raw<T>*>(p); }
template <class T>
const std::uint8_t* bytes(const T* p) { return reinterpret_cast<const std::uint8_t*>(p); }
template <class T>
std::uint8_t* bytes(T* p) { return reinterpret_cast<std::uint8_t*>(p); }

// Bytes of one pixel of T in layout L.
template <class T, Layout L>
constexpr int kPixelBytes = channels(L) * int(sizeof(T));

// Totals below this many bytes never consult the cache size.
constexpr std::size_t kCacheQueryBytes = 1048576;

// Store kinds that a caller can force (CopyManaged's flags).
enum class Stores { Automatic, Ordinary, Aligned64, Streaming };

// Whether `total` bytes are too many for the cache: 1 MiB or more and at
// least half the processor's largest cache (never when that size is
// unknown). The copy engine asks it of the bytes it copies.
bool exceeds_cache(std::size_t total);

// The rows a per-row kernel runs over, and whether its stores should stream.
// Rows laid end to end in both images (each step equal to its row's bytes,
// the pixel count within a signed 32-bit count) make one long row. Planar
// images pass the bytes of one plane's pixel and the step the planes share.
// The stores stream when the bytes the call reads and writes, movedPerPixel
// for each pixel, exceed the cache as above: then source and destination
// together cannot stay in the cache, and writing the destination past it
// saves reading its lines first.
struct RowRun {
    int width, height;
    bool stream;
};
RowRun row_run(RokiSize roi, std::size_t srcPixelBytes, int srcStep, std::size_t dstPixelBytes, int dstStep,
               std::size_t movedPerPixel);

// Whether writing `written` bytes outgrows the core's own (level-2) cache.
// The planar merge streams from there: a destination that cannot stay in
// the core's cache goes out to the shared cache or memory anyway, and
// ordinary stores would first read every line of it. When the level-2 size
// is unknown, the copy engine's rule (exceeds_cache) on the `moved` bytes
// read and written decides.
bool outgrows_core_cache(std::size_t written, std::size_t moved);

// Copies height rows of rowBytes bytes. Rows laid end to end in both images
// (both steps equal to rowBytes, the total within a signed 32-bit count) are
// copied as one run. With Stores::Automatic, totals of 1 MiB and more that
// reach half the processor's largest cache are copied with streaming stores,
// which keep a copy that cannot stay in the cache from evicting everything
// else; an unknown cache size means ordinary stores.
void copy_plane(const void* src, int srcStep, void* dst, int dstStep, std::size_t rowBytes, int height,
                Stores stores = Stores::Automatic);

// Copies source row y to destination row height-1-y, rows of rowBytes; the
// stores stream when |srcStep| x height exceeds 2 MiB.
void copy_plane_flipped(const void* src, int srcStep, void* dst, int dstStep, std::size_t rowBytes, int height);

}  // namespace rok::copy
