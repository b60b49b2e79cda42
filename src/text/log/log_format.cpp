#include "text/log/log_format.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/local_time.h"
#include "platform/uninterrupted.h"
#include "text/strings/hex_digits.h"

namespace KestSupport::internal {

namespace {

void appendPadded(std::string& text, int value, int width) {
    char digits[std::numeric_limits<int>::digits10 + 2];
    char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    for (auto missing = width - (end - digits); missing > 0; --missing)
        text += '0';
    text.append(digits, end);
}

// An instant outside the years that the runtime represents is shown as the beginning of 1970.
std::string timeText(std::int64_t instant) {
    constexpr int kFirstYear = 1900;
    std::tm time{};
    platform::localZoneOfNow();
    if (!platform::localTime(instant, time)) {
        time.tm_year = 70;
        time.tm_mday = 1;
    }
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
    text += ' ';
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

const std::string& RecordPrefix::text(int level, std::string_view module, std::uint32_t threadId) {
    const std::int64_t now = platform::coarseCalendarSeconds();
    if (now == m_second && level == m_level && threadId == m_threadId && module == m_module) return m_text;
    const platform::Uninterrupted whole;  // a termination would leave half of a text for the next record
    if (now != m_second) m_time = timeText(now);
    m_second = now;
    m_level = level;
    m_module = module;
    m_threadId = threadId;

    constexpr std::size_t kModuleWidth = 10;
    m_text = m_time;
    appendDecimal(m_text, level);
    m_text += ' ';
    m_text += module;
    if (module.size() < kModuleWidth) m_text.append(kModuleWidth - module.size(), ' ');
    m_text += " [";
    appendDecimal(m_text, threadId);
    m_text += "] ";
    return m_text;
}

}  // namespace KestSupport::internal
