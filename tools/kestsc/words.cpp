#include "words.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <locale>
#include <numeric>
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

constexpr std::pair<std::uint32_t, const char*> kRestarts[] = {{platform::kServiceRestartNever, "never"},
                                                               {platform::kServiceRestartOnFailure, "on-failure"},
                                                               {platform::kServiceRestartAlways, "always"}};

constexpr std::pair<std::uint32_t, const char*> kControlWords[] = {
    {platform::kServiceControlPause, "pause"},
    {platform::kServiceControlContinue, "continue"},
    {platform::kServiceControlInterrogate, "interrogate"},
    {platform::kServiceControlParameterChange, "reload"}};

constexpr std::pair<std::uint32_t, const char*> kWaitStates[] = {{platform::kServiceStopped, "stopped"},
                                                                 {platform::kServiceRunning, "running"},
                                                                 {platform::kServicePaused, "paused"}};

template <std::size_t size>
std::optional<std::uint32_t> numberIn(const std::pair<std::uint32_t, const char*> (&table)[size],
                                      std::string_view word) {
    for (const auto& [number, each] : table) {
        if (each == word) return number;
    }
    return std::nullopt;
}

template <std::size_t size>
std::string wordIn(const std::pair<std::uint32_t, const char*> (&table)[size], std::uint32_t wanted) {
    for (const auto& [number, word] : table) {
        if (number == wanted) return word;
    }
    return std::to_string(wanted);
}

constexpr std::pair<std::uint32_t, const char*> kAcceptedControls[] = {
    {platform::kServiceAcceptStop, "stop"},
    {platform::kServiceAcceptPauseContinue, "pause"},
    {platform::kServiceAcceptParameterChange, "parameters"}};

std::locale utf8Locale() {
    return {std::locale::classic(), new KestSupport::utf8_ctype};
}

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// Returns the fewest characters to insert, delete or replace that turn one word into the other. Case does not matter.
std::size_t distanceBetween(std::string_view one, std::string_view other) {
    std::vector<std::size_t> costs(other.size() + 1);
    std::iota(costs.begin(), costs.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(costs[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (lowered(one[i]) == lowered(other[j]) ? 0 : 1);
            diagonal = costs[j + 1];
            costs[j + 1] = std::min({replaced, diagonal + 1, costs[j] + 1});
        }
    }
    return costs.back();
}

}  // namespace

std::string stateWord(std::uint32_t state) {
    return state < std::size(kStates) ? kStates[state] : "state " + std::to_string(state);
}

std::string startWord(std::uint32_t startType) {
    return wordIn(kStartTypes, startType);
}

std::optional<std::uint32_t> startTypeOf(std::string_view word) {
    return numberIn(kStartTypes, word);
}

std::string restartWord(std::uint32_t restart) {
    return wordIn(kRestarts, restart);
}

std::optional<std::uint32_t> restartOf(std::string_view word) {
    return numberIn(kRestarts, word);
}

std::optional<std::uint32_t> stateOf(std::string_view word) {
    return numberIn(kWaitStates, word);
}

std::optional<std::uint32_t> controlOf(const std::string& word) {
    if (const auto control = numberIn(kControlWords, word)) return control;
    const std::optional<std::uint32_t> number = wholeNumber(word);
    const bool isOfUser =
        number && *number >= platform::kServiceControlFirstOfUser && *number <= platform::kServiceControlLastOfUser;
    return isOfUser ? number : std::nullopt;
}

std::optional<std::uint32_t> wholeNumber(std::string_view text) {
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
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

std::string endText(const ServiceStatus& status, const ServiceRun& run) {
    std::string text = endText(status);
    if (status.exitCode != platform::errorProcessAborted) return text;
    if (run.exitCode) {
        const bool isSignal = *run.exitCode < 0;
        text +=
            isSignal ? "; signal " + std::to_string(-*run.exitCode) : "; exit code " + std::to_string(*run.exitCode);
    }
    return run.endRequested ? text + "; killed on request" : text;
}

std::string shortEndText(const ServiceStatus& status, const ServiceRun& run) {
    if (status.exitCode == 0) return "ok";
    if (status.exitCode == platform::errorServiceNeverStarted) return "never started";
    if (status.exitCode == platform::errorServiceSpecific) return "own " + std::to_string(status.serviceExitCode);
    const bool isKnown = status.exitCode == platform::errorProcessAborted && run.exitCode;
    if (!isKnown) return "error " + std::to_string(status.exitCode);
    return *run.exitCode < 0 ? "signal " + std::to_string(-*run.exitCode) : "exit " + std::to_string(*run.exitCode);
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

std::string suggestionFor(const std::string& word, const std::vector<std::string>& known) {
    std::size_t nearest = 2;
    std::string suggestions;
    for (const std::string& name : known) {
        const bool begins = word.size() >= 2 && name.starts_with(word);
        const std::size_t distance = begins ? 1 : distanceBetween(word, name);
        if (distance >= std::min(name.size(), word.size()) || distance > nearest) continue;
        if (distance < nearest) suggestions.clear();
        nearest = distance;
        suggestions.append(suggestions.empty() ? "; did you mean " : " or ").append(name);
    }
    return suggestions.empty() ? "" : suggestions + "?";
}

}  // namespace kestsc
