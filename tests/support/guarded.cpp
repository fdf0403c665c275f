#include "guarded.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace rokt {

GuardedBuffer::GuardedBuffer(std::size_t bytes, Guard guard) : bytes_(bytes) {
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    const std::size_t data_pages = (bytes + page - 1) / page;
    map_bytes_ = (data_pages + 1) * page;
    map_ = mmap(nullptr, map_bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map_ == MAP_FAILED) throw std::bad_alloc();
    auto* base = static_cast<std::uint8_t*>(map_);
    if (guard == Guard::After) {
        mprotect(base + data_pages * page, page, PROT_NONE);
        data_ = base + data_pages * page - bytes;
    } else {
        mprotect(base, page, PROT_NONE);
        data_ = base + page;
    }
}

GuardedBuffer::~GuardedBuffer() { munmap(map_, map_bytes_); }

}  // namespace rokt
