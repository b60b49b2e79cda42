#include "messages.h"

#include <support/exceptions.h>
#include <support/locales.h>
#include <support/message_sets.h>
#include <support/strings.h>

#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "system.h"

namespace agent {
namespace {

using KestSupport::KestLocaleFactory;
using KestSupport::KestMessageSet;
using KestSupport::KestStringUtilities;

std::optional<KestMessageSet> g_messages;

std::string folder() {
    if (const char* const chosen = std::getenv("KEST_AGENT_MESSAGES"); chosen != nullptr) return chosen;
    return programFolder() + "/messages";
}

void load(const std::locale& locale) {
    g_messages.emplace(folder() + "/kest-agent", locale);
}

std::optional<std::locale> systemLocale(const std::string& name) {
    for (const std::string& spelling : {name, name + ".UTF-8"}) {
        try {
            return std::locale(spelling);
        } catch (const std::runtime_error&) {
            continue;
        }
    }
    return std::nullopt;
}

std::string usersLocale() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

}  // namespace

void speakTheUsersLanguage() {
    load(systemLocale(usersLocale()).value_or(std::locale::classic()));
}

bool speak(const std::string& locale) {
    const auto found = systemLocale(locale);
    if (found) load(*found);
    return found.has_value();
}

std::string spokenLocale() {
    return g_messages->getLocale().name();
}

std::string say(const std::string& key, std::initializer_list<std::string> about) {
    const std::locale characterSet = KestLocaleFactory::getDefaultLocale(true);
    const std::string message =
        KestStringUtilities::narrow(g_messages->getString(KestStringUtilities::widen(key, characterSet)), characterSet);
    std::string said;
    for (std::size_t i = 0; i < message.size(); ++i) {
        const bool last = i + 1 == message.size();
        const std::size_t number = message[i] == '%' && !last ? static_cast<std::size_t>(message[i + 1] - '1') : 9;
        if (number >= about.size()) {
            said += message[i];
            continue;
        }
        said += about.begin()[number];
        ++i;
    }
    return said;
}

}  // namespace agent
