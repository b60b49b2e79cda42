#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/fault_seam.h"
#include "platform/posix/posix_code_pages.h"
#include "platform/posix/posix_utf8.h"
#include "platform/text.h"

namespace KestSupport::platform {
namespace {

// In front of the first unit, so that both the length and the text are aligned.
struct WideStringHeader {
    unsigned int bytes;
    unsigned int unused;
};

// The names that the library gives to its languages, and those of this system.
struct LocaleName {
    std::string_view name;
    const char* native[2];
};

constexpr LocaleName nativeLocaleNames[] = {
    {"german", {"de_DE.UTF-8", "de_DE"}},          {"english-us", {"en_US.UTF-8", "en_US"}},
    {"spanish-mexican", {"es_MX.UTF-8", "es_MX"}}, {"french", {"fr_FR.UTF-8", "fr_FR"}},
    {"japanese", {"ja_JP.UTF-8", "ja_JP"}},        {"chinese", {"zh_CN.UTF-8", "zh_CN"}},
    {"English", {"en_US.UTF-8", "en_US"}},
};

}  // namespace

std::size_t widenText(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                      std::size_t capacity) {
    if (codePage == codePageUtf8) return widenUtf8(text, length, dest, capacity);
    return widenCharset(codePage, text, length, dest, capacity);
}

std::size_t narrowText(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity) {
    if (codePage == codePageUtf8) return narrowUtf8(text, length, dest, capacity);
    return narrowCharset(codePage, text, length, dest, capacity);
}

unsigned short* allocateWideString(const char* data, unsigned int bytes) noexcept {
    // Three zero bytes end the text even when its length is odd.
    constexpr std::size_t terminator = 3;
    if (injectedFault("malloc") != 0) return nullptr;
    void* memory = std::malloc(sizeof(WideStringHeader) + bytes + terminator);
    if (memory == nullptr) return nullptr;
    auto* header = static_cast<WideStringHeader*>(memory);
    *header = {bytes, 0};
    char* text = reinterpret_cast<char*>(header + 1);
    if (data != nullptr) std::memcpy(text, data, bytes);
    std::memset(text + bytes, 0, terminator);
    return reinterpret_cast<unsigned short*>(text);
}

unsigned int wideStringBytes(const unsigned short* text) noexcept {
    return text == nullptr ? 0 : (reinterpret_cast<const WideStringHeader*>(text) - 1)->bytes;
}

void freeWideString(unsigned short* text) noexcept {
    if (text != nullptr) std::free(reinterpret_cast<WideStringHeader*>(text) - 1);
}

std::vector<std::string> localeNames(const std::string& name) {
    for (const LocaleName& row : nativeLocaleNames) {
        if (row.name == name) return {std::begin(row.native), std::end(row.native)};
    }
    return {};
}

}  // namespace KestSupport::platform
