// The service manager itself: the status of services compared with reading small files, and the start of a service
// compared with the start of any program.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "bench_kit.h"
#include "platform/process.h"
#include "platform/service_manager.h"
#include "support/service.h"
#include "temporary_folder.h"

using namespace KestSupport;
using platform::ServiceManager;

namespace {

constexpr int kManyServices = 1000;

std::string self() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

// A state directory with services that do not run, and the same number of small files.
class Services {
  public:
    Services() {
        ::setenv("KEST_STATE_DIR", m_folder.path().c_str(), 1);
        m_services.openManager(platform::kServiceManagerAllAccess, m_manager);
        platform::ServiceConfiguration configuration;
        configuration.commandLine = "/bin/true";
        for (int i = 0; i < kManyServices; ++i) {
            configuration.name = "service" + std::to_string(i);
            ServiceManager::Handle service = nullptr;
            m_services.createService(m_manager, configuration, platform::kServiceAllAccess, service);
            m_services.closeHandle(service);
            std::ofstream(fileName(i)) << std::string(200, 'x');
        }
        configuration.name = "quick";
        configuration.commandLine = self() + " --service";
        m_services.createService(m_manager, configuration, platform::kServiceAllAccess, m_quick);
    }
    ~Services() {
        m_services.closeHandle(m_quick);
        m_services.closeHandle(m_manager);
    }
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    std::string fileName(int number) const { return m_folder.file("file" + std::to_string(number)); }
    ServiceManager& manager() { return m_services; }
    ServiceManager::Handle handle() const { return m_manager; }
    ServiceManager::Handle quick() const { return m_quick; }

  private:
    const KestBench::TemporaryFolder m_folder;
    ServiceManager& m_services = platform::serviceManager();
    ServiceManager::Handle m_manager = nullptr;
    ServiceManager::Handle m_quick = nullptr;
};

Services& services() {
    static Services all;
    return all;
}

// Waits until the service has the state.
void await(std::uint32_t wanted) {
    platform::ServiceStatus status;
    do {
        std::this_thread::yield();
        services().manager().queryStatus(services().quick(), status);
    } while (status.currentState != wanted);
}

void start(benchmark::State& state) {
    if (services().manager().startService(services().quick(), {}) != 0) state.SkipWithError("it does not start");
    await(platform::kServiceRunning);
}

void stop() {
    platform::ServiceStatus answer;
    services().manager().control(services().quick(), platform::kServiceControlStop, answer);
    await(platform::kServiceStopped);
}

void queryOne(benchmark::State& state) {
    start(state);
    platform::ServiceStatus status;
    for (auto _ : state) {
        services().manager().queryStatus(services().quick(), status);
        benchmark::DoNotOptimize(status);
    }
    stop();
}

void queryAll(benchmark::State& state) {
    std::vector<platform::ServiceEntry> entries;
    for (auto _ : state)
        services().manager().enumerateServices(services().handle(), entries);
    if (entries.size() != kManyServices + 1) state.SkipWithError("not all are listed");
}

void readFile(const std::string& name) {
    char block[256];
    std::FILE* const file = std::fopen(name.c_str(), "rb");
    benchmark::DoNotOptimize(std::fread(block, 1, sizeof block, file));
    std::fclose(file);
}

void readFiles(benchmark::State& state, int count) {
    services();
    for (auto _ : state) {
        for (int i = 0; i < count; ++i)
            readFile(services().fileName(i));
    }
}

// From the start until the service runs. Its end is not measured.
void startService(benchmark::State& state) {
    services();
    for (auto _ : state) {
        start(state);
        state.PauseTiming();
        stop();
        state.ResumeTiming();
    }
}

// From the start until the program's main has written a byte.
void startProgram(benchmark::State& state) {
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return state.SkipWithError("no pipe");
    for (auto _ : state) {
        platform::ProcessRequest request;
        request.commandLine = self() + " --greet";
        request.standardHandles[1] = pipe[1];
        platform::Process process;
        process.start(request);
        char byte = 0;
        if (::read(pipe[0], &byte, 1) != 1) state.SkipWithError("it does not start");
        state.PauseTiming();
        process.wait(~0U);
        state.ResumeTiming();
    }
    ::close(pipe[0]);
    ::close(pipe[1]);
}

int greet() {
    return ::write(STDOUT_FILENO, "x", 1) == 1 ? 0 : 1;
}

class QuickService : public KestService {
  protected:
    bool startIt(const std::string&) override { return true; }
    bool stopIt() override { return true; }
};

int serve() {
    return QuickService().start("", true) ? 0 : 1;
}

const KestBench::ChildProgram greeter("--greet", greet);
const KestBench::ChildProgram quickService("--service", serve);

}  // namespace

void KestBench::registerBenches() {
    Comparison("service control/manager status of one")
        .ours(queryOne)
        .peer("reading a small file", [](benchmark::State& state) { readFiles(state, 1); });
    Comparison("service control/manager status of 1000")
        .ours(queryAll)
        .peer("reading 1000 small files", [](benchmark::State& state) { readFiles(state, kManyServices); });
    Comparison("service control/manager start until it runs")
        .realTime()
        .iterations(50)
        .ours(startService)
        .peer("start of a program until its main", startProgram);
}
