#include "bench_kit.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace KestBench {
namespace {

// A thread that sleeps while this object exists.
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

// Two processes that compute while this object exists.
class BusyProcesses {
  public:
    BusyProcesses() {
        for (pid_t& id : m_ids) {
            id = fork();
            if (id == 0) compute();
        }
    }
    BusyProcesses(const BusyProcesses&) = delete;
    BusyProcesses& operator=(const BusyProcesses&) = delete;

    ~BusyProcesses() {
        for (const pid_t id : m_ids) {
            if (id <= 0) continue;
            kill(id, SIGKILL);
            waitpid(id, nullptr, 0);
        }
    }

    bool complete() const { return m_ids[0] > 0 && m_ids[1] > 0; }

  private:
    // The process ends with the bench, also after a crash of the bench.
    [[noreturn]] static void compute() {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (volatile unsigned count = 0;;)
            count = count + 1;
    }

    std::array<pid_t, 2> m_ids{};
};

// The rows of the program for the script, one line each.
std::vector<std::string>& rows() {
    static std::vector<std::string> all;
    return all;
}

template <typename... Field>
void addRow(const Field&... field) {
    std::ostringstream line;
    const char* separator = "";
    ((line << std::exchange(separator, "\t") << field), ...);
    rows().push_back(line.str());
}

Body besideBusyProcesses(Body body) {
    return [measured = std::move(body)](benchmark::State& state) {
        const BusyProcesses busy;
        if (!busy.complete()) return state.SkipWithError("no busy processes");
        measured(state);
    };
}

void add(const std::string& name, const Manner& manner, Body body) {
    if (manner.busy) body = besideBusyProcesses(std::move(body));
    auto* added = benchmark::RegisterBenchmark(name.c_str(), std::move(body));
    if (manner.realTime) added->UseRealTime();
    if (manner.threads > 1) added->Threads(manner.threads);
    if (manner.iterations > 0) added->Iterations(manner.iterations);
}

std::map<std::string, int (*)()>& childPrograms() {
    static std::map<std::string, int (*)()> all;
    return all;
}

// Removes --rows=FILE from the arguments and writes the rows to that file.
bool writeRows(int& argc, char** argv) {
    constexpr std::string_view option = "--rows=";
    if (argc < 2 || !std::string_view(argv[1]).starts_with(option)) return true;
    std::ofstream file(argv[1] + option.size());
    for (const std::string& row : rows())
        file << row << '\n';
    for (int i = 1; i < argc; ++i)
        argv[i] = argv[i + 1];
    --argc;
    return static_cast<bool>(file.flush());
}

}  // namespace

Comparison::Comparison(std::string name) : m_name(std::move(name)) {}

Comparison& Comparison::realTime() {
    m_manner.realTime = true;
    return *this;
}

Comparison& Comparison::besideBusyProcesses() {
    m_manner.realTime = m_manner.busy = true;
    return *this;
}

Comparison& Comparison::threads(int count) {
    m_manner.threads = count;
    return *this;
}

Comparison& Comparison::iterations(benchmark::IterationCount count) {
    m_manner.iterations = count;
    return *this;
}

Comparison& Comparison::ours(Body body) {
    add(m_name + "/ours", m_manner, std::move(body));
    return *this;
}

Comparison& Comparison::peer(const std::string& name, double target, Body body) {
    addRow("comparison", m_name, name, target, body ? "" : "missing");
    if (body) add(m_name + "/" + name, m_manner, std::move(body));
    return *this;
}

Growth::Growth(std::string name, std::string unit) : m_name(std::move(name)), m_unit(std::move(unit)) {}

Growth& Growth::realTime() {
    m_manner.realTime = true;
    return *this;
}

Growth& Growth::iterations(benchmark::IterationCount count) {
    m_manner.iterations = count;
    return *this;
}

Growth& Growth::limit(double exponent) {
    m_limit = exponent;
    return *this;
}

Growth& Growth::at(std::initializer_list<int> sizes, const SizedBody& body) {
    for (const int size : sizes) {
        addRow("growth", m_name, m_unit, m_limit, size);
        add(m_name + "/" + m_unit + " " + std::to_string(size), m_manner,
            [=](benchmark::State& state) { body(state, size); });
    }
    return *this;
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
    const KestBench::SecondThread second;
    KestBench::registerBenches();
    if (!KestBench::writeRows(argc, argv)) {
        std::cerr << "bench: cannot write the file of --rows\n";
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
