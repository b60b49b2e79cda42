#include "values/date/date_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace KestSupport::internal {
namespace {

constexpr std::size_t kLongestWord = 9;

constexpr std::size_t kLongestRfc1123 = 29;
constexpr std::size_t kLongestDayMonthYear = 19;
constexpr std::size_t kLongestAsctime = 25;

constexpr bool isSpace(char c) {
    return c == ' ' || ('\t' <= c && c <= '\r');
}

constexpr bool isDigit(char c) {
    return '0' <= c && c <= '9';
}

/// Reads items from the start of a text up to its zero byte. The caller stops at the first item that is missing.
class ItemReader {
  public:
    explicit ItemReader(const std::string& text) : m_next(text.c_str()) {}

    bool number(int& value) {
        skipSpaces();
        const bool negative = *m_next == '-';
        if (negative || *m_next == '+') ++m_next;
        if (!isDigit(*m_next)) return false;
        const std::int64_t largest = std::int64_t{std::numeric_limits<int>::max()} + (negative ? 1 : 0);
        std::int64_t magnitude = 0;
        for (; isDigit(*m_next); ++m_next) {
            magnitude = magnitude * 10 + (*m_next - '0');
            if (magnitude > largest) {
                m_overflowed = true;
                return false;
            }
        }
        value = static_cast<int>(negative ? -magnitude : magnitude);
        return true;
    }

    bool word(std::string_view& value) {
        skipSpaces();
        const char* const begin = m_next;
        while (*m_next != '\0' && !isSpace(*m_next))
            ++m_next;
        value = std::string_view(begin, static_cast<std::size_t>(m_next - begin));
        return !value.empty() && value.size() <= kLongestWord;
    }

    bool separator(char c) {
        if (*m_next != c) return false;
        ++m_next;
        return true;
    }

    bool timeOfDay(std::tm& fields) {
        return number(fields.tm_hour) && separator(':') && number(fields.tm_min) && separator(':') &&
               number(fields.tm_sec);
    }

    bool overflowed() const { return m_overflowed; }

  private:
    void skipSpaces() {
        while (isSpace(*m_next))
            ++m_next;
    }

    const char* m_next;
    bool m_overflowed = false;
};

// Subtracts without wrapping. A number near INT_MIN is in no valid date, so its exact value does not matter.
int countedFrom(int origin, int value) {
    return std::max(value, std::numeric_limits<int>::min() + origin) - origin;
}

bool readRfc1123(const std::string& text, DateText& result) {
    std::tm& fields = result.fields;
    std::string_view weekday;
    std::string_view month;
    std::string_view zone;
    int year = 0;
    ItemReader reader(text);
    if (text.size() > kLongestRfc1123 || !reader.word(weekday) || !reader.number(fields.tm_mday) ||
        !reader.word(month) || !reader.number(year) || !reader.timeOfDay(fields) || !reader.word(zone)) {
        return false;
    }
    fields.tm_year = countedFrom(1900, year);
    result.monthName = month;
    return true;
}

bool readDayMonthYear(const std::string& text, DateText& result) {
    std::tm& fields = result.fields;
    int month = 0;
    int year = 0;
    ItemReader reader(text);
    if (text.size() > kLongestDayMonthYear || !reader.number(fields.tm_mday) || !reader.separator('/') ||
        !reader.number(month) || !reader.separator('/') || !reader.number(year)) {
        return false;
    }
    if (!reader.timeOfDay(fields) && reader.overflowed()) return false;
    fields.tm_mon = countedFrom(1, month);
    fields.tm_year = countedFrom(1900, year);
    return true;
}

bool readAsctime(const std::string& text, DateText& result) {
    std::tm& fields = result.fields;
    std::string_view weekday;
    std::string_view month;
    int year = 0;
    ItemReader reader(text);
    if (text.size() > kLongestAsctime || !reader.word(weekday) || !reader.word(month) ||
        !reader.number(fields.tm_mday) || !reader.timeOfDay(fields) || !reader.number(year)) {
        return false;
    }
    fields.tm_year = countedFrom(1900, year);
    result.monthName = month;
    return true;
}

// Reads dd/mm/yyyy hh:mm:ss by position: 20 instead of 28 ns (date_time_bench, "read day-month-year").
bool readUsualDayMonthYear(const std::string& text, std::tm& fields) {
    if (text.size() != kLongestDayMonthYear) return false;
    const char* const at = text.data();
    bool fits = at[2] == '/' && at[5] == '/' && at[10] == ' ' && at[13] == ':' && at[16] == ':';
    const auto digit = [&](std::size_t i) {
        const int value = at[i] - '0';
        fits &= static_cast<unsigned int>(value) <= 9;
        return value;
    };
    const auto twoDigits = [&](std::size_t i) { return digit(i) * 10 + digit(i + 1); };
    std::tm read = fields;
    read.tm_mday = twoDigits(0);
    read.tm_mon = twoDigits(3) - 1;
    read.tm_year = twoDigits(6) * 100 + twoDigits(8) - 1900;
    read.tm_hour = twoDigits(11);
    read.tm_min = twoDigits(14);
    read.tm_sec = twoDigits(17);
    if (fits) fields = read;
    return fits;
}

DateLayout layoutOf(const std::string& text) {
    if (text.find(',') != std::string::npos) return DateLayout::rfc1123;
    if (text.find('/') != std::string::npos) return DateLayout::dayMonthYear;
    return DateLayout::asctime;
}

}  // namespace

bool readDateText(const std::string& text, DateText& result) {
    result = DateText{};
    result.fields.tm_isdst = -1;
    result.layout = DateLayout::dayMonthYear;
    if (readUsualDayMonthYear(text, result.fields)) return true;
    result.layout = layoutOf(text);
    switch (result.layout) {
        case DateLayout::rfc1123:
            return readRfc1123(text, result);
        case DateLayout::dayMonthYear:
            return readDayMonthYear(text, result);
        case DateLayout::asctime:
            return readAsctime(text, result);
    }
    return false;
}

}  // namespace KestSupport::internal
