#pragma once

/// @file
/// Shared-memory regions: anonymous memory files, which processes map with mmap() and pass on as descriptors.
///
/// The caller owns the descriptor of a region and closes it. The descriptor stays open across exec() and is never
/// 0. All functions may be called from any thread. Every failure logs an error, unless a function says otherwise,
/// and returns -1 or false.

#include "osal/export.h"

#include <string>

namespace osal {

/// Creates a region of `size` bytes, all zero, that allows seals. Returns its descriptor, 1 or more. Returns -1
/// and leaves no descriptor open for an empty name, for a name of 250 bytes or more, for a size of 0, and if the
/// system refuses.
OSAL_API int MemfdCreateRegion(std::string name, unsigned long size);

/// Write-protects a region permanently, in every process that has it. `prot` has the bits of mmap(): PROT_READ,
/// PROT_WRITE, PROT_EXEC. For a valid region and a positive `prot` with PROT_WRITE, the function changes nothing,
/// logs a debug line and returns 0.
///
/// **A write-protected region can still be resized, and existing writable mappings stay writable.** Unmap these
/// mappings before this call, and add the seals F_SEAL_SHRINK and F_SEAL_GROW after it.
///
/// Returns 0 on success. Returns -1 for a `prot` of 0 or less (logs nothing), for an invalid descriptor, and if
/// the kernel refuses the seal. A refusal with EINVAL means that the kernel does not support the seal, and logs a
/// second error.
OSAL_API int MemfdSetProtRegion(int fd, int prot);

/// Returns true if `fd` is 1 or more and its file supports seals. This includes files of tmpfs, and memory files
/// that were created without permission to add seals. Otherwise logs an error and returns false.
OSAL_API bool MemfdIsValid(int fd);

/// Returns the size of a region in bytes. Also returns -1 for a region of 2 GiB or more, whose size does not fit
/// into an int.
OSAL_API int MemfdGetRegionSize(int fd);

}  // namespace osal
