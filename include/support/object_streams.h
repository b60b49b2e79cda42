// Values as bytes: typed operators over the primitives read and write, and a memory buffer that implements both.
//
//   KestObjectStream        the root of both directions
//   KestInputObjectStream   operator>> for each type; calls read
//   KestOutputObjectStream  operator<< for each type; calls write
//   KestBufferStream        both, over a block of memory that a program can send and read again
//   KestCheckedInputStream, KestCheckedOutputStream   note whether all values were whole
//   inEightBytes            an integer of a type whose width differs between systems
//
// The bytes of a value are those that it has in memory, little-endian, without a tag, a separator or alignment. A text
// has its length before it, in 8 bytes. docs/formats/object_streams.md describes every byte. Values that are read in
// another order than they were written are wrong, without an error.
//
// Threads: any thread may call read, peek and write of one buffer stream, and so the operators. A text is one step of a
// KestBufferStream itself. In a class derived from it a text takes several calls, one for the length and one or more
// for the characters, because the class may override read and write; the call of another thread may come between them.
// All other operations take no lock: no other thread uses the stream at that time.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>

#include "support/export.h"
#include "support/locks.h"
#include "support/strings.h"

namespace KestSupport {

/// The root of both directions.
class KEST_SUPPORT_EXPORT KestObjectStream {
  public:
    KestObjectStream() noexcept = default;
    KestObjectStream(const KestObjectStream&) noexcept = default;
    KestObjectStream& operator=(const KestObjectStream&) noexcept = default;
    virtual ~KestObjectStream();

    /// Makes the stream empty.
    virtual void reset() = 0;
};

/// Each operator returns its stream, so operators can be chained. When the stream has fewer bytes than the value, the
/// variable keeps its other bytes.
///
/// A text of length 0 leaves its variable unchanged. When a KestBufferStream has fewer bytes than the length says, the
/// text is what there is, and takes only that much memory. Any other stream is read in pieces: the first has up to 64
/// KiB, and each further piece is as long as all pieces before it. The first read that returns less than the number of
/// units it was asked for ends the text; units that were not delivered are 0. So a false length costs at most 64 KiB or
/// twice the delivered bytes.
///
/// Throws std::bad_alloc when there is no memory for a text. A KestBufferStream itself then still has the text and its
/// length; any other stream has lost the length.
class KEST_SUPPORT_EXPORT KestInputObjectStream : public KestObjectStream {
  public:
    ~KestInputObjectStream() override;
    void reset() override = 0;
    /// Moves up to size times count bytes from the stream to `destination`, and returns their number.
    virtual std::size_t read(void* destination, std::size_t size, std::size_t count) = 0;

    /// Read a value in as many bytes as it has in memory: 1 for a character, 2 for a short, 4 for an int, a float.
    KestInputObjectStream& operator>>(char& value);
    KestInputObjectStream& operator>>(unsigned char& value);
    KestInputObjectStream& operator>>(int& value);
    KestInputObjectStream& operator>>(unsigned int& value);
    KestInputObjectStream& operator>>(short& value);
    KestInputObjectStream& operator>>(unsigned short& value);
    /// A long always has 4 bytes in a stream. A wider one is extended by its sign, or by zeros if it is unsigned. Use
    /// inEightBytes for std::int64_t and std::size_t.
    KestInputObjectStream& operator>>(long& value);
    KestInputObjectStream& operator>>(unsigned long& value);
    /// 8 bytes.
    KestInputObjectStream& operator>>(long long& value);
    KestInputObjectStream& operator>>(unsigned long long& value);
    /// 4 bytes, because these types are written as an int. Every number but 0 is true; a signed char gets the low 8
    /// bits.
    KestInputObjectStream& operator>>(bool& value);
    KestInputObjectStream& operator>>(signed char& value);
    /// 4 and 8 bytes.
    KestInputObjectStream& operator>>(float& value);
    KestInputObjectStream& operator>>(double& value);
    /// Sets `text` to a new array with the whole text, NULs included, and a NUL after it. The caller owns the array and
    /// frees it with delete[].
    KestInputObjectStream& operator>>(char*& text);
    /// The text up to its first NUL. The same holds for wide texts.
    KestInputObjectStream& operator>>(std::string& text);
    KestInputObjectStream& operator>>(wstring16& text);

