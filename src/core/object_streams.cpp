#include "support/object_streams.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "platform/fault_seam.h"

namespace KestSupport {
namespace {

static_assert(std::endian::native == std::endian::little, "values go into the stream as they lie in memory");

constexpr std::size_t kMostBytes = std::numeric_limits<std::uint32_t>::max();
// Texts up to here are read by way of the stack.
constexpr std::uint64_t kShortText = 256;

// More than any stream holds when the product does not fit.
std::size_t byteCount(std::size_t size, std::size_t count) noexcept {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    // A division costs as much as all the rest of a small write.
    if (((size | count) >> 32) == 0) return size * count;
    return size != 0 && count > most / size ? most : size * count;
}

template <typename Value>
KestObjectStream& writeValue(KestOutputObjectStream& stream, Value value) {
    stream.write(&value, sizeof value, 1);
    return stream;
}

template <typename Unit>
KestObjectStream& writeText(KestOutputObjectStream& stream, const Unit* text, std::uint64_t length) {
    writeValue(stream, length);
    if (length != 0) stream.write(text, sizeof(Unit), length);
    return stream;
}

template <typename Value>
KestObjectStream& readValue(KestInputObjectStream& stream, Value& value) {
    stream.read(&value, sizeof value, 1);
    return stream;
}

// A long as the stream has it. One of which nothing comes keeps all of its bytes, those too that the stream has no room
// for.
template <typename Wire, typename Long>
KestObjectStream& readLong(KestInputObjectStream& stream, Long& value) {
    const Wire before = static_cast<Wire>(value);
    Wire wire = before;
    const std::size_t delivered = stream.read(&wire, sizeof wire, 1);
    if (delivered != 0 || wire != before) value = wire;
    return stream;
}

}  // namespace

KestObjectStream::~KestObjectStream() = default;
KestInputObjectStream::~KestInputObjectStream() = default;
KestOutputObjectStream::~KestOutputObjectStream() = default;

KestObjectStream& KestOutputObjectStream::operator<<(char value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(unsigned char value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(int value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(unsigned int value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(short value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(unsigned short value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(float value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(double value) {
    return writeValue(*this, value);
}
KestObjectStream& KestOutputObjectStream::operator<<(long value) {
    return writeValue(*this, static_cast<std::int32_t>(value));
}
KestObjectStream& KestOutputObjectStream::operator<<(unsigned long value) {
    return writeValue(*this, static_cast<std::uint32_t>(value));
}
KestObjectStream& KestOutputObjectStream::operator<<(const char* text) {
    return writeText(*this, text, text == nullptr ? 0 : std::strlen(text));
}
KestObjectStream& KestOutputObjectStream::operator<<(const std::string& text) {
    return *this << text.c_str();
}
KestObjectStream& KestOutputObjectStream::operator<<(const wstring16& text) {
    return writeText(*this, text.data(), text.size());
}

KestObjectStream& KestInputObjectStream::operator>>(char& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(unsigned char& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(int& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(unsigned int& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(short& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(unsigned short& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(float& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(double& value) {
    return readValue(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(long& value) {
    return readLong<std::int32_t>(*this, value);
}
KestObjectStream& KestInputObjectStream::operator>>(unsigned long& value) {
    return readLong<std::uint32_t>(*this, value);
}
// The number of units that a text of the given length can have at the most.
std::uint64_t KestInputObjectStream::unitsThere(std::uint64_t length, std::size_t unitSize) {
    const auto* const buffer = dynamic_cast<const KestBufferStream*>(this);
    if (buffer == nullptr) return length;
    const KestCriticalSection guard(buffer->m_lock, true);
    return std::min<std::uint64_t>(length, (buffer->size() + unitSize - 1) / unitSize);
}

// The units of a text of that length, and a 0 behind them. What does not come is 0.
template <typename Unit>
std::unique_ptr<Unit[]> KestInputObjectStream::readUnits(std::uint64_t length) {
    length = unitsThere(length, sizeof(Unit));
    if (length >= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Unit)) throw std::bad_array_new_length();
    std::unique_ptr<Unit[]> units(new Unit[length + 1]());
    if (length != 0) read(units.get(), sizeof(Unit), length);
    return units;
}

template <typename Text>
KestObjectStream& KestInputObjectStream::readText(Text& text) {
    using Unit = typename Text::value_type;
    std::uint64_t length = 0;
    readValue(*this, length);
    if (length == 0) return *this;
    if (length > kShortText) {
        text = readUnits<Unit>(length).get();
        return *this;
    }
    Unit units[kShortText + 1];
    std::fill_n(units, length + 1, Unit{});
    read(units, sizeof(Unit), length);
    text = units;
    return *this;
}

KestObjectStream& KestInputObjectStream::operator>>(char*& text) {
    std::uint64_t length = 0;
    readValue(*this, length);
    if (length != 0) text = readUnits<char>(length).release();
    return *this;
}
KestObjectStream& KestInputObjectStream::operator>>(std::string& text) {
    return readText(text);
}
KestObjectStream& KestInputObjectStream::operator>>(wstring16& text) {
    return readText(text);
}

KestBufferStream::KestBufferStream() noexcept = default;

KestBufferStream::KestBufferStream(unsigned long growBy) noexcept
    : m_growBy(growBy == 0 ? kDefaultGrowBy : static_cast<std::uint32_t>(std::min(growBy, kMostBytes))) {}

KestBufferStream::KestBufferStream(const void* data, unsigned int size) noexcept : KestBufferStream(size) {
    if (data == nullptr || size < kHeaderSize) return;
    takeBlock(static_cast<const unsigned char*>(data) + kHeaderSize, size - kHeaderSize, size);
}

KestBufferStream::KestBufferStream(const KestBufferStream& other) noexcept
    : KestInputObjectStream(), KestOutputObjectStream(), m_growBy(other.m_growBy) {
    if (other.m_buffer != nullptr)
        takeBlock(other.m_buffer + other.m_start, other.m_end - other.m_start, other.m_capacity);
}

KestBufferStream& KestBufferStream::operator=(const KestBufferStream& other) noexcept {
    if (this == &other) return *this;
    m_growBy = other.m_growBy;
    m_start = m_end = kHeaderSize;
    m_capacity = 0;
    std::free(std::exchange(m_buffer, nullptr));
    if (other.m_buffer != nullptr)
        takeBlock(other.m_buffer + other.m_start, other.m_end - other.m_start, other.m_capacity);
    return *this;
}

KestBufferStream::~KestBufferStream() {
    std::free(m_buffer);
}

// For a stream without a block. Its capacity holds the header and the payload.
void KestBufferStream::takeBlock(const unsigned char* payload, std::uint32_t length, std::uint32_t capacity) noexcept {
    m_buffer = static_cast<unsigned char*>(std::malloc(capacity));
    if (m_buffer == nullptr) return;
    std::memcpy(m_buffer + kHeaderSize, payload, length);
    m_capacity = capacity;
    m_end = kHeaderSize + length;
}

void KestBufferStream::reset() {
    m_start = m_end = kHeaderSize;
}

// Copies from the front of the payload; under the lock.
std::size_t KestBufferStream::front(void* destination, std::size_t size, std::size_t count) const noexcept {
    const std::size_t n = std::min<std::size_t>(byteCount(size, count), m_end - m_start);
    if (n != 0) std::memcpy(destination, m_buffer + m_start, n);
    return n;
}

std::size_t KestBufferStream::read(void* destination, std::size_t size, std::size_t count) {
    const KestCriticalSection guard(m_lock, true);
    const std::size_t n = front(destination, size, count);
    m_start += static_cast<std::uint32_t>(n);
    if (m_start == m_end) m_start = m_end = kHeaderSize;
    return n;
}

std::size_t KestBufferStream::peek(void* destination, std::size_t size, std::size_t count) {
    const KestCriticalSection guard(m_lock, true);
    return front(destination, size, count);
}

std::size_t KestBufferStream::write(const void* source, std::size_t size, std::size_t count) {
    const KestCriticalSection guard(m_lock, true);
    const std::size_t n = byteCount(size, count);
    if (n > kMostBytes || (m_end + n > m_capacity && !makeRoom(n))) return 0;
    if (n != 0) std::memcpy(m_buffer + m_end, source, n);
    m_end += static_cast<std::uint32_t>(n);
    return n;
}

// Room for n bytes behind the payload. What was read before makes room too, and moving the payload there costs no more
// than reading did when it is the shorter part; else the block grows, so that a stream that is written and read in
// turns does not move a long payload again and again.
bool KestBufferStream::makeRoom(std::size_t n) noexcept {
    const std::size_t needed = kHeaderSize + size() + n;
    if (needed > kMostBytes) return false;
    const bool fits = needed <= m_capacity;
    const bool payloadIsShorter = m_start - kHeaderSize >= size();
    moveToFront();
    return (fits && payloadIsShorter) || grow(n) || fits;
}

// By whole increments, and by more than n bytes. A long block grows by half of itself, so that many small writes copy
// it seldom, wherever the allocator puts it.
bool KestBufferStream::grow(std::size_t n) noexcept {
    const std::size_t least = m_buffer == nullptr ? n + kHeaderSize : n;
    for (const std::size_t wanted : {std::max<std::size_t>(least, m_capacity / 2), least}) {
        const std::size_t capacity = std::min(m_capacity + (wanted / m_growBy + 1) * m_growBy, kMostBytes);
        void* const block = platform::injectedFault("realloc") != 0 ? nullptr : std::realloc(m_buffer, capacity);
        if (block == nullptr) continue;
        m_buffer = static_cast<unsigned char*>(block);
        m_capacity = static_cast<std::uint32_t>(capacity);
        return true;
    }
    return false;
}

void KestBufferStream::moveToFront() const noexcept {
    if (m_start == kHeaderSize) return;
    std::memmove(m_buffer + kHeaderSize, m_buffer + m_start, size());
    m_end = kHeaderSize + static_cast<std::uint32_t>(size());
    m_start = kHeaderSize;
}

const unsigned char* KestBufferStream::buffer() const noexcept {
    static constexpr unsigned char kEmptyBlock[kHeaderSize] = {};
    if (m_buffer == nullptr) return kEmptyBlock;
    moveToFront();
    const auto length = static_cast<std::uint32_t>(size());
    std::memcpy(m_buffer, &length, sizeof length);
    return m_buffer;
}

}  // namespace KestSupport
