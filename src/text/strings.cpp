#include "support/strings.h"

#include <exception>
#include <memory>
#include <vector>

#include "platform/error.h"
#include "platform/text.h"
#include "support/exceptions.h"

namespace KestSupport {
namespace {

// How many destination units the facets may fill for each unit of the source.
constexpr std::size_t expansion = 4;

std::size_t capacityFor(std::size_t length) {
    return expansion * length;
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

struct FreeBstr {
    void operator()(unsigned short* text) const noexcept { SysFreeString(text); }
};
using OwnedBstr = std::unique_ptr<unsigned short, FreeBstr>;

// The COM error for missing memory has the interface code 0: only codes of the range for interfaces have one.
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
    return widenRange(platform::codePageUtf8, first, last, dest);
}

const wide_ctype::char_type* utf8_ctype::do_narrow(const char_type* first, const char_type* last, char,
                                                   char* dest) const {
    return narrowRange(platform::codePageUtf8, first, last, dest);
}

BSTR SysAllocString(const unsigned short* text) noexcept {
    if (text == nullptr) return nullptr;
    const std::size_t length = std::char_traits<unsigned short>::length(text);
    return SysAllocStringByteLen(reinterpret_cast<const char*>(text), static_cast<unsigned int>(length * sizeof *text));
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

wstring16 KestStringUtilities::widen(const std::string& s, std::locale loc) {
    try {
        const auto& facet = std::use_facet<wide_ctype>(loc);
        std::vector<unsigned short> buffer(capacityFor(s.size()) + expansion);
        facet.widen(s.data(), s.data() + s.size(), buffer.data());
        return wstring16(buffer.data());
    } catch (const std::exception& failure) {
        throw KestException(
            std::string("KestStringUtilities::widen: ctype facet cannot be created for the locale - ") + failure.what(),
            0);
    }
}

std::string KestStringUtilities::narrow(const wstring16& s, std::locale loc) {
    try {
        const auto& facet = std::use_facet<wide_ctype>(loc);
        std::vector<char> buffer(capacityFor(s.size()) + expansion);
        facet.narrow(s.data(), s.data() + s.size(), ' ', buffer.data());
        return std::string(buffer.data());
    } catch (const std::exception& failure) {
        throw KestException(
            std::string("KestStringUtilities::narrow: ctype facet cannot be created for the locale - ") +
                failure.what(),
            0);
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
