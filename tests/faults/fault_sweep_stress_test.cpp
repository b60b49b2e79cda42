// Every scenario runs again and again, with the first, the second, the third ... call to the system failing, once or
// from then on, and the same for allocations, until a run ends without a fault. No such run may crash, hang, leak, or
// report a success that is none, and what it reports has a text.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <optional>
#include <sstream>

#include "faults/failing_allocations.h"
#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/service_fixture.h"
#include "kit/temporary_folder.h"
#include "platform/service_manager.h"
#include "platform/thread.h"
#include "support/date_time.h"
#include "support/encryption.h"
#include "support/event_timer_thread.h"
#include "support/exceptions.h"
#include "support/library.h"
#include "support/lock_factory.h"
#include "support/logging.h"
#include "support/message_sets.h"
#include "support/object_streams.h"
#include "support/program_options.h"
#include "support/properties.h"
#include "support/regular_expressions.h"
#include "support/threads.h"
#include "support/timers.h"
#include "support/tree_node.h"
#include "support/utilities.h"
#include "threads/timer_manager.h"

namespace {

using namespace KestSupport;
using faults::FailingAllocations;

/// The scenario was refused something, and was told so.
struct Refusal {};

void accept(bool done) {
    if (!done) throw Refusal();
}

/// What a scenario did is looked at without faults. Thrown when the library reported a success that is none.
struct WrongSuccess {
    std::string what;
};

class WithoutFaults {
  public:
    WithoutFaults() noexcept { platform::setFaultHook(nullptr); }
    ~WithoutFaults() { platform::setFaultHook(m_hook); }

  private:
    const platform::FaultHook m_hook = platform::internal::g_faultHook;
    const FailingAllocations::Pause m_pause;
};

template <typename Check>
void confirm(const char* what, Check check) {
    const WithoutFaults pause;
    if (!check()) throw WrongSuccess{what};
}

/// A folder that is filled and removed without faults.
class Folder {
  public:
    explicit Folder(const std::function<void(const kit::TemporaryFolder&)>& fill = [](const auto&) {}) {
        const WithoutFaults pause;
        m_folder.emplace();
        fill(*m_folder);
    }
    ~Folder() {
        const WithoutFaults pause;
        m_folder.reset();
    }
    const kit::TemporaryFolder* operator->() const { return &*m_folder; }
    std::string pathOf(const char* name) const {
        const WithoutFaults pause;
        return m_folder->pathOf(name);
    }

