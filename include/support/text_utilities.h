// Small functions on text: copies to and from a caller's buffer, hexadecimal text, tokens, command lines.
//
//   KestStringToChar, KestStringToWideChar      copy into a buffer
//   KestStringFromChar, KestStringFromWideChar  copy from a buffer
//   KestHexToBytes, KestBytesToHex              hexadecimal text
//   KestTokenizer                               tokens between delimiters, or the items of a list
//   KestParseCommandLine                        a command line with double quotes
//   KestExtractFirstString                      the first word of a text, and the rest
//
// The two conversions to and from 16-bit units use the C runtime's current locale, like its formats %hs and %ls. The
// conversions of KestStringUtilities do not depend on that locale.
//
// Threads: the functions share no state. Any thread may call them on texts and results of its own; no other thread may
// change the C runtime's locale during a call. They throw only std::bad_alloc. A result may be the argument itself or
// contain it, as in `word = KestExtractFirstString(line, line)`.
#pragma once

#include <support/export.h>

#include <cstddef>
#include <string>
#include <vector>

namespace KestSupport {

/// Copies the text and a terminator into `buf`, which has room for `size` characters, and returns `buf`. Returns null
/// and writes nothing if `buf` is null or the text does not fit. A negative size counts as larger than any text.
KEST_SUPPORT_EXPORT char* KestStringToChar(const std::string& s, char* buf, int size);

/// The same in 16-bit units; a character from U+10000 on becomes a pair of surrogates. `size` counts units and is
/// compared with the number of bytes: a text of as many bytes as the buffer has units does not fit, even if it needs
/// fewer units. Converts the text up to its first NUL.
///
/// The text in `buf` ends at the first character that the current locale cannot convert. In a locale of single bytes, a
/// byte without a character (in "C", every byte from 0x80 on) becomes the unit of the same value instead.
KEST_SUPPORT_EXPORT unsigned short* KestStringToWideChar(const std::string& s, unsigned short* buf, int size);

/// Returns the text up to its terminator. It must not be null.
KEST_SUPPORT_EXPORT std::string KestStringFromChar(const char* s);

/// Returns the text up to its terminator, converted by the current locale and cut to as many bytes as it has units,
/// even inside a character: in UTF-8, text that is not ASCII loses its end. Returns an empty text for null.
///
/// The result ends before the first character that the current locale cannot convert; a surrogate without its partner
/// is never converted. In a locale of single bytes, a unit up to 0xFF becomes the byte of the same value if that byte
/// has no character.
KEST_SUPPORT_EXPORT std::string KestStringFromWideChar(const unsigned short* s);

/// Writes a byte to `out` for each pair of hexadecimal digits, in upper or lower case. Returns the number of bytes:
/// half the length of the text. `out` has room for them. An odd last digit is ignored.
///
/// Does not check the digits. The value of a character c, as a signed number, is
///
///   c - ('a' - 10)  from 'a' on
///   c - ('A' - 10)  from 'A' on
///   c - '0'         below 'A'
///
/// A byte is the low eight bits of (first value * 16) | second value.
KEST_SUPPORT_EXPORT int KestHexToBytes(char* out, const std::string& hex);

/// Returns two upper-case digits for each of `n` bytes; an empty text for a count of 0 or less.
KEST_SUPPORT_EXPORT std::string KestBytesToHex(const char* data, int n);

/// Replaces `out` with the tokens between runs of the delimiters, like strtok: no token is empty, and without a
/// delimiter the whole text is one token. Writes a NUL over the delimiter after each token. Null has no tokens. Does
/// not change the state of strtok itself.
KEST_SUPPORT_EXPORT void KestTokenizer(char* s, const std::string& delims, std::vector<std::string>& out);
/// The same for a text up to its first NUL. Does not change the text.
KEST_SUPPORT_EXPORT void KestTokenizer(const std::string& s, const std::string& delims, std::vector<std::string>& out);
/// The same for a literal, which cannot be changed.
template <std::size_t N>
void KestTokenizer(const char (&s)[N], const std::string& delims, std::vector<std::string>& out) {
    KestTokenizer(std::string(s), delims, out);
}

/// Replaces `out` with the items of a list, as in an environment block: each item ends with a NUL, and an empty item
/// ends the list. Null has no items.
KEST_SUPPORT_EXPORT void KestTokenizer(char* s, std::vector<std::string>& out);
/// The same for a list of one item: the text up to its first NUL. If that is empty, there is no item.
KEST_SUPPORT_EXPORT void KestTokenizer(const std::string& s, std::vector<std::string>& out);
/// The same for a literal, which GCC would otherwise take for a list that continues after it.
template <std::size_t N>
void KestTokenizer(const char (&s)[N], std::vector<std::string>& out) {
    KestTokenizer(std::string(s), out);
}

/// Replaces `out` with the tokens between runs of spaces, up to the first NUL. Tabs are no delimiters. Spaces between
/// double quotes belong to the token; the quotes may be anywhere in it, and are removed. A quote without its partner
/// extends to the end. No token is empty. An empty command line does not change `out`. Example:
///
///   prog "x y" a"b c"d    the tokens: prog, x y, ab cd
KEST_SUPPORT_EXPORT void KestParseCommandLine(const std::string& cmd, std::vector<std::string>& out);

/// Returns the first word of a text, and sets `rest` to the text after it:
///
///   text         result   rest
///   a b c        "a"      "b c"     one space or tab is removed
///   a            "a"      ""
///   "x y" z      "x y"    " z"      the space after the closing quote stays
///   "x y         "x y"    "x y"     without a closing quote, both are the text after the opening one
KEST_SUPPORT_EXPORT std::string KestExtractFirstString(const std::string& s, std::string& rest);

}  // namespace KestSupport
