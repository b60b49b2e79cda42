// Values as bytes and back: typed operators over one primitive, and a memory buffer that has both.
//
//   KestObjectStream        the root of both directions
//   KestInputObjectStream   operator>> for each type, over read
//   KestOutputObjectStream  operator<< for each type, over write
//   KestBufferStream        both, over a block of memory that can be sent and wrapped again
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
#include <cstddef>
#include <cstdint>
#include <memory>
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

/// Every operator ignores what read returns: bytes that did not come leave the variable's as they were.
///
/// Texts: one of length 0 leaves its target unchanged. A length that the rest of a buffer stream does not hold takes
/// what is there, and no more memory than that; of another stream nothing is known, so its length is believed, and
/// std::bad_alloc thrown when there is no memory for it.
class KEST_SUPPORT_EXPORT KestInputObjectStream : public KestObjectStream {
  public:
    ~KestInputObjectStream() override;
    void reset() override = 0;
    /// Copies up to size times count bytes from the stream to `destination`, and takes them out of the stream.
    virtual std::size_t read(void* destination, std::size_t size, std::size_t count) = 0;

    KestObjectStream& operator>>(char& value);
    KestObjectStream& operator>>(unsigned char& value);
    KestObjectStream& operator>>(int& value);
    KestObjectStream& operator>>(unsigned int& value);
    KestObjectStream& operator>>(short& value);
    KestObjectStream& operator>>(unsigned short& value);
    /// A long has 4 bytes in a stream, whatever it has here; it is extended by its sign, an unsigned one by zeros.
    KestObjectStream& operator>>(long& value);
    KestObjectStream& operator>>(unsigned long& value);
    KestObjectStream& operator>>(float& value);
    KestObjectStream& operator>>(double& value);
    /// Sets `text` to a new array that holds all of the text, its NULs too, and a NUL behind it. The caller frees it
    /// with delete[].
    KestObjectStream& operator>>(char*& text);
    /// The text up to its first NUL, as for wide texts.
    KestObjectStream& operator>>(std::string& text);
    KestObjectStream& operator>>(wstring16& text);

  private:
    std::uint64_t unitsThere(std::uint64_t length, std::size_t unitSize);
    template <typename Unit>
    std::unique_ptr<Unit[]> readUnits(std::uint64_t length);
    template <typename Text>
    KestObjectStream& readText(Text& text);
};

/// Every operator ignores what write returns.
class KEST_SUPPORT_EXPORT KestOutputObjectStream : public KestObjectStream {
  public:
    ~KestOutputObjectStream() override;
    void reset() override = 0;
    /// Appends size times count bytes of `source` to the stream.
    virtual std::size_t write(const void* source, std::size_t size, std::size_t count) = 0;

    KestObjectStream& operator<<(char value);
    KestObjectStream& operator<<(unsigned char value);
    KestObjectStream& operator<<(int value);
    KestObjectStream& operator<<(unsigned int value);
    KestObjectStream& operator<<(short value);
    KestObjectStream& operator<<(unsigned short value);
    /// The low 32 bits.
    KestObjectStream& operator<<(long value);
    KestObjectStream& operator<<(unsigned long value);
    KestObjectStream& operator<<(float value);
    KestObjectStream& operator<<(double value);
    /// A null pointer counts as an empty text.
    KestObjectStream& operator<<(const char* text);
    /// The text up to its first NUL.
    KestObjectStream& operator<<(const std::string& text);
    /// All units of the text, NULs too.
    KestObjectStream& operator<<(const wstring16& text);

  private:
    template <typename Unit>
    KestObjectStream& writeText(const Unit* text, std::uint64_t length);
};

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
    std::size_t append(const void* source, std::size_t n) noexcept;
    template <typename Text>
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
