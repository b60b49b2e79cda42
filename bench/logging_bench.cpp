// Log records: to a file that has each when the call returns, by one thread and by several at once, and above the
// level.
#include "bench_kit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/logging.h"
#ifdef KEST_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

using namespace KestSupport;
using KestBench::Body;

namespace {

const std::string text = "free space of /var/lib";

/// A folder for the files of one measurement.
class Folder {
  public:
    Folder() : m_path(std::filesystem::temp_directory_path() / ("kest_logging_bench" + std::to_string(std::rand()))) {
        std::filesystem::create_directories(m_path);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(m_path); }

    std::string file(const std::string& name) const { return (m_path / name).string(); }

    /// The lines of all of its files.
    long lines() const {
        long count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            std::ifstream file(entry.path(), std::ios::binary);
            count += std::count(std::istreambuf_iterator<char>(file), {}, '\n');
        }
        return count;
    }

  private:
    const std::filesystem::path m_path;
};

struct Ours : Folder {
    Ours() { KestLogging::setInstance(logging); }

    void log(int value) {
        if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 5)
            KestLogging::getInstance() << setloglevel(5) << value << text << endrecord;
    }

    void logAboveTheLevel(int value) {
        if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 9)
            KestLogging::getInstance() << setloglevel(9) << value << text << endrecord;
    }

    KestLogging logging{file("ours"), KestLogging::fileTarget, 5};
};

/// The bytes of a record, written without a logger. Threads share the file, as they do with a logger.
struct BareFile : Folder {
    ~BareFile() { ::close(descriptor); }

    void log(int) { benchmark::DoNotOptimize(::write(descriptor, line.data(), line.size())); }

    const std::string line = "20261118_13:05:07 5 Global     [4711] 1234567" + text + "\n";
    const int descriptor = ::open(file("bare.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
};

#ifdef KEST_HAVE_SPDLOG
struct Spdlog : Folder {
    Spdlog() {
        logger.set_level(spdlog::level::info);
        logger.flush_on(spdlog::level::info);
    }

    void log(int value) {
        if (logger.should_log(spdlog::level::info)) logger.info("{}{}", value, text);
    }

    void logAboveTheLevel(int value) {
        if (logger.should_log(spdlog::level::trace)) logger.trace("{}{}", value, text);
    }

    spdlog::logger logger{"bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file("spdlog.log"), true)};
};
#endif

template <typename Logger>
void logRecords(benchmark::State& state) {
    Logger logger;
    int value = 0;
    for (auto _ : state)
        logger.log(++value);
}

template <typename Logger>
void logAboveTheLevel(benchmark::State& state) {
    Logger logger;
    int value = 0;
    for (auto _ : state) {
        logger.logAboveTheLevel(++value);
        benchmark::ClobberMemory();
    }
}

constexpr long kRecords = 20000;  // of all threads together

// The time for one line that is in the file at the end: a record that a logger drops is no line. The threads start
// together; their start is not measured.
template <typename Logger>
void logByThreads(benchmark::State& state, int count) {
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        Logger logger;
        const long before = logger.lines();
        std::atomic<int> ready{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&] {
                ++ready;
                while (!go)
                    std::this_thread::yield();
                for (int value = 0; value < kRecords / count; ++value)
                    logger.log(value);
            });
        }
        while (ready != count)
            std::this_thread::yield();
        const auto begin = Clock::now();
        go = true;
        for (std::thread& thread : threads)
            thread.join();
        const std::chrono::duration<double, std::nano> elapsed = Clock::now() - begin;
        const long lines = logger.lines() - before;
        if (lines == 0) state.SkipWithError("no lines");
        state.counters["value"] = elapsed.count() / static_cast<double>(lines);
    }
    state.SetLabel("ns");
}

template <typename Logger>
void logByTwo(benchmark::State& state) {
    logByThreads<Logger>(state, 2);
}

#ifdef KEST_HAVE_SPDLOG
const Body spdlogRecords = logRecords<Spdlog>;
const Body spdlogByTwo = logByTwo<Spdlog>;
const Body spdlogAboveTheLevel = logAboveTheLevel<Spdlog>;
#else
const Body spdlogRecords = KestBench::kMissing;
const Body spdlogByTwo = KestBench::kMissing;
const Body spdlogAboveTheLevel = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    Comparison("logging/record flushed to a file")
        .ours(logRecords<Ours>)
        .peer("write(2) with O_APPEND", 1.1, logRecords<BareFile>)
        .peer("spdlog", 0.75, spdlogRecords);
    Comparison("logging/line of two threads")
        .iterations(1)
        .ours(logByTwo<Ours>)
        .peer("write(2) with O_APPEND", logByTwo<BareFile>)
        .peer("spdlog", 0.9, spdlogByTwo);
    Comparison("logging/record above the level").ours(logAboveTheLevel<Ours>).peer("spdlog", 1.0, spdlogAboveTheLevel);
    Growth("logging/line", "threads").iterations(1).at({1, 2, 4, 8}, logByThreads<Ours>);
}
