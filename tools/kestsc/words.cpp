#include "words.h"

#include <algorithm>
#include <iterator>
#include <locale>
#include <utility>

#include "failure.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

constexpr const char* kStates[] = {"unknown", "stopped",          "start pending", "stop pending",
                                   "running", "continue pending", "pause pending", "paused"};

constexpr std::pair<std::uint32_t, const char*> kStartTypes[] = {{platform::kServiceAutoStart, "auto"},
                                                                 {platform::kServiceDemandStart, "demand"},
                                                                 {platform::kServiceDisabled, "disabled"}};

constexpr std::pair<std::uint32_t, const char*> kAcceptedControls[] = {
    {platform::kServiceAcceptStop, "stop"},
    {platform::kServiceAcceptPauseContinue, "pause"},
    {platform::kServiceAcceptParameterChange, "parameters"}};

std::locale utf8Locale() {
    return {std::locale::classic(), new KestSupport::utf8_ctype};
}

}  // namespace

std::string stateWord(std::uint32_t state) {
    return state < std::size(kStates) ? kStates[state] : "state " + std::to_string(state);
}

std::string startWord(std::uint32_t startType) {
    for (const auto& [number, word] : kStartTypes) {
        if (number == startType) return word;
    }
    return std::to_string(startType);
}

std::optional<std::uint32_t> startTypeOf(std::string_view word) {
    for (const auto& [number, each] : kStartTypes) {
        if (each == word) return number;
    }
    return std::nullopt;
}

std::vector<std::string> controlWords(std::uint32_t accepted) {
    std::vector<std::string> words;
    for (const auto& [bit, word] : kAcceptedControls) {
        if ((accepted & bit) != 0) words.emplace_back(word);
    }
    return words;
}

std::string endText(const ServiceStatus& status) {
    if (status.exitCode == 0) return "no error";
    if (status.exitCode != platform::errorServiceSpecific) return errorText(status.exitCode);
    return "the service's own error " + std::to_string(status.serviceExitCode);
}

std::string listed(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& each : texts)
        all += (all.empty() ? "" : ", ") + each;
    return all;
}

std::optional<std::string> dependenciesOf(const std::string& names) {
    if (names.empty()) return names;
    std::string dependencies;
    for (std::size_t begin = 0; begin <= names.size();) {
        const std::size_t end = std::min(names.find(',', begin), names.size());
        if (end == begin) return std::nullopt;
        dependencies += names.substr(begin, end - begin) + '\0';
        begin = end + 1;
    }
    return dependencies;
}

KestSupport::wstring16 wideText(const std::string& text) {
    return KestSupport::KestStringUtilities::widen(text, utf8Locale());
}

std::string narrowText(const KestSupport::wstring16& text) {
    return KestSupport::KestStringUtilities::narrow(text, utf8Locale());
}

}  // namespace kestsc
