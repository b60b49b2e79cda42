#include "support/object_streams.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <typeinfo>
#include <utility>

#include "platform/common/fault_seam.h"
#include "sync/biased_guard.h"

namespace KestSupport {
namespace {

static_assert(std::endian::native == std::endian::little, "values go into the stream as they lie in memory");

constexpr std::size_t kMostBytes = std::numeric_limits<std::uint32_t>::max();
// Most of what is copied is a number or a short text, for which a call of memcpy takes longer than the copying.
inline void copyBytes(void* destination, const void* source, std::size_t n) noexcept {
    constexpr std::size_t wide = sizeof(std::uint64_t);
    auto* const to = static_cast<unsigned char*>(destination);
    const auto* const from = static_cast<const unsigned char*>(source);
    if (n >= wide && n <= 2 * wide) {
        std::uint64_t first = 0, last = 0;
        std::memcpy(&first, from, wide);
        std::memcpy(&last, from + n - wide, wide);
        std::memcpy(to, &first, wide);
        std::memcpy(to + n - wide, &last, wide);
    } else if (n == sizeof(std::uint32_t)) {
        std::memcpy(to, from, sizeof(std::uint32_t));
    } else if (n != 0) {
        std::memcpy(to, from, n);
    }
}

// More than any stream holds when the product does not fit.
std::size_t byteCount(std::size_t size, std::size_t count) noexcept {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    // A division costs as much as all the rest of a small write.
    if (((size | count) >> 32) == 0) return size * count;
    return size != 0 && count > most / size ? most : size * count;
}

template <typename Value>
KestOutputObjectStream& writeValue(KestOutputObjectStream& stream, Value value) {
    stream.write(&value, sizeof value, 1);
    return stream;
}

template <typename Value>
KestInputObjectStream& readValue(KestInputObjectStream& stream, Value& value) {
    stream.read(&value, sizeof value, 1);
    return stream;
}

// A value that has another width in the stream. `before` is what the stream would have for the value as it is. When no
// byte comes, the value keeps all of its own, also those that the stream has no room for.
template <typename Wire, typename Value>
KestInputObjectStream& readAs(KestInputObjectStream& stream, Value& value, Wire before) {
    Wire wire = before;
    const std::size_t delivered = stream.read(&wire, sizeof wire, 1);
    if (delivered != 0 || wire != before) value = static_cast<Value>(wire);
    return stream;
}

inline bool hasNul(const char* eightBytes) noexcept {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, eightBytes, sizeof bytes);
    return ((bytes - 0x0101010101010101U) & ~bytes & 0x8080808080808080U) != 0;
}

// How many of the bytes stand before the first NUL. A short text mostly has none, which two words tell.
inline std::size_t lengthUpToNul(const char* bytes, std::size_t n) noexcept {
    constexpr std::size_t wide = sizeof(std::uint64_t);
    if (n >= wide && n <= 2 * wide && !hasNul(bytes) && !hasNul(bytes + n - wide)) return n;
    const void* const nul = n == 0 ? nullptr : std::memchr(bytes, 0, n);
    return nul == nullptr ? n : static_cast<std::size_t>(static_cast<const char*>(nul) - bytes);
}

// Each takes `count` bytes of a payload into a text. Without memory it throws and leaves the text as it is.
void assignText(std::string& text, const unsigned char* bytes, std::size_t count) {
    const auto* const first = reinterpret_cast<const char*>(bytes);
    const std::size_t length = lengthUpToNul(first, count);
    // A loop reads into one variable, whose last text was often as long.
    if (length > text.size()) {
        text.assign(first, length);
        return;
    }
    text.resize(length);
    copyBytes(text.data(), first, length);
}

// The bytes need not lie as units do; half a unit at the end becomes one with a high byte of 0.
void assignText(wstring16& text, const unsigned char* bytes, std::size_t count) {
    text.assign((count + 1) / sizeof(wstring16::value_type), 0);
    if (count != 0) std::memcpy(text.data(), bytes, count);
    text.resize(std::min(text.find(wstring16::value_type{0}), text.size()));
}

void assignText(char*& text, const unsigned char* bytes, std::size_t count) {
    std::unique_ptr<char[]> array(new char[count + 1]);
    copyBytes(array.get(), bytes, count);
    array[count] = '\0';
    text = array.release();
}

// The same with units that end with a 0.
template <typename Text>
void assignText(Text& text, std::unique_ptr<typename Text::value_type[]> units) {
    text = units.get();
}

void assignText(char*& text, std::unique_ptr<char[]> units) {
    text = units.release();
}

// Reads a text of that length with a 0 after it. What does not come is 0. The length may lie, so a long text is read in
// pieces, each as long as all before it, until the stream delivers less than a piece.
template <typename Unit>
std::unique_ptr<Unit[]> readUnits(KestInputObjectStream& stream, std::uint64_t length) {
    constexpr std::uint64_t firstPiece = std::uint64_t{64} * 1024 / sizeof(Unit);
    std::unique_ptr<Unit[]> units;
    for (std::uint64_t have = 0, piece = 0;; have += piece) {
        piece = std::min(length - have, std::max(have, firstPiece));
        std::unique_ptr<Unit[]> longer(new Unit[have + piece + 1]());
        std::copy_n(units.get(), have, longer.get());
        units = std::move(longer);
        const bool isWhole = stream.read(units.get() + have, sizeof(Unit), piece) >= piece;
        if (!isWhole || have + piece == length) return units;
    }
}

}  // namespace

KestObjectStream::~KestObjectStream() = default;
KestInputObjectStream::~KestInputObjectStream() = default;
KestOutputObjectStream::~KestOutputObjectStream() = default;

