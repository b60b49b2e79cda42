// The locales of the library: the default locale of the process, locales for a few languages, and the ISO codes of a
// locale's language and country.
//
// The library converts its own texts (of exceptions, notifications, log records) through getDefaultLocale(true).
//
// Threads: all operations may be called by any thread at any time, also from static constructors and destructors. As
// with every reader of the environment, no other thread may change it at the same time.
#pragma once

#include <support/export.h>

#include <locale>
#include <string>

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestLocaleFactory {
  public:
    enum Language : int { German, English, Spanish, French, Japanese, Chinese, GlobalC };

    /// A copy of the default locale, with an ansi_ctype for the present environment if one is asked for. The default
    /// locale is the user's, as the environment named it when the library was loaded; where the system does not have
    /// that one, it is the classic locale.
    static std::locale getDefaultLocale(bool withAnsiFacet);

    /// The locale of a language; for a value that is no Language, the locale "English". Throws std::runtime_error with
    /// "bad locale name" when the system does not have it. GlobalC is a locale that few systems know.
    ///
    /// The names in use ("german", "english-us") are tried as they are, then as the system's own (de_DE.UTF-8,
    /// en_US.UTF-8).
    static std::locale getLocale(Language language);

    /// The ISO code of the language: the locale's name up to its first '_' (all of it if there is none), as a code if
    /// it is a known language's name ("German" gives "de"), else as it is. In a locale that is composed of categories
    /// the name of LC_MESSAGES counts; where that is no language's ("C"), the name of LC_CTYPE.
    static std::string getLanguage(const std::locale& locale);

    /// The ISO code of the country: the locale's name between its first '_' (its start if there is none) and the next
    /// '.', as a code if it is a known country's name ("Germany" gives "DE"), else as it is. The name is the same as
    /// for the language.
    static std::string getCountry(const std::locale& locale);
};

}  // namespace KestSupport
