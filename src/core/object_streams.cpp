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
#include "platform/uninterrupted.h"
#include "sync/biased_guard.h"

namespace KestSupport {
namespace {

static_assert(std::endian::native == std::endian::little, "the bytes in a stream are those in memory");

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::size_t kMostBytes = std::numeric_limits<std::uint32_t>::max();

// Most copies are a number or a short text. Without a call of memcpy for these a value is written in 5.1 instead of 5.7
// ns (bench/object_streams).
inline void copyBytes(void* destination, const void* source, std::size_t n) noexcept {
    auto* const to = static_cast<unsigned char*>(destination);
    const auto* const from = static_cast<const unsigned char*>(source);
    if (n >= kWord && n <= 2 * kWord) {
        std::uint64_t first = 0, last = 0;
        std::memcpy(&first, from, kWord);
        std::memcpy(&last, from + n - kWord, kWord);
        std::memcpy(to, &first, kWord);
        std::memcpy(to + n - kWord, &last, kWord);
    } else if (n == sizeof(std::uint32_t)) {
        std::memcpy(to, from, sizeof(std::uint32_t));
    } else if (n != 0) {
        std::memcpy(to, from, n);
    }
}

// Compares addresses, not names. If a system has several descriptions of the type, the answer may be no, and the caller
// uses virtual calls.
template <typename Stream>
inline bool isBufferStream(const Stream& stream) noexcept {
    return &typeid(stream) == &typeid(KestBufferStream);
}

// Returns more than any stream has when the product does not fit.
std::size_t byteCount(std::size_t size, std::size_t count) noexcept {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    return size != 0 && count > kMost / size ? kMost : size * count;
}

inline bool hasNul(const char* eightBytes) noexcept {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, eightBytes, sizeof bytes);
    return ((bytes - 0x0101010101010101U) & ~bytes & 0x8080808080808080U) != 0;
}

// Returns the number of bytes before the first NUL. A short text without one needs no call of memchr, so a value is
// written in 5.1 instead of 5.6 ns (bench/object_streams).
inline std::size_t lengthUpToNul(const char* bytes, std::size_t n) noexcept {
    if (n >= kWord && n <= 2 * kWord && !hasNul(bytes) && !hasNul(bytes + n - kWord)) return n;
    const void* const nul = n == 0 ? nullptr : std::memchr(bytes, 0, n);
    return nul == nullptr ? n : static_cast<std::size_t>(static_cast<const char*>(nul) - bytes);
}

// Each overload sets a text to `count` bytes of a payload. It throws std::bad_alloc and leaves the text unchanged when
// there is no memory.
void assignText(std::string& text, const unsigned char* bytes, std::size_t count) {
    const auto* const first = reinterpret_cast<const char*>(bytes);
    const std::size_t length = lengthUpToNul(first, count);
    // Mostly a caller reads texts of similar length into one variable. Without a call of assign for them, 200,000
    // values are read in 1.1 instead of 1.3 ms (bench/object_streams).
    if (length > text.size()) {
        text.assign(first, length);
    } else {
        copyBytes(text.data(), first, length);
        text.resize(length);
    }
}

// The bytes need not be aligned. Half a unit at the end becomes a unit with a high byte of 0.
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

// The same for an array of units with a 0 at the end.
template <typename Text>
void assignText(Text& text, std::unique_ptr<typename Text::value_type[]> units) {
    text = units.get();
}

void assignText(char*& text, std::unique_ptr<char[]> units) {
    text = units.release();
}

// Reads a text of `length` units and adds a 0. Units that are not delivered are 0. The length may be false, so a long
// text is read in pieces, each as long as all pieces before it, until the stream delivers less than a piece.
template <typename Unit>
std::unique_ptr<Unit[]> readUnits(KestInputObjectStream& stream, std::uint64_t length) {
    constexpr std::uint64_t kFirstPiece = std::uint64_t{64} * 1024 / sizeof(Unit);
    std::unique_ptr<Unit[]> units;
    for (std::uint64_t have = 0, piece = 0;; have += piece) {
        piece = std::min(length - have, std::max(have, kFirstPiece));
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

// The next functions are called with the lock held. This one returns the number of bytes that it copied from the
// front of the payload.
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

// A value of constant size needs one test of the room and one store.
template <typename Value>
inline void KestBufferStream::appendValue(Value value) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    if (!hasRoom(sizeof value)) return;
    std::memcpy(m_buffer + m_end, &value, sizeof value);
    m_end += static_cast<std::uint32_t>(sizeof value);
}

template <typename Value>
inline void KestBufferStream::takeValue(Value& value) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    if (size() < sizeof value) return dropFront(front(&value, sizeof value));
    std::memcpy(&value, m_buffer + m_start, sizeof value);
    dropFront(sizeof value);
}

template <typename Unit>
inline void KestBufferStream::appendText(const Unit* text, std::uint64_t length) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    const std::size_t bytes = byteCount(sizeof(Unit), length);
    // After a length without its text a reader would take the following values for the text.
    if (bytes > kMostBytes || !hasRoom(sizeof length + bytes)) return;
    copyBytes(m_buffer + m_end, &length, sizeof length);
    copyBytes(m_buffer + m_end + sizeof length, text, bytes);
    m_end += static_cast<std::uint32_t>(sizeof length + bytes);
}

