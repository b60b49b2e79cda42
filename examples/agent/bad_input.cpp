#include "bad_input.h"

#include <support/exceptions.h>

#include <cstdio>
#include <exception>

namespace agent {

std::string printable(const std::string& text) {
    constexpr std::size_t kLongest = 120;
    std::string shown;
    for (const char each : text.substr(0, kLongest)) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte >= 0x20 && byte != 0x7F) {
            shown += each;
            continue;
        }
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(byte));
        shown += escaped;
    }
    if (text.size() > kLongest) shown += "...";
    return shown;
}

std::string caughtReason() {
    try {
        throw;
    } catch (const KestSupport::KestException& failed) {
        return failed.getText();
    } catch (const std::exception& failed) {
        return failed.what();
    }
}

}  // namespace agent
