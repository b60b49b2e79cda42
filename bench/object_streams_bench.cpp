// Ints and texts of 6 to 11 characters alternate. They are written into a new stream, and read from one into the same
// two variables, as in a caller's loop. msgpack-c reads with a visitor in one pass, without intermediate objects.
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

    explicit Values(int count) {
        std::uint32_t random = 1;
        for (int i = 0; i < count; ++i) {
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

// A body that reads all pairs of the stream.
template <typename Open, typename Read>
Body reading(const SharedValues& values, Open open, Read read) {
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
        for (auto _ : state)
            readAll();
    };
}

Body writeOurs(const SharedValues& values) {
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            KestBufferStream stream;
            writeTo(stream, *values);
            benchmark::DoNotOptimize(stream.buffer());
        }
    };
}

Body readOurs(const SharedValues& values) {
    const auto written = std::make_shared<KestBufferStream>();
    writeTo(*written, *values);
    return reading(
        values, [=] { return std::make_unique<KestBufferStream>(*written); },
        [](KestBufferStream& stream, int& number, std::string& text) {
            stream >> number;
            stream >> text;
        });
}

#ifdef KEST_HAVE_MSGPACK
void pack(msgpack::sbuffer& buffer, const Values& values) {
    msgpack::packer<msgpack::sbuffer> packer(buffer);
    packer.pack_array(static_cast<std::uint32_t>(2 * values.numbers.size()));
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

// Assigns each value to one of the two variables, in one pass.
struct Filling : msgpack::null_visitor {
    bool visit_positive_integer(std::uint64_t value) {
        number = static_cast<int>(value);
        benchmark::DoNotOptimize(number);
        return true;
    }
    bool visit_negative_integer(std::int64_t value) {
        number = static_cast<int>(value);
        benchmark::DoNotOptimize(number);
        return true;
    }
    bool visit_str(const char* begin, std::uint32_t size) {
        text.assign(begin, size);
        benchmark::DoNotOptimize(text.data());
        return true;
    }
    int number = 0;
    std::string text;
};

Body readPacked(const SharedValues& values) {
    const auto written = std::make_shared<msgpack::sbuffer>();
    pack(*written, *values);
    return [=](benchmark::State& state) {
        for (auto _ : state) {
            Filling filling;
            if (!msgpack::parse(written->data(), written->size(), filling)) state.SkipWithError("not parsed");
        }
    };
}
#else
Body writePacked(const SharedValues&) {
    return KestBench::kMissing;
}
Body readPacked(const SharedValues&) {
    return KestBench::kMissing;
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
#else
Body writeArchive(const SharedValues&) {
    return KestBench::kMissing;
}
Body readArchive(const SharedValues&) {
    return KestBench::kMissing;
}
#endif

void writeMany(benchmark::State& state, int count) {
    writeOurs(std::make_shared<const Values>(count))(state);
}
void readMany(benchmark::State& state, int count) {
    readOurs(std::make_shared<const Values>(count))(state);
}

}  // namespace

void KestBench::registerBenches() {
    const auto values = std::make_shared<const Values>(100000);
    Comparison("object_streams/write")
        .ours(writeOurs(values))
        .peer("msgpack-c", 1.0, writePacked(values))
        .peer("Boost.Serialization", 0.45, writeArchive(values));
    Comparison("object_streams/read")
        .ours(readOurs(values))
        .peer("msgpack-c", readPacked(values))
        .peer("Boost.Serialization", 0.55, readArchive(values));
    Growth("object_streams/write", "pairs").limit(1.15).at({100, 1000, 10000, 100000, 1000000}, writeMany);
    Growth("object_streams/read", "pairs").limit(1.15).at({100, 1000, 10000, 100000, 1000000}, readMany);
}
