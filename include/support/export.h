// Visibility of the library's interface. The library is built with hidden visibility; what a program may use is marked
// KEST_SUPPORT_EXPORT. The public headers define only the macros of this file and of version_macros.h.
// A Windows program that links the static library defines KEST_SUPPORT_STATIC.
#pragma once

#if (defined(_MSVC_LANG) && _MSVC_LANG < 202002L) || (!defined(_MSVC_LANG) && __cplusplus < 201709L)
#error "The Kest Support Library needs C++20: compile with -std=c++20 or /std:c++20"
#endif

#if defined(_WIN32)
#if defined(KEST_SUPPORT_STATIC)
#define KEST_SUPPORT_EXPORT
#elif defined(KEST_SUPPORT_BUILD)
#define KEST_SUPPORT_EXPORT __declspec(dllexport)
#else
#define KEST_SUPPORT_EXPORT __declspec(dllimport)
#endif
#else
/// Marks what a program may use of the shared library.
#define KEST_SUPPORT_EXPORT __attribute__((visibility("default")))
#endif

// Mark a class template of which the library exports instantiations, and the declarations and definitions of these. By
// the rules of MSVC, the export belongs to the definition and the import to the declaration, and the template has none.
#if !defined(_MSVC_LANG)
#define KEST_SUPPORT_EXPORT_TEMPLATE KEST_SUPPORT_EXPORT  ///< marks a class template
#define KEST_SUPPORT_EXPORT_DECLARED KEST_SUPPORT_EXPORT  ///< marks the declaration of an instantiation
#define KEST_SUPPORT_EXPORT_DEFINED                       ///< marks the definition of an instantiation
#elif defined(KEST_SUPPORT_BUILD)
#define KEST_SUPPORT_EXPORT_TEMPLATE
#define KEST_SUPPORT_EXPORT_DECLARED
#define KEST_SUPPORT_EXPORT_DEFINED KEST_SUPPORT_EXPORT
#else
#define KEST_SUPPORT_EXPORT_TEMPLATE
#define KEST_SUPPORT_EXPORT_DECLARED KEST_SUPPORT_EXPORT
#define KEST_SUPPORT_EXPORT_DEFINED
#endif

// Marks a parameter, or the object of an operation, to which the result refers. A compiler that knows the attribute
// warns when the result outlives a temporary.
#if defined(__has_cpp_attribute)
#if __has_cpp_attribute(clang::lifetimebound)
#define KEST_SUPPORT_LIFETIMEBOUND [[clang::lifetimebound]]
#endif
#endif
#ifndef KEST_SUPPORT_LIFETIMEBOUND
#define KEST_SUPPORT_LIFETIMEBOUND
#endif
