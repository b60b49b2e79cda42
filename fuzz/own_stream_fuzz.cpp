// Any bytes, read through a stream that is not the library's buffer. The first byte has the number of operations and
// the number of bytes that the stream delivers at once, the next bytes are the operations, and the rest is the content
// of the stream. No operation may request much more than the stream has delivered, for any length in the content.
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

constexpr std::size_t kFirstPiece = 64 * 1024;

void requireThat(bool condition) {
    if (!condition) std::abort();
}

class OwnStream : public KestInputObjectStream {
  public:
    OwnStream(std::string bytes, std::size_t atOnce) : m_bytes(std::move(bytes)), m_atOnce(atOnce) {}

    void reset() override {}
    std::size_t read(void* destination, std::size_t size, std::size_t count) override {
        requireThat(count <= std::max(kFirstPiece, m_delivered) / size);
        const std::size_t n = std::min({size * count, m_atOnce, m_bytes.size() - m_delivered});
        std::memcpy(destination, m_bytes.data() + m_delivered, n);
        m_delivered += n;
        return n;
    }
    std::size_t delivered() const { return m_delivered; }

  private:
    const std::string m_bytes;
    const std::size_t m_atOnce;
    std::size_t m_delivered = 0;
};

template <typename Number>
void readNumber(OwnStream& stream, std::size_t width) {
    const std::size_t before = stream.delivered();
    Number value{};
    stream >> value;
    requireThat(stream.delivered() - before <= width);
}

// A text must not have more units than bytes were delivered, except the one unit that it had before.
template <typename Text>
void readText(OwnStream& stream) {
    const std::size_t before = stream.delivered();
    Text text(1, 'x');
    stream >> text;
    requireThat(text.size() <= std::max<std::size_t>(1, stream.delivered() - before));
}

void readArray(OwnStream& stream) {
    const std::size_t before = stream.delivered();
    char* text = nullptr;
    stream >> text;
    const std::unique_ptr<char[]> owner(text);
    requireThat(text == nullptr || std::strlen(text) <= stream.delivered() - before);
}

void operate(OwnStream& stream, std::uint8_t operation) {
    switch (operation % 8) {
        case 0:
            return readNumber<bool>(stream, 4);
        case 1:
            return readNumber<signed char>(stream, 4);
        case 2:
            return readNumber<long>(stream, 4);
        case 3:
            return readNumber<long long>(stream, 8);
        case 4:
            return readText<std::string>(stream);
        case 5:
            return readText<wstring16>(stream);
        case 6:
            return readArray(stream);
        default:
            return readNumber<unsigned short>(stream, 2);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t operations = std::min<std::size_t>(data[0] & 0x0F, size - 1);
    const std::size_t atOnce = std::size_t{1} << (data[0] >> 4) * 2;
    const std::uint8_t* const bytes = data + 1 + operations;
    OwnStream stream(std::string(reinterpret_cast<const char*>(bytes), size - 1 - operations), atOnce);
    for (std::size_t i = 1; i <= operations; ++i)
        operate(stream, data[i]);
    return 0;
}
