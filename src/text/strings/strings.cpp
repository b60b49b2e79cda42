#include "support/strings.h"

#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <typeinfo>
#include <vector>

#include "platform/common/ascii_words.h"
#include "platform/common/surrogates.h"
#include "platform/error.h"
#include "platform/text.h"
#include "support/exceptions.h"
#include "text/strings/wide_facet.h"

namespace KestSupport {
namespace {

// The most destination units that a facet fills for each unit of the source.
constexpr std::size_t kExpansion = 4;

std::size_t capacityFor(std::size_t length) {
    return kExpansion * length;
}

const char* widenRange(platform::CodePage codePage, const char* first, const char* last, unsigned short* dest) {
    const auto length = static_cast<std::size_t>(last - first);
    platform::widenText(codePage, first, length, dest, capacityFor(length));
    return last;
}

const unsigned short* narrowRange(platform::CodePage codePage, const unsigned short* first, const unsigned short* last,
                                  char* dest) {
    const auto length = static_cast<std::size_t>(last - first);
    platform::narrowText(codePage, first, length, dest, capacityFor(length));
    return last;
}

// A facet of a caller does not report how much it wrote. The first zero in the cleared buffer is the end.
template <typename String, typename Conversion>
String convertByFacet(std::size_t length, const Conversion& conversion) {
    std::vector<typename String::value_type> buffer(capacityFor(length) + kExpansion);
    conversion(buffer.data());
    return String(buffer.data());
}

// The facets of the library need no cleared buffer of four times the text: their conversions write a zero only for a
// zero, and report how much they write.
constexpr platform::CodePage kForeignFacet = 0;

// Returns the length of the leading part that is ASCII without zeros. The loop over a block has a fixed length and no
// exit, so that the compiler makes vector code of it. The rest is read by words.
template <typename Unit>
std::size_t plainLength(const Unit* text, std::size_t length) {
    constexpr std::size_t kBlock = 64;
    constexpr std::size_t kWord = platform::kUnitsPerWord<Unit>;
    std::size_t plain = 0;
    for (; length - plain >= kBlock; plain += kBlock) {
        Unit bits = 0;
        for (std::size_t i = 0; i < kBlock; ++i) {
            bits = static_cast<Unit>(bits | text[plain + i] | (text[plain + i] - 1));
        }
        if (bits >= 0x80) break;
    }
    while (length - plain >= kWord && platform::isPlainWord<Unit>(platform::loadWord(text + plain)))
        plain += kWord;
    while (plain < length && platform::isPlainWord<Unit>(platform::wordOf(text[plain])))
        ++plain;
    return plain;
}

std::size_t lengthToZero(const unsigned char* text, std::size_t length) {
    const void* zero = length == 0 ? nullptr : std::memchr(text, 0, length);
    return zero == nullptr ? length : static_cast<std::size_t>(static_cast<const unsigned char*>(zero) - text);
}

std::size_t lengthToZero(const unsigned short* text, std::size_t length) {
    constexpr std::size_t kBlock = 64;
    std::size_t good = 0;
    for (; length - good >= kBlock; good += kBlock) {
        unsigned short zeros = 0;
        for (std::size_t i = 0; i < kBlock; ++i)
            zeros = static_cast<unsigned short>(zeros | (text[good + i] == 0));
        if (zeros != 0) break;
    }
    while (good < length && text[good] != 0)
        ++good;
    return good;
}

// Returns the sum of the weights of all units. A weight is at most two, so a sum over a block fits in a unit, which
// suits vector code.
template <typename Unit, typename Weight>
std::size_t sumOf(const Unit* text, std::size_t length, const Weight& weight) {
    constexpr std::size_t kBlock = 64;
    std::size_t sum = 0;
    std::size_t i = 0;
    for (; length - i >= kBlock; i += kBlock) {
        Unit partial = 0;
        for (std::size_t k = 0; k < kBlock; ++k)
            partial = static_cast<Unit>(partial + weight(text[i + k]));
        sum += partial;
    }
    for (; i < length; ++i)
        sum += weight(text[i]);
    return sum;
}

// Returns the length of a correct UTF-8 text in UTF-16: two units for a character of four bytes, one for any other.
std::size_t expectedUnits(const unsigned char* text, std::size_t length) {
    return sumOf(text, length, [](unsigned char byte) {
        return static_cast<unsigned char>(((byte & 0xC0) != 0x80 ? 1 : 0) + (byte >= 0xF0 ? 1 : 0));
    });
}

// Returns the length of a correct UTF-16 text in UTF-8: four bytes for a pair of surrogates, one to three for any
// other.
std::size_t expectedBytes(const unsigned short* text, std::size_t length) {
    return length + sumOf(text, length, [](unsigned short unit) {
               const bool surrogate = platform::isSurrogate(unit);
               return static_cast<unsigned short>((unit >= 0x80 ? 1 : 0) + (unit >= 0x800 ? 1 : 0) -
                                                  (surrogate ? 1 : 0));
           });
}

// Converts into a string of the expected size. If the text is longer, converts again with the most space.
template <typename String, typename Conversion>
String convertExpecting(std::size_t expected, std::size_t most, const Conversion& conversion) {
    String result(expected, 0);
    std::size_t written = conversion(result.data(), expected);
    if (written == 0 && expected < most) {
        result.resize(most);
        written = conversion(result.data(), most);
    }
    result.resize(written);
    return result;
}

// Converts a short text into a buffer first, which takes 10 ns less than to count the units and to clear their place.
// Returns an empty string if the result does not fit, as for an empty text.
constexpr std::size_t kShortText = 128;
template <typename String, std::size_t kMost, typename Conversion>
String convertShort(std::size_t length, const Conversion& conversion) {
    typename String::value_type buffer[kMost * kShortText];
    return String(buffer, conversion(buffer, kMost * length));
}

wstring16 widenThrough(platform::CodePage codePage, const char* text, std::size_t length) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    const bool utf8 = codePage == platform::kCodePageUtf8;
    if (utf8 && plainLength(bytes, length) == length) return wstring16(bytes, bytes + length);
    length = lengthToZero(bytes, length);
    const auto convert = [&](unsigned short* dest, std::size_t capacity) {
        return platform::widenText(codePage, text, length, dest, capacity);
    };
    if (length <= kShortText) {
        if (wstring16 result = convertShort<wstring16, 1>(length, convert); !result.empty()) return result;
    }
    return convertExpecting<wstring16>(utf8 ? expectedUnits(bytes, length) : length, capacityFor(length), convert);
}

std::string narrowThrough(platform::CodePage codePage, const unsigned short* text, std::size_t length) {
    const bool utf8 = codePage == platform::kCodePageUtf8;
    if (utf8 && plainLength(text, length) == length) return std::string(text, text + length);
    length = lengthToZero(text, length);
    const auto convert = [&](char* dest, std::size_t capacity) {
        return platform::narrowText(codePage, text, length, dest, capacity);
    };
    if (length <= kShortText) {
        if (std::string result = convertShort<std::string, 3>(length, convert); !result.empty()) return result;
    }
    return convertExpecting<std::string>(utf8 ? expectedBytes(text, length) : length, capacityFor(length), convert);
}

// An exception with a narrow text converts it, which could fail for the same reason. So an ASCII text, which it nearly
// always is, is widened here.
[[noreturn]] void throwConversionFailed(const std::string& operation, const std::exception& failure) {
    const std::string text =
        "KestStringUtilities::" + operation + ": ctype facet cannot be created for the locale - " + failure.what();
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    if (plainLength(bytes, text.size()) != text.size()) throw KestException(text, 0);
    throw KestException(wstring16(bytes, bytes + text.size()), 0);
}

struct FreeBstr {
    void operator()(unsigned short* text) const noexcept { SysFreeString(text); }
};
using OwnedBstr = std::unique_ptr<unsigned short, FreeBstr>;

// The code is 0, because the COM error for missing memory is outside the range of interface codes.
[[noreturn]] void throwOutOfMemory(const std::string& operation) {
    throw KestException("KestStringUtilities::" + operation + ": com_error exception converting BSTR - " +
                            platform::errorMessage(platform::errorOutOfMemory),
                        0);
}

OwnedBstr copyBstr(const unsigned short* text, unsigned int bytes, const char* operation) {
    OwnedBstr copy(SysAllocStringByteLen(reinterpret_cast<const char*>(text), bytes));
    if (copy == nullptr) throwOutOfMemory(operation);
    return copy;
}

}  // namespace

