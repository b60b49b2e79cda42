#include "support/object_streams.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <thread>

#include "kit/allocations.h"
#include "kit/failing_calls.h"

namespace KestSupport {
namespace {

// While an object lives, its thread gets no single piece of memory that is longer.
struct MemoryLimit {
    explicit MemoryLimit(std::size_t bytes) { t_most = bytes; }
    ~MemoryLimit() { t_most = std::numeric_limits<std::size_t>::max(); }
    inline static thread_local std::size_t t_most = std::numeric_limits<std::size_t>::max();
    const kit::AllocationHook hook{[](std::size_t size) { return size <= t_most; }};
};

using namespace std::string_literals;

// The block of a stream as bytes.
std::string blockOf(const KestBufferStream& stream) {
    return {reinterpret_cast<const char*>(stream.buffer()), stream.size() + 4};
}

// A buffer stream as it is, and one whose primitives a derived class might have replaced.
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
    return blockOf(stream).substr(4);
}

// What is in the variable after it was read from the payload, and that the stream is then empty.
template <typename Stream, typename Value>
Value readFrom(const std::string& payload, Value value) {
    const std::string block = "head" + payload;
    Stream stream(block.data(), static_cast<unsigned int>(block.size()));
    stream >> value;
    EXPECT_EQ(stream.size(), 0U);
    return value;
}

TYPED_TEST(ObjectStreams, EachTypeHasItsBytesInBothDirections) {
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
    expectBytes(wstring16{'a', 0xE9, 0xD800}, wstring16{}, "\3\0\0\0\0\0\0\0a\0\xE9\0\0\xD8"s);
    expectBytes(std::string(300, 'x'), ""s, "\x2C\1\0\0\0\0\0\0"s + std::string(300, 'x'));
    EXPECT_EQ(written<TypeParam>("a\0b"s), "\1\0\0\0\0\0\0\0a"s) << "a narrow text ends at its first NUL";
    EXPECT_EQ(written<TypeParam>(wstring16{0, 1}), "\2\0\0\0\0\0\0\0\0\0\1\0"s);
    EXPECT_EQ(written<TypeParam>(static_cast<const char*>(nullptr)), "\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(written<TypeParam>(0x123456789ABCDEF0L), "\xF0\xDE\xBC\x9A") << "a long is 4 bytes wide";
}

TYPED_TEST(ObjectStreams, WhatAPayloadDoesNotHoldIsNotMadeUp) {
    EXPECT_EQ(readFrom<TypeParam>("\1\2", 0x55667788), 0x55660201);
    EXPECT_EQ(readFrom<TypeParam>("", 0x5566778811223344L), 0x5566778811223344L);
    EXPECT_TRUE(readFrom<TypeParam>("", true) && readFrom<TypeParam>("\0\1"s, false));
    EXPECT_EQ(readFrom<TypeParam>("", "before"s), "before");
    EXPECT_EQ(readFrom<TypeParam>("\0\0\0\0\0\0\0\0"s, "before"s), "before");
    EXPECT_EQ(readFrom<TypeParam>("\0\0\0\0\0\0\0\0"s, wstring16{'b'}), wstring16{'b'});
    EXPECT_EQ(readFrom<TypeParam>("\0\0\0\0\0\0\0\0"s, static_cast<char*>(nullptr)), nullptr);
    for (const std::string& length :
         {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "\0\0\0\0\0\0\0\x80"s, "\5\0\0\0\0\0\0\0"s}) {
        EXPECT_EQ(readFrom<TypeParam>(length + "ab\0"s, "before"s), "ab");
        EXPECT_EQ(readFrom<TypeParam>(length + "a\0b"s, wstring16{'b'}), (wstring16{'a', 'b'}));
        const std::unique_ptr<char[]> text(readFrom<TypeParam>(length + "a\0b"s, static_cast<char*>(nullptr)));
        EXPECT_EQ(std::memcmp(text.get(), "a\0b\0", 4), 0) << "an array keeps its NULs and has one more";
    }
}

TYPED_TEST(ObjectStreams, OperatorsStandInARow) {
    TypeParam stream;
    const std::int64_t large = 0x123456789ABCDEF0;
    std::int64_t number = 0;
    std::size_t size = 0;
    std::string text;
    stream << 'c' << inEightBytes(large) << "text" << inEightBytes(text.max_size()) << 2LL;
    char c = 0;
    stream >> c >> inEightBytes(number) >> text >> inEightBytes(size);
    EXPECT_TRUE(c == 'c' && number == large && text == "text" && size == text.max_size() && stream.size() == 8);
}

TEST(InputOutputObjectStream, AStreamOfOnesOwnIsAskedOnceForEachPartAndForALongTextInPieces) {
    struct Own : KestInputObjectStream, KestOutputObjectStream {
        void reset() override {}
        std::size_t read(void* destination, std::size_t size, std::size_t count) override {
            write(nullptr, size, count);
            const std::size_t n = std::min(size * count, bytes.size());
            std::memcpy(destination, bytes.data(), n);
            bytes.erase(0, n);
            return n * counts;
        }
        std::size_t write(const void*, std::size_t size, std::size_t count) override {
            seen += std::to_string(size) + "*" + std::to_string(count) + " ";
            return 0;
        }
        std::string bytes, seen;
        bool counts = false;  // what it delivers
    } stream;
    std::string text = "before";
    wstring16 wide{'b'};
    stream << "abc" << wide << 'c';
    stream.bytes = "\x90\1\0\0\0\0\0\0"s + std::string(400, 'x') + "\x90\1\0\0\0\0\0\0"s + std::string(800, '\1');
    stream >> text >> wide;
    EXPECT_EQ(stream.seen, "8*1 1*3 8*1 2*1 1*1 8*1 1*400 8*1 2*400 ");
    EXPECT_TRUE(text == std::string(400, 'x') && wide == wstring16(400, 0x101)) << "what read returns is not needed";
    stream.counts = true;
    stream.seen.clear();
    stream.bytes = "\x40\x0D\3\0\0\0\0\0"s + std::string(200000, 'y');
    stream >> text;
    EXPECT_TRUE(stream.seen == "8*1 1*65536 1*65536 1*68928 " && text == std::string(200000, 'y')) << stream.seen;
    for (const char* length : {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"}) {
        const MemoryLimit limit(70000);
        char* array = nullptr;
        stream.bytes = length + "abc"s, stream >> text;
        stream.bytes = length + "ab"s, stream >> wide;
        stream.bytes = length + "a"s, stream >> array;
        const std::unique_ptr<char[]> owner(array);
        EXPECT_TRUE(text == "abc" && wide == wstring16{0x6261} && array == "a"s) << "a length is not believed";
    }
}

TEST(BufferStream, ATextThatFindsNoMemoryStaysInTheStream) {
    KestBufferStream stream;
    std::string text, expected(100000, 'x');
    wstring16 wide;
    char* array = nullptr;
    stream << expected;
    {
        const MemoryLimit limit(50000);
        EXPECT_THROW(stream >> text, std::bad_alloc);
        EXPECT_THROW(stream >> wide, std::bad_alloc);
        EXPECT_THROW(stream >> array, std::bad_alloc);
    }
    stream >> text;
    EXPECT_TRUE(text == expected && stream.size() == 0);
}

TEST(BufferStream, ABlockIsHandedOnAndReadFromItsFront) {
    KestBufferStream stream, copy(1);
    int number = 0;
    stream << 1, stream << static_cast<short>(2);
    KestBufferStream received(stream.buffer(), 10);
    EXPECT_TRUE(received.peek(&number, 4, 1) == 4 && received.size() == 6 && number == 1);
    received >> number;
    copy = received;
    copy = *&copy;
    received.reset();
    EXPECT_EQ(received.peek(&number, ~std::size_t{0}, 2), 0U);
    received << 'x';
    EXPECT_EQ(blockOf(received), "\1\0\0\0x"s);
    EXPECT_EQ(blockOf(copy), "\2\0\0\0\2\0"s);
    EXPECT_EQ(copy.read(&number, ~std::size_t{0}, ~std::size_t{0}), 2U) << "more than there is gives what there is";
    for (unsigned int size = 0; size <= 4; ++size)
        EXPECT_EQ(KestBufferStream("\7\0\0\0", size).size(), 0U);
}

// Against a text that is appended to and cut, with payloads that lie in front of, behind and across their former
// places.
TEST(BufferStream, WritingAndReadingInTurnsKeepsEveryByte) {
    for (const unsigned long growBy : {0UL, 1UL, 64UL}) {
        KestBufferStream stream(growBy);
        std::string expected;
        for (unsigned int step = 1; step < 3000; ++step) {
            const std::string more(step * 7 % 97, static_cast<char>(step));
            EXPECT_EQ(stream.write(more.data(), more.size(), 1), more.size());
            expected += more;
            std::string taken(step * 11 % 95, '\0');
            taken.resize(stream.read(taken.data(), 1, taken.size()));
            ASSERT_EQ(taken, expected.substr(0, taken.size()));
            expected.erase(0, taken.size());
            ASSERT_EQ(blockOf(KestBufferStream(stream)).substr(4), expected);
        }
    }
}

TEST(BufferStream, AWriteThatFindsNoRoomChangesNothing) {
    KestBufferStream stream(8);
    stream << 1;
    const kit::FailingCalls failing("realloc");
    EXPECT_EQ(stream.write("0123456789", 10, 1), 0U);
    EXPECT_EQ(stream.write("", ~std::size_t{0}, 2), 0U);
    EXPECT_EQ(stream.write("", 0xFFFFFFF8, 1), 0U) << "4 GiB with the header";
    EXPECT_EQ(kit::FailingCalls::seen(), 2) << "what no block can hold is not tried";
    stream << "a length finds room, but not with its text" << wstring16(2, 'w');
    EXPECT_EQ(stream.size(), 4U);
    int number = 0;
    stream >> number;
    EXPECT_EQ(stream.write("0123456789", 10, 1), 10U) << "what was read made room";
    EXPECT_EQ(blockOf(stream),
              "\12\0\0\0"
              "0123456789"s);
}

// Each stream is its writer's own until the reader comes, so there are many of them.
TEST(BufferStream, OneThreadWritesWhileAnotherReads) {
    for (int round = 0; round < 100; ++round) {
        constexpr int kCount = 300;
        KestBufferStream stream;
        std::thread writer([&] {
            for (int i = 0; i < kCount; ++i)
                stream << i;
        });
        for (int expected = 0, number = 0; expected < kCount; ++expected) {
            while (stream.read(&number, sizeof number, 1) == 0)
                std::this_thread::yield();
            ASSERT_EQ(number, expected);
        }
        writer.join();
    }
}

}  // namespace
}  // namespace KestSupport
