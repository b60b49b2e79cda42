// The status of one service among a thousand, compared with reading a small file. A start and a stop are not measured,
// because this class polls the service once a second.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "bench_kit.h"
#include "support/service.h"
#include "support/service_control.h"
#include "temporary_folder.h"

using namespace KestSupport;

namespace {

constexpr int kOthers = 1000;

class QuickService : public KestService {
  public:
    explicit QuickService(const std::string& name) : KestService("", name, name, "", false) {
        m_arguments = "--service";
    }

  protected:
    bool startIt(const std::string&) override { return true; }
    bool stopIt() override { return true; }
};

// A state directory with services, of which one runs, and a small file.
class Services {
  public:
    Services() {
        ::setenv("KEST_STATE_DIR", m_folder.path().c_str(), 1);
        for (int i = 0; i < kOthers; ++i)
            QuickService("service" + std::to_string(i)).install();
        QuickService("quick").install();
        std::ofstream(fileName()) << std::string(200, 'x');
        m_quick.reset(KestServiceControl::CreateKestServiceControl("quick"));
        m_quick->StartServiceA();
    }
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;
    ~Services() { m_quick->StopService(); }

    std::string fileName() const { return m_folder.file("small file"); }
    KestServiceControl& quick() const { return *m_quick; }

  private:
    const KestBench::TemporaryFolder m_folder;
    std::unique_ptr<KestServiceControl> m_quick;
};

Services& services() {
    static Services all;
    return all;
}

void status(benchmark::State& state) {
    constexpr unsigned kRunning = 4;
    KestServiceControl& service = services().quick();
    for (auto _ : state) {
        if (service.GetServiceStatus() != kRunning) state.SkipWithError("it does not run");
    }
}

void readFile(benchmark::State& state) {
    const std::string name = services().fileName();
    for (auto _ : state) {
        char block[256];
        std::FILE* const file = std::fopen(name.c_str(), "rb");
        if (file == nullptr) return state.SkipWithError("no file");
        benchmark::DoNotOptimize(std::fread(block, 1, sizeof block, file));
        std::fclose(file);
    }
}

int serve() {
    return QuickService("quick").start("", true) ? 0 : 1;
}

const KestBench::ChildProgram quickService("--service", serve);

}  // namespace

void KestBench::registerBenches() {
    Comparison("service control/status of one").ours(status).peer("reading a small file", 4.0, readFile);
}