  private:
    template <typename Value>
    KestInputObjectStream& readValue(Value& value);
    template <typename Wire, typename Value>
    KestInputObjectStream& readAs(Value& value, Wire before);
    template <typename Unit, typename Text>
    KestInputObjectStream& readText(Text& text);
};

/// Each operator returns its stream and ignores the result of write. A KestBufferStream itself that has no room for a
/// text writes neither the text nor its length.
class KEST_SUPPORT_EXPORT KestOutputObjectStream : public KestObjectStream {
  public:
    ~KestOutputObjectStream() override;
    void reset() override = 0;
    /// Appends size times count bytes of `source` to the stream, and returns their number.
    virtual std::size_t write(const void* source, std::size_t size, std::size_t count) = 0;

    /// Write a value in as many bytes as it has in memory. A bool and a signed char are written as an int.
    KestOutputObjectStream& operator<<(char value);
    KestOutputObjectStream& operator<<(unsigned char value);
    KestOutputObjectStream& operator<<(int value);
    KestOutputObjectStream& operator<<(unsigned int value);
    KestOutputObjectStream& operator<<(short value);
    KestOutputObjectStream& operator<<(unsigned short value);
    /// The low 32 bits. On 64-bit Linux std::int64_t and std::size_t are longs, so their high half is lost;
    /// inEightBytes writes all of it.
    KestOutputObjectStream& operator<<(long value);
    KestOutputObjectStream& operator<<(unsigned long value);
    /// 8 bytes.
    KestOutputObjectStream& operator<<(long long value);
    KestOutputObjectStream& operator<<(unsigned long long value);
    /// 4 and 8 bytes.
    KestOutputObjectStream& operator<<(float value);
    KestOutputObjectStream& operator<<(double value);
    /// A null pointer is written as an empty text.
    KestOutputObjectStream& operator<<(const char* text);
    /// The text up to its first NUL.
    KestOutputObjectStream& operator<<(const std::string& text);
    /// All units of the text, NULs included.
    KestOutputObjectStream& operator<<(const wstring16& text);

  private:
    template <typename Value>
    KestOutputObjectStream& writeValue(Value value);
    template <typename Unit>
    KestOutputObjectStream& writeText(const Unit* text, std::uint64_t length);
};

/// Reads from another stream and notes a failure: fewer bytes than a value has, or a text above the limit. After a
/// failure it reads nothing more, so one question after the last value is enough:
///
///     KestCheckedInputStream checked(stream, 1024);
///     checked >> count >> name;
///     if (checked.failed()) ...
///
/// The source's read returns the number of bytes. A value that failed may have some of its bytes; a text above the
/// limit leaves its variable unchanged. A text takes two calls of the source's read, and more above 64 KiB.
class KEST_SUPPORT_EXPORT KestCheckedInputStream final : public KestInputObjectStream {
  public:
    static constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};  ///< texts of any length

    /// Refers to the source, which outlives this object. `longestText` is a number of characters, or of 16-bit units.
    explicit KestCheckedInputStream(KestInputObjectStream& source KEST_SUPPORT_LIFETIMEBOUND,
                                    std::uint64_t longestText = kNoLimit) noexcept;
    KestCheckedInputStream(const KestCheckedInputStream&) = delete;
    KestCheckedInputStream& operator=(const KestCheckedInputStream&) = delete;
    ~KestCheckedInputStream() override;

    /// Returns whether there was a failure since the construction or the last reset.
    bool failed() const noexcept { return m_failed; }
    /// Forgets the failure, and makes the source empty.
    void reset() override;
    /// Returns 0 after a failure.
    std::size_t read(void* destination, std::size_t size, std::size_t count) override;

  private:
    friend class KestInputObjectStream;
    bool admits(std::uint64_t textLength) noexcept;

    KestInputObjectStream& m_source;
    const std::uint64_t m_longestText;
    bool m_failed = false;
};

/// Writes to another stream and notes a failure: the stream took less than a value. After a failure it writes nothing
/// more. The target's write returns the number of bytes.
class KEST_SUPPORT_EXPORT KestCheckedOutputStream final : public KestOutputObjectStream {
  public:
    /// Refers to the target, which outlives this object.
    explicit KestCheckedOutputStream(KestOutputObjectStream& target KEST_SUPPORT_LIFETIMEBOUND) noexcept;
    KestCheckedOutputStream(const KestCheckedOutputStream&) = delete;
    KestCheckedOutputStream& operator=(const KestCheckedOutputStream&) = delete;
    ~KestCheckedOutputStream() override;

    /// Returns whether there was a failure since the construction or the last reset.
    bool failed() const noexcept { return m_failed; }
    /// Forgets the failure, and makes the target empty.
    void reset() override;
    /// Returns 0 after a failure.
    std::size_t write(const void* source, std::size_t size, std::size_t count) override;

