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

/// Takes items off the front of a text, whose terminating zero byte is no part of any item. After the first item that
/// is not there, nothing more is read.
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

// Most texts have exactly the form that the layouts are known by, every number with all its digits. They are read by
// position, which takes half the time; whatever differs from the form is left to the item readers, with the same
// result.
class FixedReader {
  public:
    explicit FixedReader(const char* text) : m_text(text) {}

    int twoDigits(std::size_t at) { return digit(at) * 10 + digit(at + 1); }
    int fourDigits(std::size_t at) { return twoDigits(at) * 100 + twoDigits(at + 2); }
    void expect(std::size_t at, char c) { m_fits &= m_text[at] == c; }
    /// A word of three characters.
    std::string_view word(std::size_t at) {
        for (std::size_t i = at; i < at + 3; ++i)
            m_fits &= m_text[i] != '\0' && !isSpace(m_text[i]);
        return {m_text + at, 3};
    }
    void timeOfDay(std::size_t at, std::tm& fields) {
        fields.tm_hour = twoDigits(at);
        expect(at + 2, ':');
        fields.tm_min = twoDigits(at + 3);
        expect(at + 5, ':');
        fields.tm_sec = twoDigits(at + 6);
    }
    bool fits() const { return m_fits; }

  private:
    int digit(std::size_t at) {
        const int value = m_text[at] - '0';
        m_fits &= static_cast<unsigned int>(value) <= 9;
        return value;
    }

    const char* m_text;
    bool m_fits = true;
};

bool readFixedDayMonthYear(const std::string& text, DateText& result) {
    FixedReader reader(text.data());
    std::tm& fields = result.fields;
    fields.tm_mday = reader.twoDigits(0);
    reader.expect(2, '/');
    fields.tm_mon = reader.twoDigits(3) - 1;
    reader.expect(5, '/');
    fields.tm_year = reader.fourDigits(6) - 1900;
    reader.expect(10, ' ');
    reader.timeOfDay(11, fields);
    return reader.fits();
}

bool readFixedRfc1123(const std::string& text, DateText& result) {
    FixedReader reader(text.data());
    std::tm& fields = result.fields;
    reader.word(0);
    reader.expect(3, ',');
    reader.expect(4, ' ');
    fields.tm_mday = reader.twoDigits(5);
    reader.expect(7, ' ');
    result.monthName = reader.word(8);
    reader.expect(11, ' ');
    fields.tm_year = reader.fourDigits(12) - 1900;
    reader.expect(16, ' ');
    reader.timeOfDay(17, fields);
    reader.expect(25, ' ');
    reader.word(26);
    return reader.fits();
}

DateLayout layoutOf(const std::string& text) {
    if (text.find(',') != std::string::npos) return DateLayout::Rfc1123;
    if (text.find('/') != std::string::npos) return DateLayout::DayMonthYear;
    return DateLayout::Asctime;
}

}  // namespace

bool readDateText(const std::string& text, DateText& result) {
    result.fields.tm_isdst = -1;
    result.layout = DateLayout::DayMonthYear;
    if (text.size() == kLongestDayMonthYear && readFixedDayMonthYear(text, result)) return true;
    result.layout = DateLayout::Rfc1123;
    if (text.size() == kLongestRfc1123 && readFixedRfc1123(text, result)) return true;

    result = DateText{};
    result.fields.tm_isdst = -1;
    result.layout = layoutOf(text);
    switch (result.layout) {
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
