#include "text/log/log_format.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/local_time.h"
#include "platform/uninterrupted.h"
#include "text/log/open_record.h"
#include "text/strings/hex_digits.h"

namespace KestSupport::internal {

namespace {

constexpr int kFirstYear = 1900;

void appendPadded(std::string& text, int value, int width) {
    char digits[std::numeric_limits<int>::digits10 + 2];
    char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    for (auto missing = width - (end - digits); missing > 0; --missing)
        text += '0';
    text.append(digits, end);
}

// An instant outside the years that the runtime represents is shown as the beginning of 1970.
std::tm localTimeOf(std::int64_t instant) {
    std::tm time{};
    platform::localZoneOfNow();
    if (!platform::localTime(instant, time)) {
        time = {};
        time.tm_year = 70;
        time.tm_mday = 1;
    }
    return time;
}

std::string timeText(const std::tm& time) {
    std::string text;
    appendPadded(text, time.tm_year + kFirstYear, 4);
    appendPadded(text, time.tm_mon + 1, 2);
    appendPadded(text, time.tm_mday, 2);
    text += '_';
    appendPadded(text, time.tm_hour, 2);
    text += ':';
    appendPadded(text, time.tm_min, 2);
    text += ':';
    appendPadded(text, time.tm_sec, 2);
    return text;
}

// The difference between the local time, read as one of UTC, and the instant.
std::string zoneText(const std::tm& time, std::int64_t instant) {
    using namespace std::chrono;
    const sys_days day = year(time.tm_year + kFirstYear) / (time.tm_mon + 1) / time.tm_mday;
    const sys_seconds read = day + hours(time.tm_hour) + minutes(time.tm_min) + seconds(time.tm_sec);
    const auto offset = static_cast<int>((read.time_since_epoch().count() - instant) / 60);
    std::string text(1, offset < 0 ? '-' : '+');
    appendPadded(text, std::abs(offset) / 60, 2);
    text += ':';
    appendPadded(text, std::abs(offset) % 60, 2);
    return text;
}

}  // namespace

void appendFixed(std::string& text, double value) {
    constexpr int kDecimals = 6;
    char digits[kMostFixed];
    text.append(digits, std::to_chars(digits, digits + sizeof(digits), value, std::chars_format::fixed, kDecimals).ptr);
}

void appendPointer(std::string& text, const void* value) {
    const auto address = reinterpret_cast<std::uintptr_t>(value);
    for (int shift = std::numeric_limits<std::uintptr_t>::digits - 4; shift >= 0; shift -= 4) {
        text += upperHexDigit(address >> shift & 0xF);
    }
}

void appendEscaped(std::string& text, std::string_view value) {
    constexpr std::size_t kLongest = 4;
    const auto isControl = [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    };
    const auto controls = static_cast<std::size_t>(std::count_if(value.begin(), value.end(), isControl));
    makeRoom(text, value.size() + controls * (kLongest - 1));
    if (controls == 0) {
        text += value;
        return;
    }
    for (const char character : value) {
        if (!isControl(character)) {
            text += character;
        } else if (const std::size_t known = std::string_view("\n\r\t").find(character);
                   known != std::string_view::npos) {
            text += '\\';
            text += "nrt"[known];
        } else {
            text += "\\x";
            text += upperHexDigit(static_cast<unsigned char>(character) >> 4);
            text += upperHexDigit(static_cast<unsigned char>(character) & 0xF);
        }
    }
}

void RecordPrefix::appendTo(std::string& line, int level, std::string_view module, std::uint32_t threadId) {
    std::int64_t now = 0;
    int millisecond = 0;
    if (m_hasMilliseconds) {
        constexpr std::int64_t kSecond = 1'000'000'000;
        const std::int64_t exact = platform::calendarTime();
        now = exact / kSecond - (exact % kSecond < 0 ? 1 : 0);
        millisecond = static_cast<int>((exact - now * kSecond) / 1'000'000);
    } else {
        now = platform::coarseCalendarSeconds();
    }
    if (now != m_second || millisecond != m_millisecond) {
        const platform::Uninterrupted whole;  // a termination would leave half of a text for the next record
        m_threadId = 0;                       // no thread's, if there is no memory for what follows
        if (now != m_second) makeTime(now);
        m_millisecond = millisecond;
        m_level = level;
        m_module = module;
        m_text.clear();
        make(m_text, level, module, threadId);
        m_threadId = threadId;
    }
    if (threadId == m_threadId && level == m_level && module == m_module) {
        makeRoom(line, m_text.size());
        line += m_text;
    } else {
        make(line, level, module, threadId);
    }
}

void RecordPrefix::makeTime(std::int64_t now) {
    const std::tm time = localTimeOf(now);
    m_time = timeText(time);
    if (m_hasZone) m_zone = zoneText(time, now);
    m_second = now;
}

void RecordPrefix::make(std::string& text, int level, std::string_view module, std::uint32_t threadId) const {
    constexpr std::size_t kModuleWidth = 10;
    constexpr std::size_t kMostOthers = 64;  // the milliseconds, the level, the thread, and what is between them
    makeRoom(text, m_time.size() + m_zone.size() + module.size() + kMostOthers);
    text += m_time;
    if (m_hasMilliseconds) {
        text += '.';
        appendPadded(text, m_millisecond, 3);
    }
    text += m_zone;
    text += ' ';
    appendDecimal(text, level);
    text += ' ';
    if (m_escapes) {
        appendEscaped(text, module);
    } else {
        text += module;
    }
    if (module.size() < kModuleWidth) text.append(kModuleWidth - module.size(), ' ');
    text += " [";
    appendDecimal(text, threadId);
    text += "] ";
}

}  // namespace KestSupport::internal