// Only a KestBufferStream itself writes and reads a value without a virtual call, and a text in one step: a derived
// class may override write and read, and then it must see all calls. 200,000 values are written in 0.93 instead of 1.06
// ms, and read in 1.45 instead of 1.62 ms (bench/object_streams).
template <typename Value>
KestOutputObjectStream& KestOutputObjectStream::writeValue(Value value) {
    if (isBufferStream(*this)) {
        static_cast<KestBufferStream*>(this)->appendValue(value);
    } else {
        write(&value, sizeof value, 1);
    }
    return *this;
}

template <typename Value>
KestInputObjectStream& KestInputObjectStream::readValue(Value& value) {
    if (isBufferStream(*this)) {
        static_cast<KestBufferStream*>(this)->takeValue(value);
    } else {
        read(&value, sizeof value, 1);
    }
    return *this;
}

// Reads a value that has another width in the stream. `before` is the current value in that width. When the stream has
// no byte, the value stays as it is, also in the bytes that the stream never has.
template <typename Wire, typename Value>
KestInputObjectStream& KestInputObjectStream::readAs(Value& value, Wire before) {
    Wire wire = before;
    const std::size_t delivered = read(&wire, sizeof wire, 1);
    if (delivered != 0 || wire != before) value = static_cast<Value>(wire);
    return *this;
}

