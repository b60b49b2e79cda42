// The text vocabulary of the library: the four string types, the case-insensitive character traits, the two facets that
// convert between narrow and wide text, and the static helpers that apply them.
//
// Wide text is a sequence of 16-bit units holding UTF-16. It is never wchar_t, whose width differs between systems.
//
// Threads: no operation has shared state; every conversion uses its own buffers. The case-insensitive comparison
// depends on the C runtime's current locale: do not change that locale while a map with such keys exists.
#pragma once

#include <support/export.h>

#include <cctype>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <ios>  // std::locale too; its header <locale> has all facets, which take 25 ms to compile
#include <string>
#include <string_view>
#include <type_traits>

namespace KestSupport {

namespace internal {

/// The traits of a 16-bit unit, for standard libraries without std::char_traits<unsigned short>.
struct unit_traits {
    using char_type = unsigned short;
    using int_type = std::uint32_t;
    using off_type = std::streamoff;
    using pos_type = std::streampos;
    using state_type = std::mbstate_t;
    using comparison_category = std::strong_ordering;

    static constexpr void assign(char_type& to, const char_type& from) noexcept { to = from; }
    static constexpr bool eq(char_type a, char_type b) noexcept { return a == b; }
    static constexpr bool lt(char_type a, char_type b) noexcept { return a < b; }

    static constexpr int compare(const char_type* p, const char_type* q, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            if (p[i] != q[i]) return p[i] < q[i] ? -1 : 1;
        }
        return 0;
    }
    static constexpr std::size_t length(const char_type* p) {
        std::size_t n = 0;
        while (p[n] != 0)
            ++n;
        return n;
    }
    static constexpr const char_type* find(const char_type* p, std::size_t n, const char_type& c) {
        for (; n != 0; ++p, --n) {
            if (*p == c) return p;
        }
        return nullptr;
    }
    static char_type* move(char_type* to, const char_type* from, std::size_t n) {
        if (n != 0) std::memmove(to, from, n * sizeof(char_type));
        return to;
    }
    static char_type* copy(char_type* to, const char_type* from, std::size_t n) { return move(to, from, n); }
    static constexpr char_type* assign(char_type* to, std::size_t n, char_type c) {
        for (std::size_t i = 0; i < n; ++i)
            to[i] = c;
        return to;
    }

    static constexpr int_type eof() noexcept { return ~int_type{0}; }
    static constexpr int_type not_eof(int_type i) noexcept { return i == eof() ? 0 : i; }
    static constexpr char_type to_char_type(int_type i) noexcept { return static_cast<char_type>(i); }
    static constexpr int_type to_int_type(char_type c) noexcept { return c; }
    static constexpr bool eq_int_type(int_type a, int_type b) noexcept { return a == b; }
};

#ifdef _LIBCPP_VERSION
template <typename CharT>
using text_traits = std::conditional_t<std::is_same_v<CharT, unsigned short>, unit_traits, std::char_traits<CharT>>;
#else
template <typename CharT>
using text_traits = std::char_traits<CharT>;
#endif

template <typename CharT>
using basic_text = std::basic_string<CharT, text_traits<CharT>>;
template <typename CharT>
using basic_text_view = std::basic_string_view<CharT, text_traits<CharT>>;

}  // namespace internal

/// Character traits that ignore case in comparisons, for char and for unsigned short. Other operations are inherited.
///
/// Narrow characters from 0x80 on are negative values, so they are less than every 7-bit character; 7-bit characters
/// are folded by the C runtime's tolower. Wide units are folded by towlower, cut to 16 bits and compared as unsigned
/// values.
template <typename CharT>
struct char_traits_ci : internal::text_traits<CharT> {
    static_assert(std::is_same_v<CharT, char> || std::is_same_v<CharT, unsigned short>);

    /// The comparisons of std::char_traits, of the folded characters.
    static bool eq(CharT a, CharT b) { return a == b || fold(a) == fold(b); }
    static bool lt(CharT a, CharT b) { return fold(a) < fold(b); }

    /// Returns -1, 0 or 1 for the first `n` characters.
    static int compare(const CharT* p, const CharT* q, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            // Equal characters have equal foldings, so only the others need the C runtime.
            if (p[i] == q[i]) continue;
            const int a = fold(p[i]);
            const int b = fold(q[i]);
            if (a != b) return a < b ? -1 : 1;
        }
        return 0;
    }

    /// Returns the first of `n` characters that equals `c`; null if there is none.
    static const CharT* find(const CharT* p, std::size_t n, const CharT& c) {
        const int folded = fold(c);
        for (; n != 0; ++p, --n) {
            if (fold(*p) == folded) return p;
        }
        return nullptr;
    }

    /// Returns the value that represents the character in comparisons.
    static int fold(CharT c) {
        if constexpr (std::is_same_v<CharT, char>) {
            const auto value = static_cast<signed char>(c);
            return value < 0 ? value : std::tolower(value);
        } else {
            return static_cast<unsigned short>(std::towlower(c));
        }
    }
};

/// Narrow text that is compared without regard to case.
using string_ci = std::basic_string<char, char_traits_ci<char>>;
/// std::basic_string<unsigned short>. With libc++, which has no traits for it, the traits are those of the library.
using wstring16 = internal::basic_text<unsigned short>;
/// The same, compared without regard to case.
using wstring16_ci = std::basic_string<unsigned short, char_traits_ci<unsigned short>>;

