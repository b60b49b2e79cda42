// Text of the platform: conversion between 16-bit units (UTF-16) and the two code pages in use, length-prefixed wide
// strings, and the user's locale.
//
// Threads: any thread may call anything here; nothing blocks. The environment must not be changed meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestSupport::platform {

/// The number of a code page, as the back end counts them; it stays valid as long as the process.
using CodePage = unsigned;

inline constexpr CodePage codePageUtf8 = 65001;

/// The ANSI code page: the character set of the user's environment as it is now.
CodePage ansiCodePage();

/// Converts `length` bytes to 16-bit units and returns their number. Zero bytes are converted like others, nothing is
/// terminated. What the code page does not know becomes U+FFFD in UTF-8 (one for each maximal part of a broken
/// sequence), '?' elsewhere. When `capacity` units do not hold the result, it is 0, and the destination has an
/// undefined part of it, never more.
std::size_t widenText(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                      std::size_t capacity);

/// The mirror. A surrogate without its partner becomes U+FFFD in UTF-8; elsewhere each unit of what the code page lacks
/// becomes '?'.
std::size_t narrowText(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity);

/// A length-prefixed wide string: a copy of `bytes` bytes (not initialised when `data` is null) with a zero unit behind
/// them; null when there is no memory. Freed with freeWideString.
unsigned short* allocateWideString(const char* data, unsigned int bytes) noexcept;
/// Its length in bytes; 0 for null.
unsigned int wideStringBytes(const unsigned short* text) noexcept;
void freeWideString(unsigned short* text) noexcept;

/// The platform's own names for one of the library's locale names ("german"), the preferred one first; none for others.
std::vector<std::string> localeNames(const std::string& name);

/// The id of the user's locale, as language (low ten bits) and region are counted on the library's first platform; 0
/// for one that the back end has no id for. It need only know those of languages that no ANSI code page covers.
std::uint32_t userLocaleId();

}  // namespace KestSupport::platform
