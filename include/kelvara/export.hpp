#pragma once

/// Marks what the shared library exports; everything else in it is hidden.
#define KELVARA_EXPORT __attribute__((visibility("default")))
#define KELVARA_HIDDEN __attribute__((visibility("hidden")))

/// Marks inline wrappers that take or return Eigen types. The exported functions beneath them take
/// plain arrays, because alignment and allocation in Eigen depend on the compiler's flags. Hidden,
/// the application's copy of a wrapper never replaces the library's own.
#define KELVARA_INLINE KELVARA_HIDDEN inline