KestOutputObjectStream& KestOutputObjectStream::operator<<(char value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned char value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(int value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned int value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(short value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned short value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(float value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(double value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(long value) {
    return writeValue(static_cast<std::int32_t>(value));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned long value) {
    return writeValue(static_cast<std::uint32_t>(value));
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(long long value) {
    return writeValue(value);
}
KestOutputObjectStream& KestOutputObjectStream::operator<<(unsigned long long value) {
    return writeValue(value);
}

template <typename Unit>
KestOutputObjectStream& KestOutputObjectStream::writeText(const Unit* text, std::uint64_t length) {
    if (isBufferStream(*this)) {
        static_cast<KestBufferStream*>(this)->appendText(text, length);
        return *this;
    }
    writeValue(length);
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
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned char& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(int& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned int& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(short& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned short& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(float& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(double& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(long& value) {
    return readAs(value, static_cast<std::int32_t>(value));
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned long& value) {
    return readAs(value, static_cast<std::uint32_t>(value));
}
KestInputObjectStream& KestInputObjectStream::operator>>(long long& value) {
    return readValue(value);
}
KestInputObjectStream& KestInputObjectStream::operator>>(unsigned long long& value) {
    return readValue(value);
}
// The variable may hold no valid bool yet, so it is not read.
KestInputObjectStream& KestInputObjectStream::operator>>(bool& value) {
    return readAs(value, 0);
}
KestInputObjectStream& KestInputObjectStream::operator>>(signed char& value) {
    return readAs(value, int{value});
}

template <typename Unit, typename Text>
KestInputObjectStream& KestInputObjectStream::readText(Text& text) {
    if (isBufferStream(*this)) {
        static_cast<KestBufferStream*>(this)->takeText<Unit>(text);
        return *this;
    }
    std::uint64_t length = 0;
    readValue(length);
    if (typeid(*this) == typeid(KestCheckedInputStream) && !static_cast<KestCheckedInputStream*>(this)->admits(length))
        return *this;
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

KestCheckedInputStream::KestCheckedInputStream(KestInputObjectStream& source, std::uint64_t longestText) noexcept
    : m_source(source), m_longestText(longestText) {}
KestCheckedInputStream::~KestCheckedInputStream() = default;

void KestCheckedInputStream::reset() {
    m_failed = false;
    m_source.reset();
}

std::size_t KestCheckedInputStream::read(void* destination, std::size_t size, std::size_t count) {
    if (m_failed) return 0;
    const std::size_t delivered = m_source.read(destination, size, count);
    m_failed = delivered != byteCount(size, count);
    return delivered;
}

bool KestCheckedInputStream::admits(std::uint64_t textLength) noexcept {
    m_failed = m_failed || textLength > m_longestText;
    return !m_failed;
}

KestCheckedOutputStream::KestCheckedOutputStream(KestOutputObjectStream& target) noexcept : m_target(target) {}
KestCheckedOutputStream::~KestCheckedOutputStream() = default;

void KestCheckedOutputStream::reset() {
    m_failed = false;
    m_target.reset();
}

std::size_t KestCheckedOutputStream::write(const void* source, std::size_t size, std::size_t count) {
    if (m_failed) return 0;
    const std::size_t written = m_target.write(source, size, count);
    m_failed = written != byteCount(size, count);
    return written;
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

// Gives a stream without a block a block of `capacity` bytes, which is enough for the header and the payload.
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

template <typename Unit, typename Text>
void KestBufferStream::takeText(Text& text) {
    const internal::BiasedGuard guard(m_bias, m_lock);
    std::uint64_t length = 0;
    const std::size_t prefix = std::min<std::size_t>(sizeof length, size());
    if (prefix == sizeof length) {
        std::memcpy(&length, m_buffer + m_start, sizeof length);
    } else {
        front(&length, prefix);
    }
    const std::size_t bytes = std::min<std::size_t>(byteCount(sizeof(Unit), length), size() - prefix);
    // Nothing is dropped until the text has its memory, so the caller can read it again.
    if (length != 0) assignText(text, m_buffer + m_start + prefix, bytes);
    dropFront(prefix + bytes);
}

// Makes room for n bytes after the payload. Bytes that were read leave room before the payload. The payload moves there
// if it is the shorter part, so moving costs at most as much as reading did. Otherwise the block grows, so a stream
// that is written and read in turns does not move a long payload each time.
bool KestBufferStream::makeRoom(std::size_t n) noexcept {
    const std::size_t needed = kHeaderSize + size() + n;
    if (needed > kMostBytes) return false;
    const bool fits = needed <= m_capacity;
    const bool payloadIsShorter = m_start - kHeaderSize >= size();
    moveToFront();
    return (fits && payloadIsShorter) || grow(n) || fits;
}

// Adds whole increments with more than n bytes. A long block grows by half of its size, so a long series of small
// writes copies it rarely: 5.1 instead of 5.6 ns per value (bench/object_streams, 200,000 values). A thread that was
// killed before it stores the new address would leave a stream with a deleted block.
bool KestBufferStream::grow(std::size_t n) noexcept {
    const platform::Uninterrupted change;
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
    const platform::Uninterrupted change;
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
