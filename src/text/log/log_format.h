// The texts of a log record: those of the inserted values, and the prefix of a line. Nothing here depends on a locale.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace KestSupport::internal {

template <typename Integer>
void appendDecimal(std::string& text, Integer value) {
    char digits[std::numeric_limits<Integer>::digits10 + 2];  // digits10 is one less than the longest; the sign
    const char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    text.append(digits, static_cast<std::size_t>(end - digits));
}

/// The largest numbers of characters that appendDecimal and appendFixed append.
inline constexpr std::size_t kMostDecimal = std::numeric_limits<long long>::digits10 + 2;
inline constexpr std::size_t kMostFixed =
    1 + std::numeric_limits<double>::max_exponent10 + 1 + 1 + 6;  // -DIGITS.DECIMALS

/// Appends fixed notation with six decimals and a point; "inf" and "nan" with their sign.
void appendFixed(std::string& text, double value);

/// Appends upper-case hexadecimal digits without prefix, as many as a pointer of this system has.
void appendPointer(std::string& text, const void* value);

/// Appends the text with each control character as \n, \r, \t or \xHH. A backslash stays as it is.
void appendEscaped(std::string& text, std::string_view value);

/// The prefix of a line: local time, level, module and thread. It keeps the text of the current second, and the prefix
/// of the first record in that second, because to make them takes longer than the rest of a record, except its output.
/// Records of several threads only read what is kept, so it does not change its processor. Threads: one at a time.
class RecordPrefix {
  public:
    /// With milliseconds, the time has a point and three digits; with the zone, the offset from UTC as +HH:MM. Escapes
    /// control characters of the module if `escapes`.
    RecordPrefix(bool milliseconds, bool zone, bool escapes)
        : m_hasMilliseconds(milliseconds), m_hasZone(zone), m_escapes(escapes) {}
    /// Returns another prefix of the same form.
    RecordPrefix another() const { return {m_hasMilliseconds, m_hasZone, m_escapes}; }

    /// Appends the prefix with its closing blank. The module is padded to ten characters and never cut.
    void appendTo(std::string& line, int level, std::string_view module, std::uint32_t threadId);

  private:
    void makeTime(std::int64_t now);
    void make(std::string& text, int level, std::string_view module, std::uint32_t threadId) const;

    // What the usual record reads comes first.
    std::int64_t m_second = -1;  // whose local time m_time is
    std::string m_text;

    // The parts of m_text, besides m_time and m_zone.
    std::uint32_t m_threadId = 0;
    int m_level = 0;
    int m_millisecond = 0;
    const bool m_hasMilliseconds;
    const bool m_hasZone;
    const bool m_escapes;
    std::string m_module;

    std::string m_time;
    std::string m_zone;
};

}  // namespace KestSupport::internal
