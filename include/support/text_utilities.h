// Small functions on text: copies into a caller's buffer and back, hexadecimal text, tokens, command lines.
//
//   KestStringToChar, KestStringToWideChar      into a buffer
//   KestStringFromChar, KestStringFromWideChar  out of one
//   KestHexToBytes, KestBytesToHex              hexadecimal text
//   KestTokenizer                               tokens between delimiters, or the items of a list
//   KestParseCommandLine                        a command line with double quotes
//   KestExtractFirstString                      the first word of a text, and what follows
//
// The two that convert to and from 16-bit units do so by the C runtime's current locale, as its formats %hs and %ls do.
// For the library's own conversion, which is free of that locale, use KestStringUtilities.
//
// Threads: the functions share nothing, and may be called by any thread on texts and results of its own; the C
// runtime's locale must not be changed meanwhile. They throw nothing but std::bad_alloc. A result may be the argument
// itself or hold it, as in `word = KestExtractFirstString(line, line)`.
#pragma once

#include <support/export.h>

#include <string>
#include <vector>

namespace KestSupport {

/// Copies the text and a terminator into `buf`, which has room for `size` characters, and returns `buf`. Null, and
/// nothing written, when `buf` is null or the text does not fit. A negative size counts as one beyond any text.
KEST_SUPPORT_EXPORT char* KestStringToChar(const std::string& s, char* buf, int size);

/// The same in 16-bit units, a character beyond the basic plane as a pair of surrogates. A text of as many characters
/// as the buffer has units does not fit, even when it would give fewer units. The text counts up to its first NUL.
///
/// Where the current locale cannot convert, the text in `buf` ends. In a locale of single bytes, a byte to which it
/// gives no character (in "C", every one from 0x80 on) becomes the unit of the same value instead.
KEST_SUPPORT_EXPORT unsigned short* KestStringToWideChar(const std::string& s, unsigned short* buf, int size);

/// The text up to its terminator. It must not be null.
KEST_SUPPORT_EXPORT std::string KestStringFromChar(const char* s);

/// The text up to its terminator, converted by the current locale and cut to as many bytes as it has units, if need be
/// within a character: in UTF-8, text that is not ASCII loses its end. Null gives an empty text.
///
/// The result ends in front of what the current locale cannot convert (a surrogate without its partner, always). In a
/// locale of single bytes, a unit up to 0xFF becomes the byte of the same value when that byte has no character.
KEST_SUPPORT_EXPORT std::string KestStringFromWideChar(const unsigned short* s);

/// Writes the byte of each pair of hexadecimal digits, in upper or lower case, to `out`, and returns their number: half
/// the text's length, which `out` must have room for. An odd last digit is left out.
///
/// Nothing is checked, and any character gives something: a character, as a signed value, from 'a' on counts as itself
/// less 'a' - 10, from 'A' on less 'A' - 10, and any other less '0'; the byte has the low eight bits of the first one's
/// value times 16, OR the second one's.
KEST_SUPPORT_EXPORT int KestHexToBytes(char* out, const std::string& hex);

/// Two digits for each of `n` bytes, in upper case. A count of 0 or less gives an empty text.
KEST_SUPPORT_EXPORT std::string KestBytesToHex(const char* data, int n);

/// Replaces `out` by the tokens between runs of the delimiters, as strtok finds them: no token is empty, and without a
/// delimiter the whole text is one. A NUL is written over the delimiter behind each token. Null gives no tokens. A
/// strtok of the caller's own is not disturbed.
KEST_SUPPORT_EXPORT void KestTokenizer(char* s, const std::string& delims, std::vector<std::string>& out);
/// The same for a text up to its first NUL, which stays as it is.
KEST_SUPPORT_EXPORT void KestTokenizer(const std::string& s, const std::string& delims, std::vector<std::string>& out);

/// Replaces `out` by the items of a list: texts that each end with a NUL, up to the first empty one, as the system has
/// them in environment blocks. Null gives no items.
KEST_SUPPORT_EXPORT void KestTokenizer(char* s, std::vector<std::string>& out);
/// The same for a list of one item: the text up to its first NUL, and no item when that is empty.
KEST_SUPPORT_EXPORT void KestTokenizer(const std::string& s, std::vector<std::string>& out);

/// Replaces `out` by the tokens between runs of spaces (tabs are no delimiters), up to the first NUL. Double quotes,
/// anywhere in a token, keep spaces, and are dropped; one that is never closed lasts to the end. No token is empty. An
/// empty command line leaves `out` as it was.
KEST_SUPPORT_EXPORT void KestParseCommandLine(const std::string& cmd, std::vector<std::string>& out);

/// The text in front of the first space or tab; `rest` gets what stands behind it. Without one, the whole text and an
/// empty rest.
///
/// A text that begins with a double quote gives what stands in front of the next one, and `rest` gets what stands
/// behind that, space and all. Without a next one, both are all that stands behind the quote.
KEST_SUPPORT_EXPORT std::string KestExtractFirstString(const std::string& s, std::string& rest);

}  // namespace KestSupport
