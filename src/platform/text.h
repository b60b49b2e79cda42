// Text: conversion between 16-bit units (UTF-16) and the two code pages in use, length-prefixed wide strings, and the
// locale of the user.
//
// Threads: any thread may call these functions while no thread changes the environment. Nothing blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KestSupport::platform {

/// The number of a code page, valid as long as the process.
using CodePage = unsigned;

inline constexpr CodePage kCodePageUtf8 = 65001;

/// Returns the ANSI code page: the character set of the present environment.
CodePage ansiCodePage();

/// Converts `length` bytes to 16-bit units and returns their number. A zero byte is a character like others, and no
/// terminator is added. Text that the code page does not define becomes U+FFFD in UTF-8 (one for each maximal part of a
/// broken sequence) and '?' in other code pages; the system's own code pages may have another character for it. If
/// `capacity` units do not hold the result, returns 0; the destination then holds an undefined part of the result and
/// never more than `capacity` units.
std::size_t widenText(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                      std::size_t capacity);

/// The opposite conversion. In UTF-8, a surrogate without its partner becomes U+FFFD. In other code pages, each unit
/// that the code page lacks becomes '?'.
std::size_t narrowText(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity);

/// Returns a length-prefixed wide string: a copy of `bytes` bytes (not initialised if `data` is null), followed by a
/// zero unit. Returns null if there is no memory. freeWideString frees it.
unsigned short* allocateWideString(const char* data, unsigned int bytes) noexcept;
/// Returns the length in bytes; 0 for null.
unsigned int wideStringBytes(const unsigned short* text) noexcept;
void freeWideString(unsigned short* text) noexcept;

/// Returns the system's names for one of the library's locale names ("german"), the preferred one first. Returns none
/// for another name, and none if the system has no other names than the library.
std::vector<std::string> localeNames(const std::string& name);

/// Returns the id of the user's locale, or 0. The low ten bits are the language, the others the region, numbered as on
/// the platform that the library's interface was made for. Only languages that no ANSI code page covers must have an
/// id.
std::uint32_t userLocaleId();

}  // namespace KestSupport::platform
