// Values as bytes and back: typed operators over one primitive, and a memory buffer that has both.
//
//   KestObjectStream        the root of both directions
//   KestInputObjectStream   operator>> for each type, over read
//   KestOutputObjectStream  operator<< for each type, over write
//   KestBufferStream        both, over a block of memory that can be sent and wrapped again
//   inEightBytes            a number of a type whose width differs between systems
//
// A value is written as it lies in memory, little-endian, without a tag, a separator or alignment; a text has its
// length in front, in 8 bytes. docs/formats/object_streams.md has every byte. What is read in another order than it was
// written gives other values, and no error.
//
// Threads: read, peek and write of one buffer stream, and so the operators, may be called from any thread. A text is
// one step of a buffer stream, and two of a class derived from it, between which another thread may come. Everything
// else of it takes no lock and is not used while another thread works on the same stream.
#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>

#include "support/export.h"
#include "support/locks.h"
#include "support/strings.h"

namespace KestSupport {

namespace internal {

/// Which thread has a lock to itself, and whether it is inside.
struct LockBias {
    std::atomic<std::uint32_t> owner{0};
    std::atomic<bool> busy{false};
};

}  // namespace internal

class KEST_SUPPORT_EXPORT KestObjectStream {
  public:
    KestObjectStream() noexcept = default;
    KestObjectStream(const KestObjectStream&) noexcept = default;
    KestObjectStream& operator=(const KestObjectStream&) noexcept = default;
    virtual ~KestObjectStream();

    virtual void reset() = 0;
};

/// An operator returns its stream, so that several can stand in a row. Bytes that do not come leave the variable's as
/// they are.
///
/// Texts: one of length 0 leaves its target unchanged. A length that the rest of a buffer stream does not hold takes
/// what is there, and no more memory than that. Another stream is asked for up to 64 KiB at once and for a longer text
/// in pieces, each as long as all before it; a read that returns less than the number of units that it was asked for
/// ends the text, and the units that did not come are 0. So a false length costs 64 KiB, or twice what the stream does
/// deliver. Throws std::bad_alloc when there is no memory for a text: a KestBufferStream itself then still has all of
/// it, length included, and of any other stream the length is taken.
class KEST_SUPPORT_EXPORT KestInputObjectStream : public KestObjectStream {
  public:
    ~KestInputObjectStream() override;
    void reset() override = 0;
    /// Copies up to size times count bytes from the stream to `destination`, and takes them out of the stream.
    virtual std::size_t read(void* destination, std::size_t size, std::size_t count) = 0;

    KestInputObjectStream& operator>>(char& value);
    KestInputObjectStream& operator>>(unsigned char& value);
    KestInputObjectStream& operator>>(int& value);
    KestInputObjectStream& operator>>(unsigned int& value);
    KestInputObjectStream& operator>>(short& value);
    KestInputObjectStream& operator>>(unsigned short& value);
    /// A long has 4 bytes in a stream, whatever it has here; it is extended by its sign, an unsigned one by zeros. See
    /// inEightBytes for std::int64_t and std::size_t.
    KestInputObjectStream& operator>>(long& value);
    KestInputObjectStream& operator>>(unsigned long& value);
    /// 8 bytes.
    KestInputObjectStream& operator>>(long long& value);
    KestInputObjectStream& operator>>(unsigned long long& value);
    /// 4 bytes, as these types are written: they become an int on their way. Any number but 0 is true; a signed char
    /// takes the low 8 bits.
    KestInputObjectStream& operator>>(bool& value);
    KestInputObjectStream& operator>>(signed char& value);
    KestInputObjectStream& operator>>(float& value);
    KestInputObjectStream& operator>>(double& value);
    /// Sets `text` to a new array that holds all of the text, its NULs too, and a NUL behind it. The caller frees it
    /// with delete[].
    KestInputObjectStream& operator>>(char*& text);
    /// The text up to its first NUL, as for wide texts.
    KestInputObjectStream& operator>>(std::string& text);
    KestInputObjectStream& operator>>(wstring16& text);

  private:
    template <typename Unit, typename Text>
    KestInputObjectStream& readText(Text& text);
};

/// An operator returns its stream and ignores what write returns. A KestBufferStream itself that has no room for a text
/// writes neither the text nor its length.
class KEST_SUPPORT_EXPORT KestOutputObjectStream : public KestObjectStream {
  public:
    ~KestOutputObjectStream() override;
    void reset() override = 0;
    /// Appends size times count bytes of `source` to the stream.
    virtual std::size_t write(const void* source, std::size_t size, std::size_t count) = 0;

    KestOutputObjectStream& operator<<(char value);
    KestOutputObjectStream& operator<<(unsigned char value);
    KestOutputObjectStream& operator<<(int value);
    KestOutputObjectStream& operator<<(unsigned int value);
    KestOutputObjectStream& operator<<(short value);
    KestOutputObjectStream& operator<<(unsigned short value);
    /// The low 32 bits, whatever a long has here: where std::int64_t and std::size_t are longs, as on 64-bit Linux,
    /// their high half is cut off. inEightBytes writes all of them.
    KestOutputObjectStream& operator<<(long value);
    KestOutputObjectStream& operator<<(unsigned long value);
    /// 8 bytes.
    KestOutputObjectStream& operator<<(long long value);
    KestOutputObjectStream& operator<<(unsigned long long value);
    KestOutputObjectStream& operator<<(float value);
    KestOutputObjectStream& operator<<(double value);
    /// A null pointer counts as an empty text.
    KestOutputObjectStream& operator<<(const char* text);
    /// The text up to its first NUL.
    KestOutputObjectStream& operator<<(const std::string& text);
    /// All units of the text, NULs too.
    KestOutputObjectStream& operator<<(const wstring16& text);

