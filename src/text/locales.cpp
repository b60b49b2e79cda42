#include "support/locales.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "platform/text.h"
#include "support/strings.h"

namespace KestSupport {
namespace {

struct NamedCode {
    std::string_view name;
    std::string_view code;
};

constexpr NamedCode languageCodes[] = {
    {"English", "en"}, {"German", "de"}, {"Spanish", "es"}, {"French", "fr"}, {"Japanese", "ja"}, {"Chinese", "zh"},
};

// Mexico goes by Spain's code: the catalogues in Spanish are one.
constexpr NamedCode countryCodes[] = {
    {"United States", "US"}, {"Germany", "DE"}, {"Mexico", "ES"},
    {"France", "FR"},        {"Japan", "JP"},   {"People's Republic of China", "CN"},
    {"Taiwan", "TW"},
};

// Indexed by KestLocaleFactory::Language.
constexpr const char* localeNames[] = {"german",   "english-us", "spanish-mexican", "french",
                                       "japanese", "chinese",    "globalc"};

template <std::size_t Size>
std::string codeOf(const NamedCode (&table)[Size], std::string_view name) {
    const auto* row = std::find_if(table, table + Size, [&](const NamedCode& r) { return r.name == name; });
    return std::string(row == table + Size ? name : row->code);
}

std::locale makeDefaultLocale() {
    try {
        return std::locale("");
    } catch (const std::runtime_error&) {
        return std::locale::classic();
    }
}

// Never destroyed: exceptions are still made while the static objects of other files are torn down.
const std::locale& defaultLocale() {
    static const auto* const instance = new std::locale(makeDefaultLocale());
    return *instance;
}

// Has the default locale built when the library is loaded.
[[maybe_unused]] const std::locale& builtAtLoad = defaultLocale();

}  // namespace

std::locale KestLocaleFactory::getDefaultLocale(bool withAnsiFacet) {
    if (!withAnsiFacet) return defaultLocale();
    return std::locale(defaultLocale(), new ansi_ctype);
}

std::locale KestLocaleFactory::getLocale(Language language) {
    const auto index = static_cast<unsigned>(language);
    const std::string name = index < std::size(localeNames) ? localeNames[index] : "English";
    std::vector<std::string> candidates = platform::localeNames(name);
    candidates.insert(candidates.begin(), name);
    for (const std::string& candidate : candidates) {
        try {
            return std::locale(candidate.c_str());
        } catch (const std::runtime_error&) {
            // The next one may be known.
        }
    }
    throw std::runtime_error("bad locale name");
}

std::string KestLocaleFactory::getLanguage(const std::locale& locale) {
    const std::string name = locale.name();
    return codeOf(languageCodes, std::string_view(name).substr(0, name.find('_')));
}

std::string KestLocaleFactory::getCountry(const std::locale& locale) {
    const std::string name = locale.name();
    const std::size_t separator = name.find('_');
    std::string_view country = name;
    if (separator != std::string::npos) country.remove_prefix(separator + 1);
    return codeOf(countryCodes, country.substr(0, country.find('.')));
}

}  // namespace KestSupport