std::locale::id wide_ctype::id;

wide_ctype::~wide_ctype() = default;

char wide_ctype::do_narrow(char_type, char dflt) const {
    return dflt;
}

wide_ctype::char_type wide_ctype::do_widen(char, char_type dflt) const {
    return dflt;
}

ansi_ctype::ansi_ctype(std::size_t refs) : wide_ctype(refs), m_codePage(platform::ansiCodePage()) {}

ansi_ctype::~ansi_ctype() = default;

const char* ansi_ctype::do_widen(const char* first, const char* last, char_type* dest) const {
    return widenRange(m_codePage, first, last, dest);
}

const wide_ctype::char_type* ansi_ctype::do_narrow(const char_type* first, const char_type* last, char,
                                                   char* dest) const {
    return narrowRange(m_codePage, first, last, dest);
}

utf8_ctype::utf8_ctype(std::size_t refs) : wide_ctype(refs) {}

utf8_ctype::~utf8_ctype() = default;

const char* utf8_ctype::do_widen(const char* first, const char* last, char_type* dest) const {
    return widenRange(platform::kCodePageUtf8, first, last, dest);
}

const wide_ctype::char_type* utf8_ctype::do_narrow(const char_type* first, const char_type* last, char,
                                                   char* dest) const {
    return narrowRange(platform::kCodePageUtf8, first, last, dest);
}

