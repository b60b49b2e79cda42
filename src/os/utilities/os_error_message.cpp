#include <array>
#include <cstdio>

#include "platform/error.h"
#include "support/locales.h"
#include "support/utilities.h"

namespace KestSupport {
namespace {

constexpr char kBlanks[] = " \t\r\n";

std::string stripped(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string::npos ? std::string() : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

}  // namespace

void KestGetOSErrorMessage(int errorCode, std::string& message) {
    message = stripped(platform::errorMessage(static_cast<platform::ErrorCode>(errorCode)));
    if (!message.empty()) return;
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "Unrecognized error code: %d (0x%08x)", errorCode,
                  static_cast<unsigned>(errorCode));
    message = text.data();
}

void KestGetOSErrorMessage(int errorCode, wstring16& message) {
    std::string text;
    KestGetOSErrorMessage(errorCode, text);
    message = KestStringUtilities::widen(text, KestLocaleFactory::getDefaultLocale(true));
}

}  // namespace KestSupport
