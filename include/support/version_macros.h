// The version of these headers, for the preprocessor.
//
//   #if KEST_SUPPORT_VERSION >= 10200  // 1.2.0 or later
//
// The build reads the numbers from here, so the package and the library's file name have the same ones.
#pragma once

/// Grows when a program must change or be built again.
#define KEST_SUPPORT_VERSION_MAJOR 1
/// Grows with additions.
#define KEST_SUPPORT_VERSION_MINOR 0
/// Grows with corrections.
#define KEST_SUPPORT_VERSION_PATCH 0

/// One number that grows with each version: 10000 * major + 100 * minor + patch.
#define KEST_SUPPORT_VERSION \
    (KEST_SUPPORT_VERSION_MAJOR * 10000 + KEST_SUPPORT_VERSION_MINOR * 100 + KEST_SUPPORT_VERSION_PATCH)
