#include "bench_kit.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "support/logging.h"
#ifdef KEST_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

using namespace KestSupport;

namespace {

const std::string text = "free space of /var/lib";

/// A folder for the files of one measurement; all its threads share one.
class Folder {
  public:
    Folder() : m_path(std::filesystem::temp_directory_path() / ("kest_logging_bench" + std::to_string(std::rand()))) {
        std::filesystem::create_directories(m_path);
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    std::string file(const std::string& name) const { return (m_path / name).string(); }

  private:
    const std::filesystem::path m_path;
};

/// What the threads of one measurement share: made by the first that comes, gone with the last.
template <typename T>
std::shared_ptr<T> shared() {
    static std::mutex lock;
    static std::weak_ptr<T> current;
    const std::lock_guard guard(lock);
    std::shared_ptr<T> object = current.lock();
    if (!object) current = object = std::make_shared<T>();
    return object;
}

struct Ours : Folder {
    Ours() { KestLogging::setInstance(logging); }
    KestLogging logging{file("ours"), KestLogging::fileTarget, 5};
};

void logRecords(benchmark::State& state) {
    const auto ours = shared<Ours>();
    int value = 0;
    for (auto _ : state) {
        if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 5) {
            KestLogging::getInstance() << setloglevel(5) << ++value << text << endrecord;
        }
    }
}

void logAboveTheLevel(benchmark::State& state) {
    const auto ours = shared<Ours>();
    int value = 0;
    for (auto _ : state) {
        if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 9) {
            KestLogging::getInstance() << setloglevel(9) << ++value << text << endrecord;
        }
        benchmark::ClobberMemory();
    }
}

void writeTheSameBytes(benchmark::State& state) {
    const Folder folder;
    const int file = ::open(folder.file("bare.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string line = "20261118_13:05:07 5 Global     [4711] 1234567" + text + "\n";
    for (auto _ : state)
        benchmark::DoNotOptimize(::write(file, line.data(), line.size()));
    ::close(file);
}

#ifdef KEST_HAVE_SPDLOG
struct Spdlog : Folder {
    Spdlog() {
        logger.set_level(spdlog::level::info);
        logger.flush_on(spdlog::level::info);
    }
    spdlog::logger logger{"bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(file("spdlog.log"), true)};
};

void spdlogRecords(benchmark::State& state) {
    const auto peer = shared<Spdlog>();
    int value = 0;
    for (auto _ : state)
        peer->logger.info("{}{}", ++value, text);
}

void spdlogAboveTheLevel(benchmark::State& state) {
    const auto peer = shared<Spdlog>();
    int value = 0;
    for (auto _ : state) {
        peer->logger.trace("{}{}", ++value, text);
        benchmark::ClobberMemory();
    }
}
#endif

}  // namespace

void KestBench::registerBenches() {
    Comparison record("logging/record flushed to a file");
    Comparison twoThreads("logging/record flushed to a file by two threads");
    Comparison unseen("logging/record above the level");
    record.ours(logRecords).peer("write(2)", 1.15, writeTheSameBytes);
    twoThreads.threads(2).realTime().ours(logRecords);
    unseen.ours(logAboveTheLevel);
#ifdef KEST_HAVE_SPDLOG
    record.peer("spdlog", 0.75, spdlogRecords);
    twoThreads.peer("spdlog", 0.6, spdlogRecords);
    unseen.peer("spdlog", 0.25, spdlogAboveTheLevel);
#endif
}