  private:
    std::optional<kit::TemporaryFolder> m_folder;
};

void loadAndSaveProperties() {
    const Folder folder(
        [](const auto& it) { it.write("in", "b=2\na=1\nc=a value that is longer than a short text\n"); });
    KestProperties<std::string> properties;
    accept(properties.loadProperties(folder.pathOf("in")));
    confirm("loaded", [&] { return properties.getProperties().size() == 3 && properties.getProperty("b") == "2"; });
    KestProperties<wstring16> wide;
    accept(wide.loadProperties(folder.pathOf("in")));
    confirm("loaded wide", [&] { return wide.getProperties().size() == 3; });
    accept(properties.saveProperties(folder.pathOf("out")));
    confirm("saved", [&] { return folder->read("out") == "a=1\nb=2\nc=a value that is longer than a short text\n"; });
}

void log() {
    const Folder folder;
    KestLogging logging(folder.pathOf("log"), KestLogging::fileTarget, 5);
    const auto record = [&](const char* text) {
        logging << setloglevel("Module", 3) << "record " << text << 12345 << endrecord;
    };
    try {
        record("first");
        record("second");
    } catch (const std::bad_alloc&) {
        confirm("goes on", [&] { return record("last"), true; });
        throw;
    }
    confirm("whole lines", [&] {
        // A log file that could not be opened was reported on standard error.
        const std::filesystem::directory_iterator file(folder->path());
        if (file == std::filesystem::directory_iterator()) return true;
        std::istringstream lines(folder->read(file->path().filename().string()));
        for (std::string line; std::getline(lines, line);)
            if (!line.ends_with("] record first12345") && !line.ends_with("] record second12345")) return false;
        return true;
    });
}

void readCatalogue() {
    const Folder folder([](const auto& it) {
        it.write("m.pro", "a=1\nb=1\n");
        it.write("m_C.pro", "b=2\n");
    });
    const KestMessageSet messages(folder.pathOf("m"), std::locale::classic());
    const auto text = [&](char16_t key) { return messages.getString(wstring16(1, key)); };
    const wstring16 first = text('a'), second = text('b');
    confirm("messages",
            [&] { return first == wstring16(1, '1') && (second == wstring16(1, '2') || second == wstring16(1, '1')); });
}

void fireTimer() {
    KestTimer timer;
    timer.start(1, true);
    confirm("fires", [&] { return timer.wait(-1) == 0; });
    timer.start(60'000, true);
    timer.stop();
}

class Poller : public KestEventTimerThread {
  public:
    explicit Poller(KestTimer& pace) : KestEventTimerThread("poller", pace) {}
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;
    ~Poller() override { endLoop(); }
    std::atomic<bool> handled{false};

  private:
    void handleTimerEvent() override { handled = true; }
};

void pollWithTimer() {
    KestTimer pace(1, false);
    Poller poller(pace);
    poller.start();
    accept(poller.isAlive());
    pace.reset();
    confirm("polls", [&] { return kit::await([&] { return poller.handled.load(); }), true; });
    pace.stop();
}

class Worker : public KestThread {
  public:
    using KestThread::run;
    int run() override { return 7; }
    ~Worker() override { waitForThreadExit(); }
};

void runThread() {
    Worker thread;
    thread.start();
    accept(thread.isAlive());
    thread.waitForThreadExit();
    confirm("exit code", [&] { return thread.getExitCode() == 7; });
}

void shareNamedLocks() {
    KestLockFactory<std::string, KestMutexObject> locks;
    locks.createLock("a lock whose name is longer than a short text");
    locks.createLock("b");
    KestMutexObject& lock = locks.getLock("b");
    const KestCriticalSection guard(lock, true);
    confirm("locked", [&] { return lock.lockCount() == 1 && locks.getRegisteredLockNames().size() == 2; });
    KestReadWriteLock shared;
    shared.readLock();
    shared.readUnLock();
    accept(shared.tryWriteLock());
    shared.writeUnLock();
}

void spawn() {
    int exitCode = 0;
    accept(KestExecuteProgram("/bin/sh -c \"exit 3\"", true, nullptr, &exitCode));
    accept(exitCode != std::numeric_limits<int>::min());
    confirm("exit code", [&] { return exitCode == 3; });
    accept(KestExecuteProgram("/bin/true", false, nullptr, nullptr));
}

void findAndRemove() {
    const Folder folder;
    const std::string tree = folder.pathOf("tree");
    accept(KestCreateDirectory(tree + "/below/it"));
    confirm("made", [&] {
        folder->write("tree/a.txt", "a");
        folder->write("tree/below/b.txt", "b");
        return std::filesystem::is_directory(tree + "/below/it");
    });
    for (KestFindFile search(tree + "/*.txt"); search.hasMore();) {
        const std::string name = search.next();
        confirm("found", [&] { return name.empty() || name == tree + "/a.txt"; });
    }
    KestRemoveDirectory(tree, true);
    // A folder that cannot be read stays, which the log tells and no result.
    bool removed = false;
    confirm("looked at", [&] { return removed = !std::filesystem::exists(tree), true; });
    accept(removed);
}

void readRegistry() {
    const Folder folder([](const auto& it) {
        it.write("registry.reg",
                 "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Kest]\n\"name\"=\"value\"\n");
    });
    std::optional<kit::EnvironmentGuard> environment;
    confirm("set", [&] {
        environment.emplace();
        environment->set("KEST_STATE_DIR", folder->path());
        return true;
    });
    const std::string value = KestGetEnvironmentVariable("Software\\Kest\\name");
    confirm("value", [&] { return environment.reset(), value.empty() || value == "value"; });
    accept(!value.empty());
}

void streamValues() {
    KestBufferStream stream;
    stream << 7;
    stream << std::string("a text that is longer than a short one");
    stream << wstring16(20, 'w');
    const bool whole = stream.size() == 4 + 8 + 38 + 8 + 40;
    int number = 0;
    std::string text;
    wstring16 wide;
    stream >> number;
    stream >> text;
    stream >> wide;
    accept(whole);
    confirm("values", [&] { return number == 7 && text.size() == 38 && wide == wstring16(20, 'w'); });
}

void matchPattern() {
    KestRegularExpression<std::string> pattern;
    pattern.setPattern("[a-c]*xx");
    const std::string text = "0123 abcabcxx-0123 and more of a text that is long";
    const std::size_t found = pattern.find(text, 0);
    const std::string match = pattern.match(text, 0);
    const std::string replaced = pattern.replace(text, "<>", 1, 0);
    confirm("matches", [&] { return found == 5 && match == "abcabcxx" && replaced.starts_with("0123 <>-0123 "); });
}

void useValues() {
    const KestDateTime date;
    const wstring16 when = KestDateTime(date).toGMTString();
    const std::string expanded = KestExpandString("a text with <KEST_NO_SUCH_VARIABLE> in it");
    const KestProgramOptions options("program -a --name=\"a value\" argument", false);
    const std::string option = options.getSwitch("name");
    std::string secret, plain;
    KestEncryption cipher;
    cipher.encryptData("key", "a text that is encrypted", secret);
    cipher.decryptData("key", secret, plain);
    KestTreeNode tree("root");
    for (const char* path : {"a/b", "a/c/d", "a/b/e"})
        tree.add(KestSmartPointer<KestTreeNode>(new KestTreeNode(path)), "/");
    const bool grown = !tree.getNode("a/b/e", "/").isNull();
    confirm("values", [&] {
        return when.size() > 20 && expanded == "a text with  in it" && option == "a value" && grown &&
               plain.starts_with("a text that is encrypted");
    });
    throw KestException("a text that a caller sees", 0);
}

void loadLibrary() {
    const KestSmartPointer<KestLibrary> library(new KestLibrary(KEST_LIBRARY_FIXTURE, true));
    const KestLibrary copy(*library);
    confirm("symbol", [&] { return copy.getProcAddr("countUnloads") != nullptr; });
}

// A service's life, on the platform's manager. What the manager refuses, it says with a number.
platform::ServiceManager::Handle g_status;

void reportState(std::uint32_t state) {
    platform::serviceManager().setStatus(g_status, {16, state, 1});
}

const kit::ChildRole g_service("service", [](const std::vector<std::string>&) {
    return static_cast<int>(platform::serviceManager().runDispatcher("swept", [](const std::vector<std::string>&) {
        g_status = platform::serviceManager().registerControlHandler("swept", [](std::uint32_t code) {
            if (code == platform::kServiceControlStop) reportState(platform::kServiceStopped);
        });
        reportState(platform::kServiceRunning);
    }));
});

void liveAsService() {
    const Folder folder;
    struct State {
        explicit State(const Folder& folder) {
            const WithoutFaults pause;
            environment.emplace();
            environment->set("KEST_STATE_DIR", folder->path());
        }
        // Whatever was left running is killed, so that its folder can go.
        ~State() {
            const WithoutFaults pause;
            platform::ServiceManager& manager = platform::serviceManager();
            platform::ServiceManager::Handle all = nullptr, service = nullptr;
            platform::ServiceStatus status;
            manager.openManager(0xF003F, all);
            if (manager.openService(all, "swept", 0xF01FF, service) == 0) {
                manager.queryStatus(service, status);
                kit::ChildProcess::kill(status.processId);
                kit::await([&] { return manager.queryStatus(service, status) != 0 || status.currentState == 1; });
                manager.closeHandle(service);
            }
            manager.closeHandle(all);
            environment.reset();
        }
        std::optional<kit::EnvironmentGuard> environment;
    } state(folder);
    std::string command;
    confirm("command", [&] { return command = kit::ChildProcess::commandOfRole("service"), true; });

    platform::ServiceManager& manager = platform::serviceManager();
    struct Handle {
        platform::ServiceManager::Handle value = nullptr;
        ~Handle() { platform::serviceManager().closeHandle(value); }
    } all, service;
    accept(manager.openManager(0xF003F, all.value) == 0);
    accept(manager.createService(all.value, {"swept", "", 16, 2, 1, command, ""}, 0xF01FF, service.value) == 0);
    accept(manager.startService(service.value, {"argument"}) == 0);
    platform::ServiceStatus status;
    accept(manager.queryStatus(service.value, status) == 0);
    confirm("started", [&] { return status.processId != 0; });
    platform::ServiceStatus answer;
    accept(manager.control(service.value, platform::kServiceControlStop, answer) == 0);
    confirm("stopped", [&] {
        kit::await([&] { return manager.queryStatus(service.value, status) != 0 || status.currentState == 1; });
        return status.currentState == 1;
    });
    accept(manager.deleteService(service.value) == 0);
    confirm("deleted", [&] {
        std::vector<platform::ServiceEntry> entries;
        return manager.enumerateServices(all.value, entries) == 0 && entries.empty();
    });
}

struct Scenario {
    const char* name;
    void (*run)();
};

const Scenario kScenarios[] = {{"properties", loadAndSaveProperties},
                               {"logging", log},
                               {"catalogue", readCatalogue},
                               {"timer", fireTimer},
                               {"event_timer_thread", pollWithTimer},
                               {"thread", runThread},
                               {"named_locks", shareNamedLocks},
                               {"spawn", spawn},
                               {"files", findAndRemove},
                               {"registry", readRegistry},
                               {"streams", streamValues},
                               {"pattern", matchPattern},
                               {"values", useValues},
                               {"library", loadLibrary},
                               {"service", liveAsService}};

struct Mode {
    const char* name;
    bool allocations;
    bool fromThenOn;
};

const Mode kModes[] = {{"call_once", false, false},
                       {"calls_from_then_on", false, true},
                       {"allocation_once", true, false},
                       {"allocations_from_then_on", true, true}};

/// What would grow with each run if something were lost.
struct Footprint {
    std::int64_t allocations = 0;
    std::ptrdiff_t descriptors = 0;

    static Footprint now() {
        // Threads that end by themselves take their objects with them.
        KestTimerManager::cancelWait();
        const auto entries = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
        };
        kit::await([&] { return entries("/proc/self/task") == 1; });
        return {FailingAllocations::alive(), entries("/proc/self/fd")};
    }
    bool operator>(const Footprint& other) const {
        return allocations > other.allocations || descriptors > other.descriptors;
    }
};

class FaultSweep : public testing::TestWithParam<std::tuple<Scenario, Mode>> {
  protected:
    /// Runs the scenario with the given fault; whether it was reached. Empty error: the run is as it should be.
    bool reaches(int number, std::string& error) const {
        const auto& [scenario, mode] = GetParam();
        const kit::FailingCalls calls(mode.allocations ? "none" : "", number, mode.fromThenOn, EMFILE);
        const FailingAllocations allocations(mode.allocations ? number : 0, mode.fromThenOn);
        try {
            scenario.run();
        } catch (const WrongSuccess& e) {
            const WithoutFaults pause;
            error = "wrong success: " + e.what;
        } catch (const KestException& e) {
            const WithoutFaults pause;
            if (e.getText().empty() && e.getUText().empty()) error = "an exception without a text";
        } catch (const std::bad_alloc&) {  // also what a lock that cannot be made is reported as
        } catch (const Refusal&) {
        } catch (const std::exception& e) {
            const WithoutFaults pause;
            error = std::string("a foreign exception: ") + e.what();
        }
        return mode.allocations ? FailingAllocations::seen() >= number : kit::FailingCalls::seen() >= number;
    }
};

TEST_P(FaultSweep, EndsWithoutHarm) {
    std::string error;
    reaches(1'000'000, error);
    ASSERT_EQ(error, "") << "without a fault";
    bool reached = true;
    for (int number = 1; reached; ++number) {
        // What is kept for later use grows once; what is lost, in each run.
        Footprint before = Footprint::now();
        for (int run = 0; run < 4; ++run) {
            reached = reaches(number, error);
            ASSERT_EQ(error, "") << "fault " << number;
            const Footprint after = Footprint::now();
            if (!(after > before)) break;
            EXPECT_LT(run, 3) << "fault " << number << " loses " << after.allocations - before.allocations
                              << " allocations and " << after.descriptors - before.descriptors << " descriptors";
            before = after;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Everything, FaultSweep,
                         testing::Combine(testing::ValuesIn(kScenarios), testing::ValuesIn(kModes)),
                         [](const auto& each) {
                             return std::string(std::get<0>(each.param).name) + "_" + std::get<1>(each.param).name;
                         });

}  // namespace
