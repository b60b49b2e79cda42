#include "platform/posix/posix_code_pages.h"

#include <langinfo.h>
#include <locale.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/posix_character_sets.h"

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

// The character set of a locale that the system has; empty for another.
std::string installedCharset(const std::string& locale) {
    const locale_t loaded = newlocale(LC_CTYPE_MASK, locale.c_str(), nullptr);
    if (loaded == nullptr) return {};
    const std::string charset = nl_langinfo_l(CODESET, loaded);
    freelocale(loaded);
    // What C and POSIX call theirs.
    return charset == "ANSI_X3.4-1968" ? std::string() : charset;
}

// The code pages met so far. A program meets one or two of them, so they are kept until it ends.
class CodePages {
  public:
    static CodePages& instance() {
        // Never destroyed: text is still converted while static objects are torn down.
        static auto* const pages = new CodePages;
        return *pages;
    }

    CodePage ofLocale(std::string_view locale) {
        const std::lock_guard lock(m_mutex);
        if (const auto known = m_byLocale.find(locale); known != m_byLocale.end()) return known->second;
        const std::string name(locale);
        const CodePage page = find(name);
        m_byLocale.emplace(name, page);
        return page;
    }

    const CharacterSet& set(CodePage page) {
        const std::lock_guard lock(m_mutex);
        return *m_sets.at(page - firstCodePage);
    }

  private:
    CodePages() { add(SingleByteSet::windows1252()); }

    CodePage add(std::unique_ptr<CharacterSet> set) {
        m_sets.push_back(std::move(set));
        return firstCodePage + static_cast<CodePage>(m_sets.size() - 1);
    }

    // What the system says of a locale that it has, else what the locale's name states.
    CodePage find(const std::string& locale) {
        const std::string stated = statedCharset(locale);
        if (isUtf8(stated)) return codePageUtf8;
        for (const std::string& charset : {installedCharset(locale), stated}) {
            if (isUtf8(charset)) return codePageUtf8;
            if (charset.empty()) continue;
            if (auto set = openCharacterSet(charset); set != nullptr) return add(std::move(set));
        }
        return firstCodePage;
    }

    std::mutex m_mutex;
    // Both guarded by m_mutex; the sets themselves never change.
    std::map<std::string, CodePage, std::less<>> m_byLocale;
    std::vector<std::unique_ptr<CharacterSet>> m_sets;
};

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
    return CodePages::instance().ofLocale(environmentLocale());
}

const CharacterSet& characterSet(CodePage codePage) {
    return CodePages::instance().set(codePage);
}

}  // namespace KestSupport::platform
