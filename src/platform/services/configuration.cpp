#include "platform/services/configuration.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/common/ascii_words.h"
#include "platform/common/hex.h"

namespace KestSupport::platform {
namespace {

constexpr std::string_view kFirstLine = "kest-service 1";
constexpr std::string_view kLastLine = "end";
constexpr std::size_t kLongestCommandLine = 32767;

struct TextField {
    char key[16];
    std::string StoredService::*value;
};

struct NumberField {
    char key[16];
    std::uint32_t StoredService::*value;
};

constexpr std::array<TextField, 5> kTexts{{{"name", &StoredService::name},
                                           {"display-name", &StoredService::displayName},
                                           {"command-line", &StoredService::commandLine},
                                           {"dependencies", &StoredService::dependencies},
                                           {"description", &StoredService::description}}};
constexpr std::array<NumberField, 4> kNumbers{{{"type", &StoredService::type},
                                               {"start-type", &StoredService::startType},
                                               {"error-control", &StoredService::errorControl},
                                               {"restart", &StoredService::restart}}};
constexpr std::string_view kDeletedLine = "deleted";

std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char each : text) {
        if (!isAsciiControl(each) && each != '\\') {
            result.push_back(each);
            continue;
        }
        const auto value = static_cast<unsigned char>(each);
        result.append("\\x").push_back(kHexDigits[value >> 4]);
        result.push_back(kHexDigits[value & 0xF]);
    }
    return result;
}

bool unescape(std::string_view text, std::string& result) {
    result.clear();
    for (;;) {
        const std::size_t plain = std::min(text.find('\\'), text.size());
        result.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) return true;
        if (text.size() < 4 || text[1] != 'x') return false;
        const std::size_t high = kHexDigits.find(text[2]);
        const std::size_t low = kHexDigits.find(text[3]);
        if (high == std::string_view::npos || low == std::string_view::npos) return false;
        result.push_back(static_cast<char>(high << 4 | low));
        text.remove_prefix(4);
    }
}

bool readNumber(std::string_view text, std::uint32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

bool readLine(std::string_view line, StoredService& service) {
    if (line == kDeletedLine) {
        service.deleted = true;
        return true;
    }
    const std::size_t separator = line.find('=');
    if (separator == std::string_view::npos) return false;
    const std::string_view key = line.substr(0, separator);
    const std::string_view value = line.substr(separator + 1);
    for (const TextField& field : kTexts) {
        if (field.key == key) return unescape(value, service.*field.value);
    }
    for (const NumberField& field : kNumbers) {
        if (field.key == key) return readNumber(value, service.*field.value);
    }
    return false;
}

// Removes the next line from the text. Returns false when no line feed is left.
bool takeLine(std::string_view& text, std::string_view& line) {
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) return false;
    line = text.substr(0, end);
    text.remove_prefix(end + 1);
    return true;
}

bool isWithoutNul(std::string_view text) {
    return text.find('\0') == std::string_view::npos;
}

}  // namespace

bool isValidService(const StoredService& service) {
    constexpr std::uint32_t kHighestErrorControl = 3;
    const std::vector<std::string> dependencies = dependencyNames(service.dependencies);
    return (service.type & ~kServiceInteractive) == kServiceOwnProcess && service.startType >= kServiceAutoStart &&
           service.startType <= kServiceDisabled && service.restart <= kServiceRestartAlways &&
           service.errorControl <= kHighestErrorControl && !service.commandLine.empty() &&
           service.commandLine.size() <= kLongestCommandLine && isWithoutNul(service.commandLine) &&
           isWithoutNul(service.displayName) && service.displayName.size() <= kLongestServiceName &&
           std::all_of(dependencies.begin(), dependencies.end(), isServiceName);
}

std::string formatConfiguration(const StoredService& service) {
    std::string text;
    text.append(kFirstLine).append("\n");
    for (const TextField& field : kTexts)
        text.append(field.key).append("=").append(escaped(service.*field.value)).append("\n");
    for (const NumberField& field : kNumbers) {
        // A release that does not know this key can read a service that does not use it.
        if (field.value == &StoredService::restart && service.restart == kServiceRestartNever) continue;
        text.append(field.key).append("=").append(std::to_string(service.*field.value)).append("\n");
    }
    if (service.deleted) text.append(kDeletedLine).append("\n");
    return text.append(kLastLine).append("\n");
}

std::optional<StoredService> parseConfiguration(std::string_view text) {
    std::string_view line;
    if (!takeLine(text, line) || line != kFirstLine) return std::nullopt;
    StoredService service;
    while (takeLine(text, line)) {
        if (line == kLastLine) {
            const bool valid = text.empty() && isServiceName(service.name) && isValidService(service);
            return valid ? std::optional(std::move(service)) : std::nullopt;
        }
        if (!readLine(line, service)) return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace KestSupport::platform
