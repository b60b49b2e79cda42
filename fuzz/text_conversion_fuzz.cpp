// Converts the input as UTF-8, as UTF-16 and as text of the ANSI code page, which the first byte chooses.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <locale>
#include <string>
#include <vector>

#include "kit/environment_guard.h"
#include "platform/text.h"
#include "support/strings.h"

namespace {

using namespace KestSupport;
using platform::CodePage;

void require(bool condition) {
    if (!condition) std::abort();
}

CodePage codePageFor(std::uint8_t choice) {
    static const char* const locales[] = {"C", "de_DE.ISO-8859-15", "ja_JP.eucJP", "zh_CN.GB18030", "C.UTF-8"};
    static kit::EnvironmentGuard environment;
    environment.set("LC_ALL", locales[choice % std::size(locales)]);
    return platform::ansiCodePage();
}

// Uses allocations of exactly the allowed size, so that a sanitizer finds each access beyond them.
wstring16 widen(CodePage page, const std::string& text) {
    std::vector<unsigned short> units(4 * text.size());
    const std::size_t written = platform::widenText(page, text.data(), text.size(), units.data(), units.size());
    require(written <= units.size());
    std::vector<unsigned short> exact(written);
    require(platform::widenText(page, text.data(), text.size(), exact.data(), written) == written);
    return {units.data(), written};
}

std::string narrow(CodePage page, const wstring16& units) {
    std::vector<char> text(4 * units.size());
    const std::size_t written = platform::narrowText(page, units.data(), units.size(), text.data(), text.size());
    require(written <= text.size());
    std::vector<char> exact(written);
    require(platform::narrowText(page, units.data(), units.size(), exact.data(), written) == written);
    return {text.data(), written};
}

template <typename String>
String upToZero(const String& text) {
    return text.substr(0, std::min(text.find(typename String::value_type(0)), text.size()));
}

// The result of a conversion is valid text, so converting it there and back must not change it.
void checkStable(CodePage page, const std::string& text, const wstring16& units) {
    const wstring16 once = widen(page, text);
    require(widen(page, narrow(page, once)) == once);
    const std::string bytes = narrow(page, units);
    require(narrow(page, widen(page, bytes)) == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const CodePage ansi = codePageFor(data[0]);
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    wstring16 units(text.size() / 2, 0);
    std::memcpy(units.data(), text.data(), 2 * units.size());

    checkStable(platform::kCodePageUtf8, text, units);
    widen(ansi, text);
    narrow(ansi, units);

    static const std::locale utf8(std::locale::classic(), new utf8_ctype);
    const std::locale user(std::locale::classic(), new ansi_ctype);
    require(KestStringUtilities::widen(text, utf8) == upToZero(widen(platform::kCodePageUtf8, text)));
    require(KestStringUtilities::narrow(units, utf8) == upToZero(narrow(platform::kCodePageUtf8, units)));
    require(KestStringUtilities::widen(text, user) == widen(ansi, upToZero(text)));
    require(KestStringUtilities::narrow(units, user) == narrow(ansi, upToZero(units)));
    return 0;
}
