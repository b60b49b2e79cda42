#include "platform/emulated/code_pages.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/emulated/single_byte_set.h"
#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

// The first of the numbers that no code page of another system has.
constexpr CodePage firstCodePage = 0x10000;

bool isUtf8(std::string_view charset) {
    std::string letters;
    for (const char c : charset) {
        if (c != '-') letters += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    }
    return letters == "utf8";
}

// The character set in a name such as de_DE.ISO-8859-15@euro; empty when the name has none.
std::string statedCharset(const std::string& locale) {
    const std::size_t dot = locale.find('.');
    return dot == std::string::npos ? std::string() : locale.substr(dot + 1, locale.find('@', dot) - dot - 1);
}

// The character sets that were opened, by the name that each was opened by. A code page's number is that of its set,
// counted from firstCodePage.
struct NamedSet {
    std::string name;
    std::unique_ptr<CharacterSet> set;
};
constinit ProcessList<NamedSet> g_sets;

// The code pages of the locales that the environment has named, up to a number that no program reaches by chance.
struct LocaleCodePage {
    std::string locale;
    CodePage page;
};
constexpr std::uint32_t mostLocales = 1000;
constinit ProcessList<LocaleCodePage> g_locales;

// The set of C and POSIX has no name in g_sets. Returns 0 for a character set that cannot be opened.
CodePage codePageOfCharset(const std::string& charset) {
    const auto isOurs = [&charset](const NamedSet& known) { return known.name == charset; };
    const auto* entry = g_sets.find(isOurs);
    if (entry == nullptr) {
        std::unique_ptr<CharacterSet> set = charset.empty() ? SingleByteSet::windows1252() : openCharacterSet(charset);
        if (set == nullptr) return 0;
        entry = &g_sets.add(isOurs, NamedSet{charset, std::move(set)});
    }
    return firstCodePage + entry->number;
}

// What the system says of a locale that it has, else what the locale's name states.
CodePage findCodePage(const std::string& locale) {
    const std::string stated = statedCharset(locale);
    if (isUtf8(stated)) return codePageUtf8;
    for (const std::string& charset : {installedCharset(locale), stated}) {
        if (isUtf8(charset)) return codePageUtf8;
        if (charset.empty()) continue;
        if (const CodePage page = codePageOfCharset(charset); page != 0) return page;
    }
    return codePageOfCharset({});
}

}  // namespace

std::string_view environmentLocale() {
    // The order in which the C runtime looks; an empty variable counts as absent.
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

CodePage ansiCodePage() {
    const std::string_view locale = environmentLocale();
    const auto isOurs = [locale](const LocaleCodePage& known) { return known.locale == locale; };
    if (const auto* const known = g_locales.find(isOurs)) return known->value.page;
    LocaleCodePage found{std::string(locale), 0};
    found.page = findCodePage(found.locale);
    return g_locales.size() < mostLocales ? g_locales.add(isOurs, found).value.page : found.page;
}

const CharacterSet& characterSet(CodePage codePage) {
    return *g_sets.at(codePage - firstCodePage).set;
}

}  // namespace KestSupport::platform
