#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/common/fault_seam.h"
#include "platform/common/utf8.h"
#include "platform/emulated/code_pages.h"
#include "platform/text.h"

namespace KestSupport::platform {
namespace {

// Before the first unit, so that both the length and the text are aligned.
struct WideStringHeader {
    unsigned int bytes;
    unsigned int unused;
};

// The locales whose languages no ANSI code page has ever covered, with the ids of the platform that the interface of
// the library was made for.
struct LocaleId {
    char name[8];
    std::uint32_t id;
};

constexpr LocaleId kLocaleIds[] = {
    {"hy_AM", 0x042B},  {"ka_GE", 0x0437}, {"hi_IN", 0x0439}, {"bn_IN", 0x0445}, {"pa_IN", 0x0446}, {"gu_IN", 0x0447},
    {"or_IN", 0x0448},  {"ta_IN", 0x0449}, {"te_IN", 0x044A}, {"kn_IN", 0x044B}, {"ml_IN", 0x044C}, {"as_IN", 0x044D},
    {"mr_IN", 0x044E},  {"sa_IN", 0x044F}, {"bo_CN", 0x0451}, {"km_KH", 0x0453}, {"lo_LA", 0x0454}, {"kok_IN", 0x0457},
    {"syr_SY", 0x045A}, {"si_LK", 0x045B}, {"iu_CA", 0x045D}, {"am_ET", 0x045E}, {"ne_NP", 0x0461}, {"dv_MV", 0x0465},
    {"ii_CN", 0x0478},  {"mn_CN", 0x0850}, {"dz_BT", 0x0851},
};

}  // namespace

std::size_t widenText(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                      std::size_t capacity) {
    if (codePage == kCodePageUtf8) return widenUtf8(text, length, dest, capacity);
    return characterSet(codePage).widen(text, length, dest, capacity);
}

std::size_t narrowText(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity) {
    if (codePage == kCodePageUtf8) return narrowUtf8(text, length, dest, capacity);
    return characterSet(codePage).narrow(text, length, dest, capacity);
}

unsigned short* allocateWideString(const char* data, unsigned int bytes) noexcept {
    // Three zero bytes end the text even when its length is odd.
    constexpr std::size_t kTerminator = 3;
    if (injectedFault("allocateWideString") != 0) return nullptr;
    void* memory = std::malloc(sizeof(WideStringHeader) + bytes + kTerminator);
    if (memory == nullptr) return nullptr;
    auto* header = static_cast<WideStringHeader*>(memory);
    *header = {bytes, 0};
    char* text = reinterpret_cast<char*>(header + 1);
    if (data != nullptr) std::memcpy(text, data, bytes);
    std::memset(text + bytes, 0, kTerminator);
    return reinterpret_cast<unsigned short*>(text);
}

unsigned int wideStringBytes(const unsigned short* text) noexcept {
    return text == nullptr ? 0 : (reinterpret_cast<const WideStringHeader*>(text) - 1)->bytes;
}

void freeWideString(unsigned short* text) noexcept {
    if (text != nullptr) std::free(reinterpret_cast<WideStringHeader*>(text) - 1);
}

std::uint32_t userLocaleId() {
    const std::string_view locale = environmentLocale();
    const std::string_view name = locale.substr(0, locale.find_first_of(".@"));
    for (const LocaleId& row : kLocaleIds) {
        if (row.name == name) return row.id;
    }
    return 0;
}

}  // namespace KestSupport::platform