KestOutputObjectStream& KestOutputObjectStream::operator<<(char value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned char value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(int value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned int value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(short value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned short value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(float value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(double value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(long value) {
    return writeValue(*this, static_cast<std::int32_t>(value));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned long value) {
    return writeValue(*this, static_cast<std::uint32_t>(value));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(long long value) {
    return writeValue(*this, value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned long long value) {
    return writeValue(*this, value);
}

// A buffer stream, unless a derived class may have a primitive of its own, takes and gives a text in one step.
template <typename Unit>
KestOutputObjectStream& KestOutputObjectStream::writeText(const Unit* text, std::uint64_t length) {
    if (typeid(*this) == typeid(KestBufferStream)) {
        static_cast<KestBufferStream*>(this)->appendText(text, length, sizeof(Unit));
        return *this;
    }
    writeValue(*this, length);
    if (length != 0) write(text, sizeof(Unit), length);
    return *this;
}

KestOutputObjectStream& KestOutputObjectStream::operator<<(const char* text) {
    return writeText(text, text == nullptr ? 0 : std::strlen(text));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(const std::string& text) {
    return writeText(text.data(), lengthUpToNul(text.data(), text.size()));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(const wstring16& text) {
    return writeText(text.data(), text.size());
}

KestInputObjectStream& KestInputObjectStream::operator>>(char& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned char& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(int& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned int& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(short& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned short& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(float& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(double& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(long& value) {
    return readAs(*this, value, static_cast<std::int32_t>(value));
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned long& value) {
    return readAs(*this, value, static_cast<std::uint32_t>(value));
}
KestInputObjectStream& KestInputObjectStream::operator>>(long long& value) {
    return readValue(*this, value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned long long& value) {
    return readValue(*this, value);
}
// A value that no byte came for may be no bool at all yet, so it is not looked at.
KestInputObjectStream& KestInputObjectStream::operator>>(bool& value) {
    return readAs(*this, value, 0);
}
KestInputObjectStream& KestInputObjectStream::operator>>(signed char& value) {
    return readAs(*this, value, int{value});
}

template <typename Unit, typename Text>
KestInputObjectStream& KestInputObjectStream::readText(Text& text) {
    if (typeid(*this) == typeid(KestBufferStream)) {
        static_cast<KestBufferStream*>(this)->takeText<Unit>(text);
        return *this;
    }
    std::uint64_t length = 0;
    readValue(*this, length);
    if (length != 0) assignText(text, readUnits<Unit>(*this, length));
    return *this;
}

KestInputObjectStream& KestInputObjectStream::operator>>(char*& text) {
    return readText<char>(text);
}
KestInputObjectStream& KestInputObjectStream::operator>>(std::string& text) {
    return readText<char>(text);
}
KestInputObjectStream& KestInputObjectStream::operator>>(wstring16& text) {
    return readText<wstring16::value_type>(text);
}

KestBufferStream::KestBufferStream() noexcept = default;

KestBufferStream::KestBufferStream(unsigned long growBy) noexcept
    : m_growBy(growBy == 0 ? kDefaultGrowBy : static_cast<std::uint32_t>(std::min<std::size_t>(growBy, kMostBytes))) {}

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

// Under the lock, like the next four: the number of bytes copied from the front of the payload.
inline std::size_t KestBufferStream::front(void* destination, std::size_t n) const noexcept {
    n = std::min<std::size_t>(n, m_end - m_start);
    if (n != 0) copyBytes(destination, m_buffer + m_start, n);
    return n;
}

inline void KestBufferStream::dropFront(std::size_t n) noexcept {
    m_start += static_cast<std::uint32_t>(n);
    if (m_start == m_end) m_start = m_end = kHeaderSize;
}

inline bool KestBufferStream::hasRoom(std::size_t n) noexcept {
    return n <= kMostBytes && (m_end + n <= m_capacity || makeRoom(n));
}

inline std::size_t KestBufferStream::append(const void* source, std::size_t n) noexcept {
    if (!hasRoom(n)) return 0;
    copyBytes(m_buffer + m_end, source, n);
    m_end += static_cast<std::uint32_t>(n);
    return n;
}

std::size_t KestBufferStream::read(void* destination, std::size_t size, std::size_t count) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    const std::size_t n = front(destination, byteCount(size, count));
    dropFront(n);
    return n;
}

std::size_t KestBufferStream::peek(void* destination, std::size_t size, std::size_t count) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    return front(destination, byteCount(size, count));
}

std::size_t KestBufferStream::write(const void* source, std::size_t size, std::size_t count) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    return append(source, byteCount(size, count));
}

void KestBufferStream::appendText(const void* text, std::uint64_t length, std::size_t unitSize) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    const std::size_t bytes = byteCount(unitSize, length);
    // A length without its text would make a reader take what follows for the text.
    if (bytes > kMostBytes || !hasRoom(sizeof length + bytes)) return;
    copyBytes(m_buffer + m_end, &length, sizeof length);
    copyBytes(m_buffer + m_end + sizeof length, text, bytes);
    m_end += static_cast<std::uint32_t>(sizeof length + bytes);
}

template <typename Unit, typename Text>
void KestBufferStream::takeText(Text& text) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    std::uint64_t length = 0;
    const std::size_t prefix = front(&length, sizeof length);
    const std::size_t bytes = std::min<std::size_t>(byteCount(sizeof(Unit), length), size() - prefix);
    // Nothing is dropped before the text has its memory, so that the caller can read it again.
    if (length != 0) assignText(text, m_buffer + m_start + prefix, bytes);
    dropFront(prefix + bytes);
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
