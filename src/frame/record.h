// Specification and state records (FFT, DFT, DCT, wavelet, moments): plain
// structs whose first field is the signed 32-bit identifier of their kind.
// Every function that takes a record checks the identifier; Free clears it,
// so a record freed twice, or used after Free, answers rokStatusBadContext.
#pragma once

#include <cstdint>
#include <cstring>
#include <concepts>
#include <cstddef>
#include <type_traits>

#include "core/core.h"
#include "frame/generated/roki_types.h"

namespace rok {

template <class Rec>
concept Record = std::is_standard_layout_v<Rec> && std::same_as<decltype(Rec::id), std::int32_t>;

// Null: rokStatusNullPtr; another kind (or a freed record): rokStatusBadContext.
template <Record Rec>
RokStatus check_record(const Rec* rec, std::int32_t id) {
    if (!rec) return rokStatusNullPtr;
    return rec->id == id ? rokStatusOk : rokStatusBadContext;
}

// A zeroed record of sizeof(Rec) + extra bytes from the core allocator, with
// its identifier set; null when the allocation fails. The extra bytes follow
// the record (tables, engines) and are released with it.
template <Record Rec>
Rec* alloc_record(std::int32_t id, std::size_t extra = 0) {
    static_assert(offsetof(Rec, id) == 0, "the identifier is a record's first field");
    const std::size_t bytes = sizeof(Rec) + extra;
    if (bytes > 0x7fffffffu) return nullptr;
    void* mem = rokMalloc(int(bytes));
    if (!mem) return nullptr;
    std::memset(mem, 0, bytes);
    Rec* rec = static_cast<Rec*>(mem);
    rec->id = id;
    return rec;
}

// Clears the identifier and releases a record from alloc_record, after the
// same checks as every other user of the record.
template <Record Rec>
RokStatus free_record(Rec* rec, std::int32_t id) {
    if (RokStatus s = check_record(rec, id); s != rokStatusOk) return s;
    rec->id = 0;
    rokFree(rec);
    return rokStatusOk;
}

// A record built in `bytes` bytes of memory that the caller owns and
// releases: zeroed, identifier set. Null for a null block.
template <Record Rec>
Rec* place_record(void* mem, std::size_t bytes, std::int32_t id) {
    static_assert(offsetof(Rec, id) == 0, "the identifier is a record's first field");
    if (!mem || bytes < sizeof(Rec)) return nullptr;
    std::memset(mem, 0, bytes);
    Rec* rec = static_cast<Rec*>(mem);
    rec->id = id;
    return rec;
}

// Free of a record from place_record: clears the identifier and releases
// nothing, so a second Free (or any later use) answers rokStatusBadContext.
template <Record Rec>
RokStatus clear_record(Rec* rec, std::int32_t id) {
    if (RokStatus s = check_record(rec, id); s != rokStatusOk) return s;
    rec->id = 0;
    return rokStatusOk;
}

}  // namespace rok
