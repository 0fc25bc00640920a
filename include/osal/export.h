#pragma once

/// @file
/// Marks of the operations that the library exports.

/// Marks a class or function that the shared library exports. Everything else in the library is hidden.
#define OSAL_API __attribute__((visibility("default")))

/// Marks an operation of an exported class that is inline for speed. The library exports a copy of it too, for
/// callers that do not compile this header, such as bindings of other languages: one source of the library defines
/// this macro itself.
#ifndef OSAL_INLINE
#define OSAL_INLINE inline
#endif
