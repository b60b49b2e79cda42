// Object streams: the bytes of each type in both directions, damaged payloads, foreign streams, and the memory of a
// buffer stream.
#include "support/object_streams.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "kit/allocations.h"
#include "kit/failing_calls.h"

namespace {

using namespace KestSupport;
using namespace std::string_literals;

constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kMost = ~std::size_t{0};

// The block of a stream as bytes, and its payload.
std::string blockOf(const KestBufferStream& stream) {
    return {reinterpret_cast<const char*>(stream.buffer()), stream.size() + kHeaderSize};
}
std::string payloadOf(const KestBufferStream& stream) {
    return blockOf(stream).substr(kHeaderSize);
}

// Its texts take two calls of the primitives, which it could override.
struct Derived : KestBufferStream {
    Derived() = default;
    Derived(const void* data, unsigned int size) : KestBufferStream(data, size) {}
};
template <typename Stream>
struct ObjectStreams : testing::Test {};
using Streams = testing::Types<KestBufferStream, Derived>;
TYPED_TEST_SUITE(ObjectStreams, Streams);

template <typename Stream, typename Value>
std::string written(const Value& value) {
    Stream stream;
    stream << value;
    return payloadOf(stream);
}

// The variable after it was read from the payload, of which nothing is left.
template <typename Stream, typename Value>
Value readFrom(const std::string& payload, Value value) {
    const std::string block = "head" + payload;
    Stream stream(block.data(), static_cast<unsigned int>(block.size()));
    stream >> value;
    EXPECT_EQ(stream.size(), 0U);
    return value;
}

TYPED_TEST(ObjectStreams, WriteAndReadEachType) {
    const auto expectBytes = [](auto value, auto before, const std::string& bytes) {
        EXPECT_EQ(written<TypeParam>(value), bytes);
        EXPECT_EQ(readFrom<TypeParam>(bytes, before), value);
    };
    expectBytes('a', 'b', "a");
    expectBytes(static_cast<unsigned char>(200), static_cast<unsigned char>(1), "\xC8");
    expectBytes(static_cast<short>(-2), static_cast<short>(1), "\xFE\xFF");
    expectBytes(static_cast<unsigned short>(0x1234), static_cast<unsigned short>(1), "\x34\x12");
    expectBytes(-2, 1, "\xFE\xFF\xFF\xFF");
    expectBytes(0x12345678U, 1U, "\x78\x56\x34\x12");
    expectBytes(-2L, 1L, "\xFE\xFF\xFF\xFF");
    expectBytes(0xFFFFFFFEUL, 1UL, "\xFE\xFF\xFF\xFF");
    expectBytes(-2LL, 1LL, "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
    expectBytes(0x0123456789ABCDEFULL, 1ULL, "\xEF\xCD\xAB\x89\x67\x45\x23\1");
    expectBytes(true, false, "\1\0\0\0"s);
    expectBytes(static_cast<signed char>(-2), static_cast<signed char>(1), "\xFE\xFF\xFF\xFF");
    expectBytes(1.0F, 0.0F, "\0\0\x80\x3F"s);
    expectBytes(1.0, 0.0, "\0\0\0\0\0\0\xF0\x3F"s);
    expectBytes("text"s, ""s, "\4\0\0\0\0\0\0\0text"s);
    expectBytes("shorter text"s, "a text of 20 letters"s, "\xC\0\0\0\0\0\0\0shorter text"s);
    expectBytes(wstring16{'a', 0xE9, 0xD800}, wstring16{}, "\3\0\0\0\0\0\0\0a\0\xE9\0\0\xD8"s);
    expectBytes(std::string(300, 'x'), ""s, "\x2C\1\0\0\0\0\0\0"s + std::string(300, 'x'));
    EXPECT_EQ(written<TypeParam>("a\0b"s), "\1\0\0\0\0\0\0\0a"s);
    EXPECT_EQ(written<TypeParam>("a\0 in a word"s), "\1\0\0\0\0\0\0\0a"s);
    EXPECT_EQ(written<TypeParam>("nine byte\0s"s), "\x9\0\0\0\0\0\0\0nine byte"s);
    EXPECT_EQ(written<TypeParam>(wstring16{0, 1}), "\2\0\0\0\0\0\0\0\0\0\1\0"s);
    EXPECT_EQ(written<TypeParam>(static_cast<const char*>(nullptr)), "\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(written<TypeParam>(static_cast<long>(0x123456789ABCDEF0)), "\xF0\xDE\xBC\x9A");
}

TYPED_TEST(ObjectStreams, ReadOnlyWhatPayloadHas) {
    EXPECT_EQ(readFrom<TypeParam>("\1\2", 0x55667788), 0x55660201);
    EXPECT_EQ(readFrom<TypeParam>("", 0x5566778811223344LL), 0x5566778811223344LL);
    EXPECT_TRUE(readFrom<TypeParam>("", true));
    EXPECT_TRUE(readFrom<TypeParam>("\0\1"s, false));
    EXPECT_EQ(readFrom<TypeParam>("", "before"s), "before");
    const std::string empty = "\0\0\0\0\0\0\0\0"s;
    EXPECT_EQ(readFrom<TypeParam>(empty, "before"s), "before");
    EXPECT_EQ(readFrom<TypeParam>(empty, wstring16{'b'}), wstring16{'b'});
    EXPECT_EQ(readFrom<TypeParam>(empty, static_cast<char*>(nullptr)), nullptr);
    for (const std::string& length :
         {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "\0\0\0\0\0\0\0\x80"s, "\5\0\0\0\0\0\0\0"s}) {
        EXPECT_EQ(readFrom<TypeParam>(length + "ab\0"s, "before"s), "ab");
        EXPECT_EQ(readFrom<TypeParam>(length + "a\0b"s, wstring16{'b'}), (wstring16{'a', 'b'}));
        const std::unique_ptr<char[]> text(readFrom<TypeParam>(length + "a\0b"s, static_cast<char*>(nullptr)));
        EXPECT_EQ(std::memcmp(text.get(), "a\0b\0", 4), 0) << "an array has the NULs of the text and one more";
    }
}

TYPED_TEST(ObjectStreams, ChainOperators) {
    TypeParam stream;
    const std::int64_t large = 0x123456789ABCDEF0;
    std::int64_t number = 0;
    std::string text;
    stream << inEightBytes(large) << "text" << inEightBytes(kMost) << 'c';
    stream >> inEightBytes(number) >> text;
    EXPECT_EQ(number, large);
    EXPECT_EQ(text, "text");
    EXPECT_EQ(payloadOf(stream), std::string(8, '\xFF') + "c");
}

// Delivers `bytes`, and records its calls.
struct ForeignStream : KestInputObjectStream, KestOutputObjectStream {
    void reset() override {}
    std::size_t read(void* destination, std::size_t size, std::size_t count) override {
        write(nullptr, size, count);
        const std::size_t n = std::min(size * count, bytes.size());
        std::memcpy(destination, bytes.data(), n);
        bytes.erase(0, n);
        return returnsCount ? n : 0;
    }
    std::size_t write(const void*, std::size_t size, std::size_t count) override {
        calls += std::to_string(size) + "*" + std::to_string(count) + " ";
        return 0;
    }
    std::string bytes, calls;
    bool returnsCount = false;
};

// The replay of own_stream_fuzz checks that a false length costs no memory.
TEST(ForeignStreams, GetOneCallForEachPart) {
    ForeignStream stream;
    std::string text = "before";
    wstring16 wide{'b'};
    stream << "abc" << wide << 'c';
    stream.bytes = "\x90\1\0\0\0\0\0\0"s + std::string(400, 'x') + "\x90\1\0\0\0\0\0\0"s + std::string(800, '\1');
    stream >> text >> wide;
    EXPECT_EQ(stream.calls, "8*1 1*3 8*1 2*1 1*1 8*1 1*400 8*1 2*400 ");
    EXPECT_EQ(text, std::string(400, 'x')) << "the result of read does not matter";
    EXPECT_EQ(wide, wstring16(400, 0x101));
    stream.returnsCount = true;
    stream.calls.clear();
    stream.bytes = "\x40\x0D\3\0\0\0\0\0"s + std::string(200000, 'y');
    stream >> text;
    EXPECT_EQ(stream.calls, "8*1 1*65536 1*65536 1*68928 ") << "a long text is read in pieces";
    EXPECT_EQ(text, std::string(200000, 'y'));
}

TEST(CheckedStreams, NoteTheFirstFailure) {
    KestBufferStream stream;
    KestCheckedOutputStream out(stream);
    out << "four" << wstring16(5, 'w') << 1 << 2 << "rest";
    EXPECT_FALSE(out.failed());
    {
        const kit::FailingCalls failing("realloc");
        out << std::string(1000, 'x');
    }
    out << 'x';
    EXPECT_TRUE(out.failed());
    EXPECT_EQ(stream.size(), 12U + 18 + 4 + 4 + 12 + 8) << "only the length of the long text";
    KestCheckedInputStream in(stream, 4);
    std::string text = "before";
    wstring16 wide{'b'};
    int number = 0;
    in >> text;
    EXPECT_FALSE(in.failed());
    EXPECT_EQ(text, "four");
    in >> wide >> number;
    EXPECT_TRUE(in.failed()) << "the text is too long";
    EXPECT_EQ(wide, wstring16{'b'});
    EXPECT_EQ(number, 0);
    stream.reset();
    stream << 7;
    KestCheckedInputStream next(stream);
    std::int64_t large = 0;
    next >> inEightBytes(large);
    EXPECT_TRUE(next.failed()) << "four bytes are missing";
    next.reset();
    EXPECT_FALSE(next.failed());
    out.reset();
    out << std::string(3, 'x');
    next >> text;
    EXPECT_EQ(text, "xxx");
    EXPECT_FALSE(out.failed() || next.failed());
}

TEST(BufferStream, KeepsTextThatFindsNoMemory) {
    KestBufferStream stream;
    std::string text, expected(100000, 'x');
    wstring16 wide;
    char* array = nullptr;
    stream << expected;
    {
        const kit::AllocationHook refusing([](std::size_t size) { return size < 100000; });
        EXPECT_THROW(stream >> text, std::bad_alloc);
        EXPECT_THROW(stream >> wide, std::bad_alloc);
        EXPECT_THROW(stream >> array, std::bad_alloc);
    }
    stream >> text;
    EXPECT_EQ(text, expected);
    EXPECT_EQ(stream.size(), 0U);
}

// The replay of object_streams_fuzz checks peek and copies.
TEST(BufferStream, TakesAndReturnsBlocks) {
    KestBufferStream stream("head\1\0\0\0\2", 9);
    int number = 0;
    EXPECT_EQ(stream.read(&number, kMost, 0), 0U);
    stream >> number;
    EXPECT_EQ(number, 1);
    EXPECT_EQ(blockOf(stream), "\1\0\0\0\2"s);
    EXPECT_EQ(stream.peek(&number, kMost, kMost), 1U);
    stream.reset();
    EXPECT_EQ(stream.read(&number, kMost, 2), 0U);
    stream << 'x';
    EXPECT_EQ(blockOf(stream), "\1\0\0\0x"s);
    for (unsigned int size = 0; size <= kHeaderSize; ++size)
        EXPECT_EQ(KestBufferStream("\7\0\0\0", size).size(), 0U);
}

// Against a text. The payload moves to places before, after and across its former ones.
TEST(BufferStream, KeepsBytesThroughWritesAndReads) {
    for (const unsigned long growBy : {0UL, 1UL, 64UL}) {
        KestBufferStream stream(growBy), copy(1);
        std::string expected;
        for (unsigned int step = 1; step < 3000; ++step) {
            const std::string more(step * 7 % 97, static_cast<char>(step));
            EXPECT_EQ(stream.write(more.data(), more.size(), 1), more.size());
            expected += more;
            std::string taken(step * 11 % 95, '\0');
            taken.resize(stream.read(taken.data(), 1, taken.size()));
            ASSERT_EQ(taken, expected.substr(0, taken.size()));
            expected.erase(0, taken.size());
            copy = step % 2 == 0 ? stream : KestBufferStream(stream);
            copy = *&copy;
            ASSERT_EQ(payloadOf(copy), expected);
        }
    }
}

TEST(BufferStream, IgnoresWriteWithoutRoom) {
    KestBufferStream stream(8);
    stream << 1 << 2 << 3;
    const kit::FailingCalls failing("realloc");
    EXPECT_EQ(stream.write("0123456789", 10, 1), 0U);
    EXPECT_EQ(stream.write("", kMost, 2), 0U);
    EXPECT_EQ(stream.write("", 0xFFFFFFF8, 1), 0U) << "4 GiB with the header";
    EXPECT_EQ(kit::FailingCalls::seen(), 2) << "only for what a block can have";
    stream << "a length finds room, but not with its text" << wstring16(2, 'w');
    EXPECT_EQ(stream.size(), 12U);
    int number = 0;
    stream >> number;
    EXPECT_EQ(stream.write("abcd", 4, 1), 4U) << "the read made room";
    EXPECT_EQ(payloadOf(stream), "\2\0\0\0\3\0\0\0abcd"s);
}

// Each stream belongs to its writer until the reader evicts it, so there are many.
TEST(BufferStream, HasReaderBesideWriter) {
    for (int round = 0; round < 100; ++round) {
        constexpr int kCount = 300;
        KestBufferStream stream;
        const std::jthread writer([&] {
            for (int i = 0; i < kCount; ++i)
                stream << i;
        });
        for (int expected = 0, number = 0; expected < kCount; ++expected) {
            while (stream.read(&number, sizeof number, 1) == 0)
                std::this_thread::yield();
            ASSERT_EQ(number, expected);
        }
    }
}

}  // namespace