/// The facet of a std::locale that converts between narrow and wide text. A locale has at most one: an ansi_ctype
/// replaces a utf8_ctype, and a utf8_ctype replaces an ansi_ctype. A derived class converts by its own rules.
///
/// The range conversions write at most four units for each unit of the source, and no terminator. So the caller
/// provides a cleared destination of four times the length of the source. They return `last`.
class KEST_SUPPORT_EXPORT wide_ctype : public std::locale::facet {
  public:
    /// A 16-bit unit.
    using char_type = unsigned short;

    /// The id by which a std::locale finds this facet.
    static std::locale::id id;

    /// Convert the range from `first` to `last` into `dest`. `dflt` replaces a unit without a character.
    const char* widen(const char* first, const char* last, char_type* dest) const {
        return do_widen(first, last, dest);
    }
    const char_type* narrow(const char_type* first, const char_type* last, char dflt, char* dest) const {
        return do_narrow(first, last, dflt, dest);
    }
    /// Convert a single character. The facets of the library return the default.
    char_type widen(char c, char_type dflt) const { return do_widen(c, dflt); }
    char narrow(char_type c, char dflt) const { return do_narrow(c, dflt); }

  protected:
    /// With 0 the last locale that holds the facet deletes it.
    explicit wide_ctype(std::size_t refs = 0) : std::locale::facet(refs) {}
    ~wide_ctype() override;

    /// Do what the operations without do_ return. A derived class overrides the conversions of ranges.
    virtual const char* do_widen(const char* first, const char* last, char_type* dest) const = 0;
    virtual const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const = 0;
    virtual char do_narrow(char_type c, char dflt) const;
    virtual char_type do_widen(char c, char_type dflt) const;
};

/// Converts through the ANSI code page. On Linux this is the character set that LC_ALL, LC_CTYPE or LANG named when the
/// facet was constructed, and Windows-1252 for "C", "POSIX" or a set that the system does not know. Each 16-bit unit
/// that the code page cannot represent becomes '?' (U+FFFD if the code page is UTF-8).
class KEST_SUPPORT_EXPORT ansi_ctype : public wide_ctype {
  public:
    /// With 0 the last locale that holds the facet deletes it.
    explicit ansi_ctype(std::size_t refs = 0);
    ~ansi_ctype() override;

  protected:
    using wide_ctype::do_narrow;
    using wide_ctype::do_widen;
    /// Convert a range, as wide_ctype describes.
    const char* do_widen(const char* first, const char* last, char_type* dest) const override;
    const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const override;

  private:
    friend class KestStringUtilities;
    const unsigned m_codePage;
};

/// Converts through UTF-8. Each maximal part of an invalid sequence, and each surrogate without its partner, becomes
/// U+FFFD.
class KEST_SUPPORT_EXPORT utf8_ctype : public wide_ctype {
  public:
    /// With 0 the last locale that holds the facet deletes it.
    explicit utf8_ctype(std::size_t refs = 0);
    ~utf8_ctype() override;

  protected:
    using wide_ctype::do_narrow;
    using wide_ctype::do_widen;
    /// Convert a range, as wide_ctype describes.
    const char* do_widen(const char* first, const char* last, char_type* dest) const override;
    const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const override;
};

/// A wide string with its length in bytes before the text and a zero unit after it. It is the platform's own type if
/// the platform has one. Null is an empty string.
using BSTR = unsigned short*;

/// Returns a copy of the zero-terminated text; null for null, for a text of 4 GiB or more, and if memory is short. The
/// caller frees it with SysFreeString.
KEST_SUPPORT_EXPORT BSTR SysAllocString(const unsigned short* text) noexcept;
/// Returns a string of `bytes` bytes, copied from `data` unless that is null; null if memory is short. The caller frees
/// it with SysFreeString.
KEST_SUPPORT_EXPORT BSTR SysAllocStringByteLen(const char* data, unsigned int bytes) noexcept;
/// Returns the length in bytes, without the terminating zero; 0 for null.
KEST_SUPPORT_EXPORT unsigned int SysStringByteLen(BSTR text) noexcept;
/// Frees a string of the functions above; null is allowed.
KEST_SUPPORT_EXPORT void SysFreeString(BSTR text) noexcept;

/// Conversions between the string types.
class KEST_SUPPORT_EXPORT KestStringUtilities {
  public:
    /// Returns the text up to its first zero byte, converted by the wide_ctype of the locale. Throws KestException with
    /// code 0 and the text "KestStringUtilities::widen: ctype facet cannot be created for the locale - " and the
    /// reason, if the locale has no such facet (the reason is the text of std::bad_cast) or the conversion throws a
    /// standard exception.
    static wstring16 widen(const std::string& s, std::locale loc);

    /// The same in the other direction, up to the first zero unit. The text of the exception begins with
    /// "KestStringUtilities::narrow: ctype facet cannot be created for the locale - ".
    static std::string narrow(const wstring16& s, std::locale loc);

    /// Returns the text of a BSTR up to its first zero unit; empty for null. Throws KestException with code 0 and the
    /// text "KestStringUtilities::widen: com_error exception converting BSTR - " and the system's text if memory is
    /// short.
    static wstring16 widen(const BSTR& b);

    /// Returns a new BSTR with the text up to its first zero unit. The caller frees it with SysFreeString. Throws
    /// KestException with code 0 and the text "KestStringUtilities::makeBSTR: com_error exception converting BSTR - "
    /// and the system's text if memory is short or the text has 4 GiB or more.
    static BSTR makeBSTR(const wstring16& s);

  private:
    // Returns the code page of a facet of the library; 0 for any other facet.
    static unsigned codePageOf(const wide_ctype& facet);
};

}  // namespace KestSupport

// The exception that the conversions throw. It needs the types above.
#include <support/exceptions.h>
