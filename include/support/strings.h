// The text vocabulary of the library: the four string types, the case-insensitive character traits, the two facets that
// convert between narrow and wide text, and the static helpers that apply them.
//
// Wide text is a sequence of 16-bit units holding UTF-16. It is never wchar_t, whose width differs between systems.
//
// Threads: nothing here holds shared state, every conversion works on buffers of its own. The case-insensitive
// comparison follows the C runtime's current locale: a map keyed by such a string must not outlive a change of it.
#pragma once

#include <support/export.h>

#include <cctype>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <ios>
#include <locale>
#include <string>
#include <string_view>
#include <type_traits>

namespace KestSupport {

namespace internal {

/// The traits of a 16-bit unit, for standard libraries that have std::char_traits for their own character types alone.
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

/// Character traits that compare without regard to case, for char and for unsigned short; the rest is inherited.
///
/// Narrow characters from 0x80 on count as negative values and so order before every 7-bit one; 7-bit ones are folded
/// by the C runtime's tolower. Wide units are folded by towlower, cut to 16 bits and compared unsigned.
template <typename CharT>
struct char_traits_ci : internal::text_traits<CharT> {
    static_assert(std::is_same_v<CharT, char> || std::is_same_v<CharT, unsigned short>);

    static bool eq(CharT a, CharT b) { return a == b || fold(a) == fold(b); }
    static bool lt(CharT a, CharT b) { return fold(a) < fold(b); }

    static int compare(const CharT* p, const CharT* q, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            // Equal characters fold alike; the C runtime is asked about the others only.
            if (p[i] == q[i]) continue;
            const int a = fold(p[i]);
            const int b = fold(q[i]);
            if (a != b) return a < b ? -1 : 1;
        }
        return 0;
    }

    static const CharT* find(const CharT* p, std::size_t n, const CharT& c) {
        const int folded = fold(c);
        for (; n != 0; ++p, --n) {
            if (fold(*p) == folded) return p;
        }
        return nullptr;
    }

    /// What is compared in place of the character.
    static int fold(CharT c) {
        if constexpr (std::is_same_v<CharT, char>) {
            const auto value = static_cast<signed char>(c);
            return value < 0 ? value : std::tolower(value);
        } else {
            return static_cast<unsigned short>(std::towlower(c));
        }
    }
};

using string_ci = std::basic_string<char, char_traits_ci<char>>;
/// std::basic_string<unsigned short>; with libc++, which has no traits for it, the same with traits of the library.
using wstring16 = internal::basic_text<unsigned short>;
using wstring16_ci = std::basic_string<unsigned short, char_traits_ci<unsigned short>>;

/// The facet of a std::locale that converts between narrow and wide text. A locale holds at most one: putting an
/// ansi_ctype into a locale replaces a utf8_ctype and the other way round. Derive from it to convert by rules of your
/// own.
///
/// The range conversions write at most four units for each unit of the source and do not terminate what they write, so
/// a destination holds four times the source and is cleared beforehand. They return `last`.
class KEST_SUPPORT_EXPORT wide_ctype : public std::locale::facet {
  public:
    using char_type = unsigned short;

    /// Where a std::locale keeps this kind of facet.
    static std::locale::id id;

    const char* widen(const char* first, const char* last, char_type* dest) const {
        return do_widen(first, last, dest);
    }
    const char_type* narrow(const char_type* first, const char_type* last, char dflt, char* dest) const {
        return do_narrow(first, last, dflt, dest);
    }
    /// Single characters: the facets of the library answer the default for each.
    char_type widen(char c, char_type dflt) const { return do_widen(c, dflt); }
    char narrow(char_type c, char dflt) const { return do_narrow(c, dflt); }

  protected:
    explicit wide_ctype(std::size_t refs = 0) : std::locale::facet(refs) {}
    ~wide_ctype() override;

