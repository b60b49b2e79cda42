// Ints and short texts, in turns, into a new stream and out of one; a text has 6 to 11 characters. Reading goes into
// the same two variables, as a caller's loop would. "of 1000000" compares one long stream with a hundred short ones:
// where the time grows with the values alone, the two are about the same.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "support/object_streams.h"
#ifdef KEST_HAVE_MSGPACK
#include <msgpack.hpp>
#endif
#ifdef KEST_HAVE_BOOST_SERIALIZATION
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#endif

using KestBench::Body;
using KestBench::Comparison;
using KestSupport::KestBufferStream;

namespace {

struct Values {
    std::vector<int> numbers;
    std::vector<std::string> texts;

    explicit Values(std::size_t count) {
        std::uint32_t random = 1;
        for (std::size_t i = 0; i < count; ++i) {
            random = random * 1103515245U + 12345U;
            numbers.push_back(static_cast<int>(random));
            texts.push_back("value " + std::to_string((random >> 8) % 100000));
        }
    }

    template <typename Write>
    void forEach(Write write) const {
        for (std::size_t i = 0; i < numbers.size(); ++i)
            write(numbers[i], texts[i]);
    }
};

using SharedValues = std::shared_ptr<const Values>;

void writeTo(KestBufferStream& stream, const Values& values) {
    values.forEach([&](int number, const std::string& text) {
        stream << number;
        stream << text;
    });
}

// A body that reads as many pairs as there are values.
template <typename Open, typename Read>
Body reading(const SharedValues& values, Open open, Read read, int times = 1) {
    const auto readAll = [=] {
        auto source = open();
        int number = 0;
        std::string text;
        for (std::size_t i = values->numbers.size(); i > 0; --i) {
            read(*source, number, text);
            benchmark::DoNotOptimize(number);
            benchmark::DoNotOptimize(text.data());
        }
    };
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            for (int i = 0; i < times; ++i)
                readAll();
        }
    };
}

Body writeOurs(const SharedValues& values, int times = 1) {
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            for (int i = 0; i < times; ++i) {
                KestBufferStream stream;
                writeTo(stream, *values);
                benchmark::DoNotOptimize(stream.buffer());
            }
        }
    };
}

Body readOurs(const SharedValues& values, int times = 1) {
    const auto written = std::make_shared<KestBufferStream>();
    writeTo(*written, *values);
    return reading(
        values, [=] { return std::make_unique<KestBufferStream>(*written); },
        [](KestBufferStream& stream, int& number, std::string& text) {
            stream >> number;
            stream >> text;
        },
        times);
}

#ifdef KEST_HAVE_MSGPACK
void pack(msgpack::sbuffer& buffer, const Values& values) {
    msgpack::packer<msgpack::sbuffer> packer(buffer);
    values.forEach([&](int number, const std::string& text) {
        packer.pack(number);
        packer.pack(text);
    });
}

Body writePacked(const SharedValues& values) {
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            msgpack::sbuffer buffer;
            pack(buffer, *values);
            benchmark::DoNotOptimize(buffer.data());
        }
    };
}

struct Packed {
    explicit Packed(const msgpack::sbuffer& written) : buffer(written) {}
    template <typename Value>
    void next(Value& value) {
        msgpack::unpack(zone, buffer.data(), buffer.size(), offset).convert(value);
    }
    const msgpack::sbuffer& buffer;
    msgpack::zone zone;
    std::size_t offset = 0;
};

Body readPacked(const SharedValues& values) {
    const auto written = std::make_shared<msgpack::sbuffer>();
    pack(*written, *values);
    return reading(
        values, [=] { return std::make_unique<Packed>(*written); },
        [](Packed& packed, int& number, std::string& text) {
            packed.next(number);
            packed.next(text);
        });
}
#endif

#ifdef KEST_HAVE_BOOST_SERIALIZATION
void archive(std::ostream& stream, const Values& values) {
    boost::archive::binary_oarchive archive(stream);
    values.forEach([&](int number, const std::string& text) { archive << number << text; });
}

Body writeArchive(const SharedValues& values) {
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            std::ostringstream stream;
            archive(stream, *values);
            benchmark::DoNotOptimize(stream);
        }
    };
}

struct Archive {
    explicit Archive(const std::string& written) : stream(written), archive(stream) {}
    std::istringstream stream;
    boost::archive::binary_iarchive archive;
};

Body readArchive(const SharedValues& values) {
    std::ostringstream written;
    archive(written, *values);
    return reading(
        values, [text = written.str()] { return std::make_unique<Archive>(text); },
        [](Archive& archive, int& number, std::string& text) { archive.archive >> number >> text; });
}
#endif

}  // namespace

void KestBench::registerBenches() {
    const auto values = std::make_shared<const Values>(100000);
    Comparison("object_streams/write")
        .ours(writeOurs(values))
#ifdef KEST_HAVE_MSGPACK
        .peer("msgpack-c", 0.6, writePacked(values))
#endif
#ifdef KEST_HAVE_BOOST_SERIALIZATION
        .peer("Boost.Serialization", 0.45, writeArchive(values))
#endif
        ;
    Comparison("object_streams/read")
        .ours(readOurs(values))
#ifdef KEST_HAVE_MSGPACK
        .peer("msgpack-c", 0.6, readPacked(values))
#endif
#ifdef KEST_HAVE_BOOST_SERIALIZATION
        .peer("Boost.Serialization", 0.45, readArchive(values))
#endif
        ;
    const auto many = std::make_shared<const Values>(1000000);
    const auto few = std::make_shared<const Values>(10000);
    Comparison("object_streams/write of 1000000").ours(writeOurs(many)).peer("100 of 10000", 1.5, writeOurs(few, 100));
    Comparison("object_streams/read of 1000000").ours(readOurs(many)).peer("100 of 10000", 1.5, readOurs(few, 100));
}
