// The agent's messages in the user's language. The catalogues are in the folder "messages" next to the program, or in
// $KEST_AGENT_MESSAGES.
//
// Threads: choose the language only while no other thread uses the messages.
#pragma once

#include <initializer_list>
#include <string>

namespace agent {

/// Loads the catalogues of the environment's language (LC_ALL, LC_MESSAGES, LANG), or the general catalogue when the
/// system does not have that locale. Throws KestException when there is no catalogue.
void speakTheUsersLanguage();

/// Loads the catalogues of the locale, such as de_CH or de_DE.UTF-8. Returns false when the system does not have it.
bool speak(const std::string& locale);

/// Returns the name of the current locale.
std::string spokenLocale();

/// Returns the message of the key, with %1, %2... replaced, in the character set of the environment. Throws
/// KestMissingMessageException for a key that is in no catalogue.
std::string say(const std::string& key, std::initializer_list<std::string> about = {});

}  // namespace agent
