// Log records: into a file that has each record when the call returns, from one thread and from several, and records
// above the level.
#include "bench_kit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/log_record.h"
#include "support/logging.h"
#include "temporary_folder.h"
#ifdef KEST_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

using namespace KestSupport;
using KestBench::Body;

namespace {

const std::string text = "free space of /var/lib";

struct Folder : KestBench::TemporaryFolder {
    /// The number of lines in all files of the folder.
    long lines() const {
        long count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(path())) {
            std::ifstream file(entry.path(), std::ios::binary);
            count += std::count(std::istreambuf_iterator<char>(file), {}, '\n');
        }
        return count;
    }
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

struct OneStep : Ours {
    void log(int value) { KestLogRecord(5) << value << text; }
    void logAboveTheLevel(int value) { KestLogRecord(9) << value << text; }
};

/// Writes the bytes of a record without a logger. Threads share the file, as they do with a logger.
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

// The elapsed time divided by the lines that are in the file at the end, so a record that a logger drops does not
// count. The threads begin together; their creation is not measured.
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
    Comparison("logging/KestLogRecord flushed to a file")
        .ours(logRecords<OneStep>)
        .peer("setloglevel ... endrecord", 1.0, logRecords<Ours>)
        .peer("spdlog", 0.75, spdlogRecords);
    Comparison("logging/line of two threads")
        .iterations(1)
        .ours(logByTwo<Ours>)
        .peer("write(2) with O_APPEND", logByTwo<BareFile>)
        .peer("spdlog", 0.9, spdlogByTwo);
    Comparison("logging/KestLogRecord of two threads")
        .iterations(1)
        .ours(logByTwo<OneStep>)
        .peer("setloglevel ... endrecord", logByTwo<Ours>)
        .peer("spdlog", 0.9, spdlogByTwo);
    Comparison("logging/KestLogRecord above the level")
        .ours(logAboveTheLevel<OneStep>)
        .peer("spdlog", 1.0, spdlogAboveTheLevel);
    Comparison("logging/record above the level").ours(logAboveTheLevel<Ours>).peer("spdlog", 1.0, spdlogAboveTheLevel);
    Growth("logging/line", "threads").iterations(1).at({1, 2, 4, 8}, logByThreads<Ours>);
}
