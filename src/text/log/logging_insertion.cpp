#include <string>
#include <string_view>

#include "support/locales.h"
#include "support/logging.h"
#include "support/strings.h"
#include "text/log/log_format.h"
#include "text/log/logging_state.h"

namespace KestSupport {

// Append appends at most `most` characters. When it throws, the next record of the thread replaces this one.
template <typename Append>
KestLogging& KestLogging::insert(std::size_t most, Append append) {
    if (!getLogAccess()) return *this;
    try {
        append(m_pState->record.textWithRoom(most));
    } catch (...) {
        internal::currentLoggingThread().hasLeftRecord = true;
        throw;
    }
    return *this;
}

KestLogging& KestLogging::insertText(std::string_view value) {
    return insert(value.size(), [value](std::string& text) { text += value; });
}

template <typename Integer>
KestLogging& KestLogging::insertDecimal(Integer value) {
    return insert(internal::kMostDecimal, [value](std::string& text) { internal::appendDecimal(text, value); });
}

KestLogging& KestLogging::operator<<(short value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned short value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(int value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned int value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(long value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned long value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(const long long& value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(const unsigned long long& value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(float value) {
    return *this << static_cast<double>(value);
}

KestLogging& KestLogging::operator<<(bool value) {
    return *this << (value ? "true" : "false");
}

KestLogging& KestLogging::operator<<(char value) {
    return insert(1, [value](std::string& text) { text += value; });
}

KestLogging& KestLogging::operator<<(double value) {
    return insert(internal::kMostFixed, [value](std::string& text) { internal::appendFixed(text, value); });
}

KestLogging& KestLogging::operator<<(const void* value) {
    return insert(2 * sizeof value, [value](std::string& text) { internal::appendPointer(text, value); });
}

KestLogging& KestLogging::operator<<(const char* value) {
    return insertText(value);
}

KestLogging& KestLogging::operator<<(const std::string& value) {
    return insertText(value);
}

KestLogging& KestLogging::operator<<(const string_ci& value) {
    return insertText({value.data(), value.size()});
}

KestLogging& KestLogging::operator<<(const wstring16& value) {
    return insert(0, [&value](std::string& text) {
        const std::string bytes = KestStringUtilities::narrow(value, KestLocaleFactory::getDefaultLocale(true));
        internal::makeRoom(text, bytes.size());
        text += bytes;
    });
}

KestLogging& KestLogging::operator<<(const wstring16_ci& value) {
    return *this << wstring16(value.c_str());
}

}  // namespace KestSupport
