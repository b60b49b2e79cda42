// What the agent says, in the user's language: catalogues of messages lie in the folder "messages" beside the program,
// or in $KEST_AGENT_MESSAGES.
//
// The language is chosen before other threads run, and only read afterwards.
#pragma once

#include <initializer_list>
#include <string>

namespace agent {

/// Takes the catalogues of the environment's language (LC_ALL, LC_MESSAGES, LANG); of a locale that the system does not
/// have, the general ones. Throws KestException when there is no catalogue.
void speakTheUsersLanguage();

/// Takes those of the locale, such as de_CH or de_DE.UTF-8; false when the system does not have it.
bool speak(const std::string& locale);

/// The name of the locale in use.
std::string spokenLocale();

/// The message with %1, %2... replaced, in the character set of the environment. Throws KestMissingMessageException for
/// a key that no catalogue has.
std::string say(const std::string& key, std::initializer_list<std::string> about = {});

}  // namespace agent