  private:
    template <typename Unit>
    KestOutputObjectStream& writeText(const Unit* text, std::uint64_t length);
};

/// A number that takes 8 bytes in a stream; made by inEightBytes.
template <typename Integer>
struct KestEightBytes {
    Integer& value;
};

/// Writes and reads a 64-bit integer in 8 bytes, as in `stream << inEightBytes(size)` and `stream >>
/// inEightBytes(size)`. To be used for std::int64_t, std::size_t and their like: these are a long on one system, which
/// has 4 bytes in a stream, and a long long on another, which has 8. Refers to the number, so it is used in the
/// expression that made it.
template <std::integral Integer>
requires(sizeof(Integer) == 8) KestEightBytes<Integer> inEightBytes(Integer& value)
noexcept {
    return {value};
}
template <std::integral Integer>
requires(sizeof(Integer) == 8) KestEightBytes<const Integer> inEightBytes(const Integer&& value)
noexcept {
    return {value};
}

template <typename Integer>
KestOutputObjectStream& operator<<(KestOutputObjectStream& stream, KestEightBytes<Integer> number) {
    return stream << static_cast<long long>(number.value);
}
template <typename Integer>
KestInputObjectStream& operator>>(KestInputObjectStream& stream, KestEightBytes<Integer> number) {
    auto wide = static_cast<long long>(number.value);
    stream >> wide;
    number.value = static_cast<Integer>(wide);
    return stream;
}

/// A block of memory: 4 bytes for the length of the payload, then the payload. Writing appends to the payload, reading
/// takes from its front, in time that depends on what is read alone. The payload stays below 4 GiB.
///
/// Nothing here throws but the operators, and the first use for want of memory for the lock. Without memory a
/// constructor and an assignment give an empty stream.
class KEST_SUPPORT_EXPORT KestBufferStream : public KestInputObjectStream, public KestOutputObjectStream {
  public:
    /// Empty; the first write makes the block.
    KestBufferStream() noexcept;
    /// The block grows by multiples of so many bytes; of 512 for 0.
    explicit KestBufferStream(unsigned long growBy) noexcept;
    /// A copy of a whole block, as `buffer` gives it: its first 4 bytes are passed over, whatever they say, and size -
    /// 4 bytes are the payload. A block of less than 4 bytes has none.
    KestBufferStream(const void* data, unsigned int size) noexcept;
    KestBufferStream(const KestBufferStream& other) noexcept;
    KestBufferStream& operator=(const KestBufferStream& other) noexcept;
    ~KestBufferStream() override;

    /// Makes the payload empty and keeps the memory.
    void reset() override;
    /// The number of bytes copied: all that were asked for, or all that there are.
    std::size_t read(void* destination, std::size_t size, std::size_t count) override;
    /// As read, and leaves the payload as it is.
    virtual std::size_t peek(void* destination, std::size_t size, std::size_t count);
    /// The number of bytes appended: all, or 0, with nothing changed, for want of memory or beyond 4 GiB.
    std::size_t write(const void* source, std::size_t size, std::size_t count) override;

    /// The length of the payload in bytes.
    unsigned long size() const noexcept { return m_end - m_start; }
    /// The block as it is now, size() + 4 bytes. The pointer is good until the next write, assignment or destruction;
    /// after a read, a further call brings what it points to up to date.
    const unsigned char* buffer() const noexcept;

  private:
    friend class KestInputObjectStream;
    friend class KestOutputObjectStream;

    static constexpr std::uint32_t kHeaderSize = 4;
    static constexpr std::uint32_t kDefaultGrowBy = 512;

    std::size_t front(void* destination, std::size_t n) const noexcept;
    void dropFront(std::size_t n) noexcept;
    bool hasRoom(std::size_t n) noexcept;
    std::size_t append(const void* source, std::size_t n) noexcept;
    template <typename Unit, typename Text>
    void takeText(Text& text);
    void appendText(const void* text, std::uint64_t length, std::size_t unitSize);
    bool makeRoom(std::size_t n) noexcept;
    bool grow(std::size_t n) noexcept;
    void moveToFront() const noexcept;
    void takeBlock(const unsigned char* payload, std::uint32_t length, std::uint32_t capacity) noexcept;

    unsigned char* m_buffer = nullptr;  // owned, of the C heap
    // The payload is what lies between the two. Reading moves its start, which goes back to the front of the block when
    // the block is shown, when nothing is left, and when a write can use the room.
    mutable std::uint32_t m_start = kHeaderSize;
    mutable std::uint32_t m_end = kHeaderSize;
    std::uint32_t m_growBy = kDefaultGrowBy;
    std::uint32_t m_capacity = 0;
    mutable KestCriticalSectionObject m_lock;  // guards all of it in read, peek and write, with m_bias
    mutable internal::LockBias m_bias;
};

}  // namespace KestSupport