  private:
    KestOutputObjectStream& m_target;
    bool m_failed = false;
};

/// The result of inEightBytes.
template <typename Integer>
struct KestEightBytes {
    Integer& value;  ///< the number, not a copy
};

/// Writes or reads a 64-bit integer in 8 bytes:
///
///     stream << inEightBytes(size);
///     stream >> inEightBytes(size);
///
/// Use it for std::int64_t and std::size_t: on one system they are a long, which has 4 bytes in a stream, on another a
/// long long, which has 8. The result refers to the number, so use it in the same expression.
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

/// Write and read 8 bytes.
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

/// A block of memory: 4 bytes for the length of the payload, then the payload. write appends to the payload. read takes
/// from its front, in time that depends only on the number of bytes read. The payload is smaller than 4 GiB.
///
/// Without memory a constructor or an assignment makes an empty stream, and write returns 0. Only the operators for
/// texts and the first use of the stream's lock throw std::bad_alloc.
class KEST_SUPPORT_EXPORT KestBufferStream : public KestInputObjectStream, public KestOutputObjectStream {
  public:
    /// Creates an empty stream. The first write allocates the block.
    KestBufferStream() noexcept;
    /// The block grows by multiples of `growBy` bytes; 0 means 512.
    explicit KestBufferStream(unsigned long growBy) noexcept;
    /// Copies a whole block of `size` bytes, as buffer returns it. The first 4 bytes are skipped without a check, and
    /// the others are the payload. A block of less than 4 bytes has an empty payload.
    KestBufferStream(const void* data, unsigned int size) noexcept;
    /// Copies the payload. The lock is not copied.
    KestBufferStream(const KestBufferStream& other) noexcept;
    KestBufferStream& operator=(const KestBufferStream& other) noexcept;
    ~KestBufferStream() override;

    /// Makes the payload empty and keeps the memory.
    void reset() override;
    /// Returns the number of moved bytes: size times count, or all that the payload has.
    std::size_t read(void* destination, std::size_t size, std::size_t count) override;
    /// Copies like read, but leaves the payload unchanged.
    virtual std::size_t peek(void* destination, std::size_t size, std::size_t count);
    /// Returns the number of appended bytes: size times count, or 0 with nothing changed when there is no memory or the
    /// payload would reach 4 GiB.
    std::size_t write(const void* source, std::size_t size, std::size_t count) override;

    /// Returns the length of the payload in bytes.
    unsigned long size() const noexcept { return m_end - m_start; }
    /// Returns the block, size() + 4 bytes, which the stream owns. The pointer is valid until the next write,
    /// assignment or destruction. After a read, call buffer again to update the block.
    const unsigned char* buffer() const noexcept KEST_SUPPORT_LIFETIMEBOUND;

  private:
    friend class KestInputObjectStream;
    friend class KestOutputObjectStream;

    static constexpr std::uint32_t kHeaderSize = 4;
    static constexpr std::uint32_t kDefaultGrowBy = 512;

    std::size_t front(void* destination, std::size_t n) const noexcept;
    void dropFront(std::size_t n) noexcept;
    bool hasRoom(std::size_t n) noexcept;
    std::size_t append(const void* source, std::size_t n) noexcept;
    template <typename Value>
    void appendValue(Value value);
    template <typename Value>
    void takeValue(Value& value);
    template <typename Unit, typename Text>
    void takeText(Text& text);
    template <typename Unit>
    void appendText(const Unit* text, std::uint64_t length);
    bool makeRoom(std::size_t n) noexcept;
    bool grow(std::size_t n) noexcept;
    void moveToFront() const noexcept;
    void takeBlock(const unsigned char* payload, std::uint32_t length, std::uint32_t capacity) noexcept;

    unsigned char* m_buffer = nullptr;  // owned; allocated with malloc
    // The payload is the range from m_start to m_end. A read only advances m_start. The payload moves to the front of
    // the block again when it becomes empty, when a write needs the room, and in buffer.
    mutable std::uint32_t m_start = kHeaderSize;
    mutable std::uint32_t m_end = kHeaderSize;
    std::uint32_t m_growBy = kDefaultGrowBy;
    std::uint32_t m_capacity = 0;
    mutable KestCriticalSectionObject m_lock;  // with m_bias, guards all members in read, peek, write and the operators
    mutable internal::LockBias m_bias;
};

}  // namespace KestSupport
