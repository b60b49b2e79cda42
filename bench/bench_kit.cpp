#include "bench_kit.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace KestBench {
namespace {

// A thread that sleeps for as long as this object lives.
class SecondThread {
  public:
    SecondThread() : m_thread([this] { sleep(); }) {}
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

    ~SecondThread() {
        {
            const std::lock_guard lock(m_mutex);
            m_over = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }

  private:
    void sleep() {
        std::unique_lock lock(m_mutex);
        m_wake.wait(lock, [this] { return m_over; });
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_over = false;  // guarded by m_mutex
    std::thread m_thread;
};

}  // namespace

Comparison::Comparison(std::string name) : m_name(std::move(name)) {}

Comparison& Comparison::realTime() {
    m_realTime = true;
    return *this;
}

Comparison& Comparison::threads(int count) {
    m_threads = count;
    return *this;
}

Comparison& Comparison::iterations(benchmark::IterationCount count) {
    m_iterations = count;
    return *this;
}

Comparison& Comparison::ours(Body body) {
    add("ours", 0, std::move(body));
    return *this;
}

Comparison& Comparison::peer(const std::string& name, double target, Body body) {
    add(name, target, std::move(body));
    return *this;
}

void Comparison::add(const std::string& side, double target, Body body) {
    auto* added = benchmark::RegisterBenchmark(
        (m_name + "/" + side).c_str(), [target, measured = std::move(body)](benchmark::State& state) {
            measured(state);
            state.counters["target"] = benchmark::Counter(target, benchmark::Counter::kAvgThreads);
        });
    if (m_realTime) added->UseRealTime();
    if (m_threads > 1) added->Threads(m_threads);
    if (m_iterations > 0) added->Iterations(m_iterations);
}

namespace {

std::map<std::string, int (*)()>& childPrograms() {
    static std::map<std::string, int (*)()> all;
    return all;
}

}  // namespace

BusyProcesses::BusyProcesses() {
    for (int& id : m_ids) {
        id = fork();
        if (id != 0) continue;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (volatile unsigned count = 0;;)
            count = count + 1;
    }
}

BusyProcesses::~BusyProcesses() {
    for (const int id : m_ids) {
        if (id <= 0) continue;
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
}

ChildProgram::ChildProgram(const std::string& argument, int (*main)()) {
    childPrograms()[argument] = main;
}

}  // namespace KestBench

int main(int argc, char** argv) {
    if (argc == 2) {
        const auto child = KestBench::childPrograms().find(argv[1]);
        if (child != KestBench::childPrograms().end()) return child->second();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    const KestBench::SecondThread second;
    KestBench::registerBenches();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
