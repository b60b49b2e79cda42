// The ANSI code page. Each character set and each locale is looked up once and stays in a list. The number of a code
// page is the position of its set in the list.
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

// Above the numbers of the code pages of other systems.
constexpr CodePage kFirstCodePage = 0x10000;

bool isUtf8(std::string_view charset) {
    std::string letters;
    for (const char c : charset) {
        if (c != '-') letters += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    }
    return letters == "utf8";
}

// Returns the character set in a name such as de_DE.ISO-8859-15@euro; empty if the name has none.
std::string statedCharset(const std::string& locale) {
    const std::size_t dot = locale.find('.');
    return dot == std::string::npos ? std::string() : locale.substr(dot + 1, locale.find('@', dot) - dot - 1);
}

// The character sets that were opened, with the names of the calls. The number of a code page is that of its set plus
// kFirstCodePage.
struct NamedSet {
    std::string name;
    std::unique_ptr<CharacterSet> set;
};
constinit ProcessList<NamedSet> g_sets;

// The code pages of the locales that the environment has named. The limit is above what a program reaches by chance.
struct LocaleCodePage {
    std::string locale;
    CodePage page;
};
constexpr std::uint32_t kMostLocales = 1000;
constinit ProcessList<LocaleCodePage> g_locales;

// Returns 0 for a character set that cannot be opened. The empty name is the set of C and POSIX.
CodePage codePageOfCharset(const std::string& charset) {
    const auto isOurs = [&charset](const NamedSet& known) { return known.name == charset; };
    const auto* entry = g_sets.find(isOurs);
    if (entry == nullptr) {
        std::unique_ptr<CharacterSet> set = charset.empty() ? SingleByteSet::windows1252() : openCharacterSet(charset);
        if (set == nullptr) return 0;
        entry = &g_sets.add(isOurs, NamedSet{charset, std::move(set)});
    }
    return kFirstCodePage + entry->number;
}

// Asks the system first, then the name of the locale.
CodePage findCodePage(const std::string& locale) {
    const std::string stated = statedCharset(locale);
    if (isUtf8(stated)) return kCodePageUtf8;
    for (const std::string& charset : {installedCharset(locale), stated}) {
        if (isUtf8(charset)) return kCodePageUtf8;
        if (charset.empty()) continue;
        if (const CodePage page = codePageOfCharset(charset); page != 0) return page;
    }
    return codePageOfCharset({});
}

}  // namespace

std::string_view environmentLocale() {
    // The order of the C runtime. An empty variable counts as absent.
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
    return g_locales.size() < kMostLocales ? g_locales.add(isOurs, found).value.page : found.page;
}

const CharacterSet& characterSet(CodePage codePage) {
    return *g_sets.at(codePage - kFirstCodePage).set;
}

}  // namespace KestSupport::platform