    virtual const char* do_widen(const char* first, const char* last, char_type* dest) const = 0;
    virtual const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const = 0;
    virtual char do_narrow(char_type c, char dflt) const;
    virtual char_type do_widen(char c, char_type dflt) const;
};

/// Converts through the ANSI code page: on Linux the character set that LC_ALL, LC_CTYPE or LANG named when the facet
/// was made, and Windows-1252 for "C", "POSIX" or a set that the system does not know. What the code page cannot carry
/// becomes '?', once for each 16-bit unit (U+FFFD where the code page is UTF-8).
class KEST_SUPPORT_EXPORT ansi_ctype : public wide_ctype {
  public:
    /// With 0 the last locale that holds the facet deletes it.
    explicit ansi_ctype(std::size_t refs = 0);
    ~ansi_ctype() override;

  protected:
    using wide_ctype::do_narrow;
    using wide_ctype::do_widen;
    const char* do_widen(const char* first, const char* last, char_type* dest) const override;
    const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const override;

  private:
    friend class KestStringUtilities;
    const unsigned m_codePage;
};

/// Converts through UTF-8. Every maximal part of a broken sequence, and every surrogate without its partner, becomes
/// U+FFFD.
class KEST_SUPPORT_EXPORT utf8_ctype : public wide_ctype {
  public:
    /// With 0 the last locale that holds the facet deletes it.
    explicit utf8_ctype(std::size_t refs = 0);
    ~utf8_ctype() override;

  protected:
    using wide_ctype::do_narrow;
    using wide_ctype::do_widen;
    const char* do_widen(const char* first, const char* last, char_type* dest) const override;
    const char_type* do_narrow(const char_type* first, const char_type* last, char dflt, char* dest) const override;
};

/// A wide string with its length in bytes in front of it and a zero unit behind it: the platform's own type where there
/// is one. Null counts as empty.
using BSTR = unsigned short*;

/// A copy of the zero-terminated text; null for null and when there is no memory. The caller frees it with
/// SysFreeString.
KEST_SUPPORT_EXPORT BSTR SysAllocString(const unsigned short* text) noexcept;
/// A string of `bytes` bytes, copied from `data` unless that is null; null when there is no memory. Freed with
/// SysFreeString.
KEST_SUPPORT_EXPORT BSTR SysAllocStringByteLen(const char* data, unsigned int bytes) noexcept;
/// The length in bytes, without the terminating zero; 0 for null.
KEST_SUPPORT_EXPORT unsigned int SysStringByteLen(BSTR text) noexcept;
/// Frees a string made here; null is allowed.
KEST_SUPPORT_EXPORT void SysFreeString(BSTR text) noexcept;

/// Conversions between the string types.
class KEST_SUPPORT_EXPORT KestStringUtilities {
  public:
    /// The text up to its first zero byte, converted by the wide_ctype of the locale. Throws KestException with
    /// "KestStringUtilities::widen: ctype facet cannot be created for the locale - " and the reason when the locale has
    /// no such facet (the reason is then std::bad_cast's) or the conversion throws a standard exception.
    static wstring16 widen(const std::string& s, std::locale loc);

    /// The mirror, up to the first zero unit: "KestStringUtilities::narrow: ctype facet cannot be created for the
    /// locale - ".
    static std::string narrow(const wstring16& s, std::locale loc);

    /// The text of a BSTR up to its first zero unit; empty for null. Throws KestException with
    /// "KestStringUtilities::widen: com_error exception converting BSTR - " and the system's text when memory is short.
    static wstring16 widen(const BSTR& b);

    /// A new BSTR with the text up to its first zero unit, to be freed with SysFreeString. Throws KestException with
    /// "KestStringUtilities::makeBSTR: com_error exception converting BSTR - " and the system's text when memory is
    /// short.
    static BSTR makeBSTR(const wstring16& s);

  private:
    // The code page of a facet of the library; 0 for any other, whose own conversion decides.
    static unsigned codePageOf(const wide_ctype& facet);
};

}  // namespace KestSupport

// The exception that the conversions throw. It needs the types above.
#include <support/exceptions.h>
