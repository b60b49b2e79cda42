#include "support/locales.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/process_memory.h"
#include "platform/text.h"
#include "platform/uninterrupted.h"
#include "support/strings.h"

namespace KestSupport {
namespace {

// Contains its texts, so that the loader has no pointer to relocate.
struct NamedCode {
    char name[27];
    char code[3];
};

constexpr NamedCode kLanguageCodes[] = {
    {"English", "en"}, {"German", "de"}, {"Spanish", "es"}, {"French", "fr"}, {"Japanese", "ja"}, {"Chinese", "zh"},
};

// Mexico has the code of Spain: there is one catalogue in Spanish.
constexpr NamedCode kCountryCodes[] = {
    {"United States", "US"}, {"Germany", "DE"}, {"Mexico", "ES"},
    {"France", "FR"},        {"Japan", "JP"},   {"People's Republic of China", "CN"},
    {"Taiwan", "TW"},
};

// Indexed by KestLocaleFactory::Language.
constexpr char kLocaleNames[][16] = {"german",   "english-us", "spanish-mexican", "french",
                                     "japanese", "chinese",    "globalc"};

// The languages without an ANSI code page. No locale can be made for them, so the global locale is used.
constexpr std::uint32_t kLocalesServedByGlobal[] = {
    0x042B, 0x0437, 0x0439, 0x0445, 0x0446, 0x0447, 0x0448, 0x0449, 0x044A, 0x044B, 0x044C, 0x044D, 0x044E, 0x044F,
    0x0451, 0x0453, 0x0454, 0x0457, 0x045A, 0x045B, 0x045D, 0x045E, 0x0461, 0x0465, 0x0478, 0x0850, 0x0851};

template <std::size_t Size>
std::string codeOf(const NamedCode (&table)[Size], std::string_view name) {
    const auto* row = std::find_if(table, table + Size, [&](const NamedCode& r) { return r.name == name; });
    return std::string(row == table + Size ? name : row->code);
}

// Returns the part of a category in a name composed of categories ("LC_CTYPE=de_DE.UTF-8;LC_NUMERIC=C;..."); empty if
// the name has none.
std::string_view partOf(std::string_view name, std::string_view category) {
    while (!name.empty()) {
        const std::string_view part = name.substr(0, name.find(';'));
        if (part.substr(0, category.size()) == category) return part.substr(category.size());
        name.remove_prefix(std::min(part.size() + 1, name.size()));
    }
    return {};
}

bool namesALanguage(std::string_view name) {
    const std::string_view language = name.substr(0, name.find('.'));
    return !language.empty() && language != "C" && language != "POSIX";
}

// Returns the name that determines language and country.
std::string decidingName(const std::locale& locale) {
    const std::string name = locale.name();
    const std::string_view messages = partOf(name, "LC_MESSAGES=");
    const std::string_view characters = partOf(name, "LC_CTYPE=");
    const std::string_view deciding = namesALanguage(messages) || characters.empty() ? messages : characters;
    return deciding.empty() ? name : std::string(deciding);
}

// The runtime holds a lock while it reads a locale.
std::locale namedLocale(const char* name) {
    const platform::RuntimeCall call;
    return std::locale(name);
}

// Returns the name that the environment gives to all categories; empty if it may give them different names.
std::string nameOfEnvironment() {
    const auto valueOf = [](const char* variable) -> std::string {
        const char* const value = std::getenv(variable);
        return value == nullptr ? "" : value;
    };
    if (std::string all = valueOf("LC_ALL"); !all.empty()) return all;
    for (const char* category : {"LC_COLLATE", "LC_CTYPE", "LC_MESSAGES", "LC_MONETARY", "LC_NUMERIC", "LC_TIME"}) {
        if (!valueOf(category).empty()) return {};
    }
    const std::string language = valueOf("LANG");
    return language.empty() ? "C" : language;
}

std::locale makeDefaultLocale() {
    try {
        const std::locale locale = namedLocale("");
        if (!locale.name().empty()) return locale;
        // libc++ gives the locale of the environment no name, but the name determines language and country.
        const std::string name = nameOfEnvironment();
        return name.empty() ? locale : namedLocale(name.c_str());
    } catch (const std::runtime_error&) {
        const auto* end = std::end(kLocalesServedByGlobal);
        const bool served = std::find(std::begin(kLocalesServedByGlobal), end, platform::userLocaleId()) != end;
        return served ? std::locale() : std::locale::classic();
    }
}

// Never destroyed at exit: destructors of static objects in other files may still throw exceptions, which use it.
constinit platform::ProcessObject<std::locale> g_defaultLocale;

const std::locale& defaultLocale() {
    return g_defaultLocale.get([] { return std::make_unique<std::locale>(makeDefaultLocale()); });
}

// Builds the default locale when the library is loaded.
[[maybe_unused]] const std::locale& builtAtLoad = defaultLocale();

// The default locale with the facet of a code page. There is one for each code page that the environment has named,
// because to construct a locale takes longer than most conversions.
struct AnsiLocale {
    platform::CodePage codePage;
    ansi_ctype facet{1};  // with one reference, so that the locale does not delete it
    std::locale locale{defaultLocale(), &facet};
};
constinit platform::ProcessList<std::unique_ptr<AnsiLocale>> g_ansiLocales;

const std::locale& ansiLocale() {
    const platform::CodePage codePage = platform::ansiCodePage();
    const auto isOurs = [codePage](const auto& known) { return known->codePage == codePage; };
    const auto* entry = g_ansiLocales.find(isOurs);
    if (entry == nullptr) entry = &g_ansiLocales.add(isOurs, std::unique_ptr<AnsiLocale>(new AnsiLocale{codePage}));
    return entry->value->locale;
}

}  // namespace

std::locale KestLocaleFactory::getDefaultLocale(bool withAnsiFacet) {
    if (!withAnsiFacet) return defaultLocale();
    return ansiLocale();
}

std::locale KestLocaleFactory::getLocale(Language language) {
    const auto index = static_cast<unsigned>(language);
    const std::string name = index < std::size(kLocaleNames) ? kLocaleNames[index] : "English";
    std::vector<std::string> candidates = platform::localeNames(name);
    candidates.insert(candidates.begin(), name);
    for (const std::string& candidate : candidates) {
        try {
            return namedLocale(candidate.c_str());
        } catch (const std::runtime_error&) {
            // Try the next name.
        }
    }
    throw std::runtime_error("bad locale name");
}

std::string KestLocaleFactory::getLanguage(const std::locale& locale) {
    const std::string name = decidingName(locale);
    return codeOf(kLanguageCodes, std::string_view(name).substr(0, name.find('_')));
}

std::string KestLocaleFactory::getCountry(const std::locale& locale) {
    const std::string name = decidingName(locale);
    const std::size_t separator = name.find('_');
    std::string_view country = name;
    if (separator != std::string::npos) country.remove_prefix(separator + 1);
    return codeOf(kCountryCodes, country.substr(0, country.find('.')));
}

}  // namespace KestSupport
