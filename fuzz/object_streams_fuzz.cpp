// Blocks of any bytes, read by any sequence of operations: the first byte is the number of operations, the next bytes
// are the operations, and the rest is the block. Then writes the block as values and reads them again.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/object_streams.h"

using namespace KestSupport;

namespace {

void requireThat(bool condition) {
    if (!condition) std::abort();
}

// Reads a number. It must take the bytes of its width, or all that are left.
template <typename Number>
void readNumber(KestBufferStream& stream, std::size_t width) {
    const std::size_t before = stream.size();
    Number value{};
    stream >> value;
    requireThat(stream.size() == before - std::min(before, width));
}

// Reads a text. It must not have more units than the bytes that were left, except the one unit that it had before.
template <typename Text>
void readText(KestBufferStream& stream) {
    const std::size_t before = stream.size();
    Text text(1, 'x');
    stream >> text;
    const std::size_t unit = sizeof(text[0]);
    requireThat(stream.size() <= before && text.size() * unit <= before + unit);
}

void readArray(KestBufferStream& stream) {
    const std::size_t before = stream.size();
    char* text = nullptr;
    stream >> text;
    const std::unique_ptr<char[]> owner(text);
    requireThat(text == nullptr || std::strlen(text) <= before);
}

// buffer and peek must show the same bytes, and a copy must have them too.
void look(KestBufferStream& stream) {
    const KestBufferStream copy(stream);
    std::string payload(stream.size(), '\0');
    requireThat(stream.peek(payload.data(), 1, payload.size() + 1) == payload.size());
    const unsigned char* const block = stream.buffer();
    std::uint32_t length = 0;
    std::memcpy(&length, block, sizeof length);
    requireThat(length == payload.size() && std::memcmp(block + 4, payload.data(), length) == 0);
    requireThat(copy.size() == length && std::memcmp(copy.buffer(), block, length + 4) == 0);
}

void operate(KestBufferStream& stream, std::uint8_t operation) {
    switch (operation % 12) {
        case 0:
            return readNumber<char>(stream, 1);
        case 1:
            return readNumber<unsigned short>(stream, 2);
        case 2:
            return readNumber<int>(stream, 4);
        case 3:
            return readNumber<long>(stream, 4);
        case 4:
            return readNumber<unsigned long>(stream, 4);
        case 5:
            return readNumber<double>(stream, 8);
        case 6:
            return readText<std::string>(stream);
        case 7:
            return readText<wstring16>(stream);
        case 8:
            return readArray(stream);
        case 9:
            return look(stream);
        case 10:
            stream << std::string(operation, 'y');
            return;
        default:
            stream << static_cast<unsigned short>(operation);
            return;
    }
}

void roundTrip(const std::string& bytes, unsigned long growBy) {
    const wstring16 wide(bytes.begin(), bytes.end());
    KestBufferStream stream(growBy);
    stream << bytes;
    stream << wide;
    stream << static_cast<long>(bytes.size());
    const KestBufferStream written(stream);
    KestBufferStream received(written.buffer(), static_cast<unsigned int>(written.size() + 4));
    std::string text;
    wstring16 units;
    long size = 0;
    received >> text;
    received >> units;
    received >> size;
    requireThat(text == bytes.c_str() && units == wide.c_str() && size == static_cast<long>(bytes.size()));
    requireThat(received.size() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t operations = std::min<std::size_t>(data[0], size - 1);
    // A copy of exactly that size, so that a sanitizer sees a read past the end.
    const std::string block(reinterpret_cast<const char*>(data + 1 + operations), size - 1 - operations);
    KestBufferStream stream(block.data(), static_cast<unsigned int>(block.size()));
    for (std::size_t i = 1; i <= operations; ++i)
        operate(stream, data[i]);
    roundTrip(block, data[0]);
    return 0;
}
