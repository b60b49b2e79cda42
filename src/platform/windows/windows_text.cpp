// The system's code pages. UTF-8 is converted by the common code, since the system's own differs at text that is cut
// off or broken.

#include <algorithm>

#include "platform/common/surrogates.h"
#include "platform/common/utf8.h"
#include "platform/text.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

// The system counts by int. A piece ends between two characters. Its result fits into the room: a unit of the source
// becomes at most four bytes.
constexpr std::size_t kPiece = std::size_t{1} << 28;
constexpr std::size_t kMostRoom = 4 * kPiece;

const wchar_t* systemUnits(const unsigned short* text) noexcept {
    return reinterpret_cast<const wchar_t*>(text);
}

std::size_t narrowPiece(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                        std::size_t capacity) {
    const int room = static_cast<int>(std::min(capacity, kMostRoom));
    return static_cast<std::size_t>(WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, systemUnits(text),
                                                        static_cast<int>(length), dest, room, "?", nullptr));
}

std::size_t widenPiece(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                       std::size_t capacity) {
    const int room = static_cast<int>(std::min(capacity, kMostRoom));
    return static_cast<std::size_t>(
        MultiByteToWideChar(codePage, 0, text, static_cast<int>(length), reinterpret_cast<wchar_t*>(dest), room));
}

// Of a text of more than one piece.
std::size_t endOfPiece(CodePage, const unsigned short* text, std::size_t length) noexcept {
    return isHighSurrogate(text[length - 1]) ? length - 1 : length;
}

std::size_t endOfPiece(CodePage codePage, const char* text, std::size_t length) noexcept {
    std::size_t end = length;
    while (end > 0 && IsDBCSLeadByteEx(codePage, static_cast<BYTE>(text[end - 1])))
        --end;
    return end == 0 || (length - end) % 2 == 0 ? length : length - 1;
}

template <typename Unit, typename Result, typename Convert>
std::size_t convertPieces(CodePage codePage, const Unit* text, std::size_t length, Result* dest, std::size_t capacity,
                          const Convert& convert) {
    std::size_t written = 0;
    while (length > 0) {
        const std::size_t piece = length <= kPiece ? length : endOfPiece(codePage, text, kPiece);
        if (written == capacity) return 0;
        const std::size_t units = convert(codePage, text, piece, dest + written, capacity - written);
        if (units == 0) return 0;
        written += units;
        text += piece;
        length -= piece;
    }
    return written;
}

}  // namespace

CodePage ansiCodePage() {
    return GetACP();
}

std::size_t widenText(CodePage codePage, const char* text, std::size_t length, unsigned short* dest,
                      std::size_t capacity) {
    if (codePage == kCodePageUtf8) return widenUtf8(text, length, dest, capacity);
    return convertPieces(codePage, text, length, dest, capacity, widenPiece);
}

std::size_t narrowText(CodePage codePage, const unsigned short* text, std::size_t length, char* dest,
                       std::size_t capacity) {
    if (codePage == kCodePageUtf8) return narrowUtf8(text, length, dest, capacity);
    return convertPieces(codePage, text, length, dest, capacity, narrowPiece);
}

unsigned short* allocateWideString(const char* data, unsigned int bytes) noexcept {
    if (injectedFault("allocateWideString") != 0) return nullptr;
    return reinterpret_cast<unsigned short*>(SysAllocStringByteLen(data, bytes));
}

unsigned int wideStringBytes(const unsigned short* text) noexcept {
    return SysStringByteLen(reinterpret_cast<BSTR>(const_cast<unsigned short*>(text)));
}

void freeWideString(unsigned short* text) noexcept {
    SysFreeString(reinterpret_cast<BSTR>(text));
}

// The runtime knows the library's names itself, where it has named locales at all.
std::vector<std::string> localeNames(const std::string&) {
    return {};
}

std::uint32_t userLocaleId() {
    return GetUserDefaultLCID();
}

}  // namespace KestSupport::platform
