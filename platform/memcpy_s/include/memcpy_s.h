#pragma once

#include <cstddef>
#include <cstdint>

// Bounded copy with the runtime constraints of C11 Annex K and no constraint handler to call.

#ifndef RSIZE_MAX
#define RSIZE_MAX (SIZE_MAX / 2)
#endif

// Copies `count` bytes and returns 0. Returns an error number if a pointer is null, a size is greater than
// RSIZE_MAX, `count` is greater than `destsz` or the bytes overlap; then all `destsz` bytes of `dest` are zeroed,
// unless `dest` is null or `destsz` is greater than RSIZE_MAX.
extern "C" int memcpy_s(void* dest, size_t destsz, const void* src, size_t count);
