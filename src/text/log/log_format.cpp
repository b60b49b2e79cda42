#include "text/log/log_format.h"

#include "platform/uninterrupted.h"
#include "support/date_time.h"

namespace KestSupport::internal {

namespace {

void appendPadded(std::string& text, unsigned int value, int width) {
    char digits[std::numeric_limits<unsigned int>::digits10 + 1];
    char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    for (auto missing = width - (end - digits); missing > 0; --missing)
        text += '0';
    text.append(digits, end);
}

std::string timeText(const KestDateTime& time) {
    std::string text;
    appendPadded(text, time.getYear(), 4);
    appendPadded(text, time.getMonth(), 2);
    appendPadded(text, time.getDay(), 2);
    text += '_';
    appendPadded(text, time.getHour(), 2);
    text += ':';
    appendPadded(text, time.getMinute(), 2);
    text += ':';
    appendPadded(text, time.getSecond(), 2);
    text += ' ';
    return text;
}

}  // namespace

void appendFixed(std::string& text, double value) {
    constexpr int kDecimals = 6;
    char digits[kMostFixed];  // a digit more than the exponent, the sign, the point, the decimals
    text.append(digits, std::to_chars(digits, digits + sizeof(digits), value, std::chars_format::fixed, kDecimals).ptr);
}

void appendPointer(std::string& text, const void* value) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto address = reinterpret_cast<std::uintptr_t>(value);
    for (int shift = std::numeric_limits<std::uintptr_t>::digits - 4; shift >= 0; shift -= 4) {
        text += kDigits[(address >> shift) & 0xF];
    }
}

const std::string& RecordPrefix::text(int level, std::string_view module, std::uint32_t threadId) {
    const std::time_t now = std::time(nullptr);
    if (now == m_second && level == m_level && threadId == m_threadId && module == m_module) return m_text;
    const platform::Uninterrupted whole;  // all of it is used again, after a termination too
    if (now != m_second) m_time = timeText(KestDateTime());
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
