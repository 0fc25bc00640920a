#pragma once

/// @file
/// The mark of what the library exports.

/// Marks what the shared library offers; everything else in it stays hidden.
#define OSAL_API __attribute__((visibility("default")))
