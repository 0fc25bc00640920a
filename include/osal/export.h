#pragma once

/// @file
/// Macros that mark the exported classes and operations.

/// Marks a class or function that the shared library exports.
#define OSAL_API __attribute__((visibility("default")))

/// Marks the definition of an operation that is inline for speed. One source of the library defines this macro as
/// nothing: so the library also exports the operation, for callers that do not compile this header, such as
/// bindings of other languages.
#ifndef OSAL_INLINE
#define OSAL_INLINE inline
#endif
