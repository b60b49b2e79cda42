// The locales of the library: the default locale of the process, locales for a few languages, and the ISO codes of a
// locale's language and country.
//
// The library converts its own texts (of exceptions, notifications, log records) through getDefaultLocale(true).
//
// Threads: any thread may call any operation at any time, also in static constructors and destructors. They read the
// environment, so no other thread may change it at the same time.
#pragma once

#include <support/export.h>

#include <locale>
#include <string>

namespace KestSupport {

/// Static operations only.
class KEST_SUPPORT_EXPORT KestLocaleFactory {
  public:
    /// The languages of getLocale. GlobalC is the classic locale.
    enum Language : int { German, English, Spanish, French, Japanese, Chinese, GlobalC };

    /// Returns a copy of the default locale; with true, a copy with an ansi_ctype for the current environment. The
    /// default locale is the locale that the environment named when the library was loaded. If the system does not have
    /// it, the default locale is the classic locale.
    static std::locale getDefaultLocale(bool withAnsiFacet);

    /// Returns the locale of a language; for a value that is no Language, the locale "English". Throws
    /// std::runtime_error with the text "bad locale name" if the system does not have it. Few systems have a locale for
    /// GlobalC.
    ///
    /// Tries the portable names first ("german", "english-us"), then those of the system (de_DE.UTF-8, en_US.UTF-8).
    static std::locale getLocale(Language language);

    /// Returns the ISO code of the language: the locale's name up to its first '_', or the whole name without one. The
    /// name of a known language is replaced by its code:
    ///
    ///   locale                       language   country
    ///   German_Germany.1252          de         DE
    ///   de_AT.UTF-8                  de         AT
    ///   C                            C          C
    ///
    /// In a locale composed of categories, the name of LC_MESSAGES counts; if it names no language ("C"), the name of
    /// LC_CTYPE.
    static std::string getLanguage(const std::locale& locale);

    /// Returns the ISO code of the country: the same name after its first '_', or the whole name without one, up to the
    /// next '.'. The name of a known country is replaced by its code.
    static std::string getCountry(const std::locale& locale);
};

}  // namespace KestSupport
