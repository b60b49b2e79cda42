#include "values/date_text.h"

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

/// Takes items off the front of a text, whose terminating zero byte is no part of any item. After the first item that
/// is not there, nothing more is read.
class ItemReader {
  public:
    explicit ItemReader(const std::string& text) : m_next(text.c_str()) {}

    bool number(int& value) {
        skipSpaces();
        // Nearly all numbers of a date have two digits.
        if (isDigit(m_next[0]) && isDigit(m_next[1]) && !isDigit(m_next[2])) {
            value = (m_next[0] - '0') * 10 + (m_next[1] - '0');
            m_next += 2;
            return true;
        }
        return anyNumber(value);
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
    bool anyNumber(int& value) {
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

    void skipSpaces() {
        while (isSpace(*m_next))
            ++m_next;
    }

    const char* m_next;
    bool m_overflowed = false;
};

// A number so far below zero that it would wrap names no date of ours, whatever it is counted from.
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

}  // namespace

DateLayout layoutOf(const std::string& text) noexcept {
    if (text.find(',') != std::string::npos) return DateLayout::Rfc1123;
    if (text.find('/') != std::string::npos) return DateLayout::DayMonthYear;
    return DateLayout::Asctime;
}

bool readDateText(const std::string& text, DateLayout layout, DateText& result) {
    result.fields.tm_isdst = -1;
    switch (layout) {
        case DateLayout::Rfc1123:
            return readRfc1123(text, result);
        case DateLayout::DayMonthYear:
            return readDayMonthYear(text, result);
        case DateLayout::Asctime:
            return readAsctime(text, result);
    }
    return false;
}

}  // namespace KestSupport::internal