BSTR SysAllocString(const unsigned short* text) noexcept {
    if (text == nullptr) return nullptr;
    const std::size_t bytes = wstring16::traits_type::length(text) * sizeof *text;
    if (bytes > std::numeric_limits<unsigned int>::max()) return nullptr;
    return SysAllocStringByteLen(reinterpret_cast<const char*>(text), static_cast<unsigned int>(bytes));
}

BSTR SysAllocStringByteLen(const char* data, unsigned int bytes) noexcept {
    return platform::allocateWideString(data, bytes);
}

unsigned int SysStringByteLen(BSTR text) noexcept {
    return platform::wideStringBytes(text);
}

void SysFreeString(BSTR text) noexcept {
    platform::freeWideString(text);
}

platform::CodePage KestStringUtilities::codePageOf(const wide_ctype& facet) {
    if (typeid(facet) == typeid(utf8_ctype)) return platform::kCodePageUtf8;
    return typeid(facet) == typeid(ansi_ctype) ? static_cast<const ansi_ctype&>(facet).m_codePage : kForeignFacet;
}

wstring16 KestStringUtilities::widen(const std::string& s, std::locale loc) {
    try {
        const auto& facet = internal::wideFacetOf(loc);
        if (const platform::CodePage codePage = codePageOf(facet); codePage != kForeignFacet) {
            return widenThrough(codePage, s.data(), s.size());
        }
        return convertByFacet<wstring16>(
            s.size(), [&](unsigned short* dest) { facet.widen(s.data(), s.data() + s.size(), dest); });
    } catch (const std::exception& failure) {
        throwConversionFailed("widen", failure);
    }
}

std::string KestStringUtilities::narrow(const wstring16& s, std::locale loc) {
    try {
        const auto& facet = internal::wideFacetOf(loc);
        if (const platform::CodePage codePage = codePageOf(facet); codePage != kForeignFacet) {
            return narrowThrough(codePage, s.data(), s.size());
        }
        return convertByFacet<std::string>(s.size(),
                                           [&](char* dest) { facet.narrow(s.data(), s.data() + s.size(), ' ', dest); });
    } catch (const std::exception& failure) {
        throwConversionFailed("narrow", failure);
    }
}

wstring16 KestStringUtilities::widen(const BSTR& b) {
    if (b == nullptr) return {};
    return wstring16(copyBstr(b, SysStringByteLen(b), "widen").get());
}

BSTR KestStringUtilities::makeBSTR(const wstring16& s) {
    const OwnedBstr text(SysAllocString(s.c_str()));
    if (text == nullptr) throwOutOfMemory("makeBSTR");
    return copyBstr(text.get(), SysStringByteLen(text.get()), "makeBSTR").release();
}

}  // namespace KestSupport
