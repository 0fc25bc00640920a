#pragma once

/// @file
/// Shared-memory regions: descriptors of anonymous memory files, to be mapped with mmap() and passed to other
/// processes.
///
/// A region is the caller's, who closes it; it survives exec(). Descriptor 0 never counts as a region. Safe
/// from any thread. Failures give -1 or false, with an error line where nothing else is said.

#include "osal/export.h"

#include <string>

namespace osal {

/// Makes a region of `size` zero bytes that allows seals. Returns its descriptor, 1 or more. -1 for an empty
/// name, one of 250 bytes or more, a size of 0, and when the system refuses; no descriptor is left behind.
OSAL_API int MemfdCreateRegion(std::string name, unsigned long size);

/// Write-protects a region for good, in every process that holds it, unless `prot` (the bits of mmap()'s
/// PROT_READ, PROT_WRITE, PROT_EXEC) includes PROT_WRITE: then nothing changes, and a debug line says so.
///
/// A sealed region can still be resized, and writable mappings made before keep working: add the seals
/// F_SEAL_SHRINK and F_SEAL_GROW and unmap where that matters. Returns 0, or -1: without a line for `prot` of 0
/// and less, with one for an invalid descriptor, with one or two (EINVAL: the kernel does not know the seal)
/// for a seal that is refused.
OSAL_API int MemfdSetProtRegion(int fd, int prot);

/// True when `fd` is 1 or more and open on a file that supports seals: also one of tmpfs, or one that was made
/// without allowing them. False, with an error line, otherwise.
OSAL_API bool MemfdIsValid(int fd);

/// The region's size in bytes; -1 also for one of 2 GiB and more, whose size an int cannot hold.
OSAL_API int MemfdGetRegionSize(int fd);

}  // namespace osal
