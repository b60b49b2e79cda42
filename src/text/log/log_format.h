// The texts of a log record: those of the inserted values, and the prefix of a line.
//
// Values are appended to a string that is used again for every record, without a stream in between. Nothing here
// depends on a locale.
#pragma once

#include <charconv>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>

namespace KestSupport::internal {

template <typename Integer>
void appendDecimal(std::string& text, Integer value) {
    char digits[std::numeric_limits<Integer>::digits10 + 2];  // one more than digits10 holds, and the sign
    const char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    text.append(digits, static_cast<std::size_t>(end - digits));
}

/// The most characters that appendDecimal and appendFixed append.
inline constexpr std::size_t kMostDecimal = std::numeric_limits<long long>::digits10 + 2;
inline constexpr std::size_t kMostFixed = std::numeric_limits<double>::max_exponent10 + 9;

/// Fixed notation with six decimals and a point, of any magnitude; "inf" and "nan" with their sign.
void appendFixed(std::string& text, double value);

/// Upper-case hexadecimal digits, as many as a pointer of this system has, without prefix.
void appendPointer(std::string& text, const void* value);

/// The prefix of a line: local time, level, module and thread. It keeps the text that it made last, and the time of the
/// current second, since making these costs more than all the rest of a record but its output. Threads: one at a time.
class RecordPrefix {
  public:
    /// The prefix, its closing blank included, valid until the next call. The module is padded to ten characters and
    /// never cut.
    const std::string& text(int level, std::string_view module, std::uint32_t threadId);

  private:
    std::time_t m_second = -1;  // that m_time is the text of
    std::string m_time;

    // What m_text was made of, with m_time.
    int m_level = 0;
    std::string m_module;
    std::uint32_t m_threadId = 0;
    std::string m_text;
};

}  // namespace KestSupport::internal
