#pragma once

/// @file
/// Macros that mark the exported classes and operations.

/// Marks a class or function that the shared library exports. Everything else in the library is hidden.
#define OSAL_API __attribute__((visibility("default")))

/// Marks an operation of an exported class that is inline for speed. The library also exports a copy of the
/// operation, for callers that do not compile this header, such as bindings of other languages. The source with
/// the copies defines this macro before it includes this header.
#ifndef OSAL_INLINE
#define OSAL_INLINE inline
#endif
