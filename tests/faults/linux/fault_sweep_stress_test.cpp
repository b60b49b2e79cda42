// Runs each scenario with the first call to the system failing, then with the second, and so on until a run needs no
// such call; the same for allocations; and each once or from then on. No run may crash, hang, leak or report a false
// success, and each failure that it reports has a text.

#include "kit/allocations.h"
#include "kit/recording_service_manager.h"
#include "platform/service_roles.h"
#include "platform/thread.h"
#include "support/support.h"
#include "threads/timer_manager.h"

namespace {

using namespace KestSupport;
using Services = kit::ServiceFixture;

constexpr int kNever = 1'000'000;  // more than the calls and the allocations of any scenario

// Makes the Nth allocation of this program fail, counted from 1, once or from then on.
class FailingAllocations {
  public:
    FailingAllocations(std::int64_t first, bool fromThenOn) noexcept {
        s_first = first;
        s_fromThenOn = fromThenOn;
        s_seen = 0;
    }
    static std::int64_t seen() noexcept { return s_seen; }

  private:
    static bool succeeds(std::size_t) noexcept {
        const std::int64_t number = ++s_seen;
        return number < s_first || (number > s_first && !s_fromThenOn);
    }
    inline static std::atomic<std::int64_t> s_first, s_seen;
    inline static std::atomic<bool> s_fromThenOn;
    const kit::AllocationHook m_hook{succeeds};
};

/// Thrown when the library reports a failure.
struct Refusal {};

void accept(bool done) {
    if (!done) throw Refusal();
}

/// Thrown when the library reports a success, and the result is wrong.
struct WrongSuccess {
    std::string what;
};

class WithoutFaults {
  public:
    WithoutFaults() noexcept { platform::setFaultHook(nullptr); }
    ~WithoutFaults() { platform::setFaultHook(m_hook); }

  private:
    const platform::FaultHook m_hook = platform::internal::g_faultHook;
    const kit::AllocationHook m_acceptAll{nullptr};
};

template <typename Call>
auto withoutFaults(Call call) {
    const WithoutFaults pause;
    return call();
}

template <typename Check>
void confirm(const char* what, Check check) {
    const WithoutFaults pause;
    if (!check()) throw WrongSuccess{what};
}

/// A folder that is filled and removed without faults. It is the state directory while it exists.
class Folder {
  public:
    explicit Folder(const std::function<void(const kit::TemporaryFolder&)>& fill = [](const auto&) {}) {
        withoutFaults([&] {
            fill(m_folder.emplace());
            m_environment.emplace().set("KEST_STATE_DIR", m_folder->path());
        });
    }
    ~Folder() {
        withoutFaults([&] {
            m_environment.reset();
            m_folder.reset();
        });
    }
    const kit::TemporaryFolder* operator->() const { return &*m_folder; }
    std::string pathOf(const char* name) const {
        return withoutFaults([&] { return m_folder->pathOf(name); });
    }

  private:
    std::optional<kit::TemporaryFolder> m_folder;
    std::optional<kit::EnvironmentGuard> m_environment;
};

/// An assignment that fails changes nothing.
template <typename Value, typename IsFormer>
void assign(Value& to, Value& from, IsFormer isFormer) {
    try {
        to = from;
    } catch (const std::bad_alloc&) {
        confirm("unchanged", isFormer);
        throw;
    }
}

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
        withoutFaults([&] { record("last"); });
        throw;
    }
    confirm("whole lines", [&] {
        // The logger reports on standard error that it cannot open its file.
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
    KestMessageSet general(folder.pathOf("m"), std::locale::classic());
    const std::locale unnamed = withoutFaults([] { return std::locale(std::locale::classic(), new ansi_ctype); });
    KestMessageSet messages(folder.pathOf("m"), unnamed);
    assign(messages, general, [&] { return messages.getLocale() == unnamed; });
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

struct Poller : KestEventTimerThread {
    explicit Poller(KestTimer& pace) : KestEventTimerThread("poller", pace) {}
    ~Poller() override { endLoop(); }
    void handleTimerEvent() override { handled = true; }
    std::atomic<bool> handled{false};
};

void pollWithTimer() {
    KestTimer pace(1, false);
    Poller poller(pace);
    poller.start();
    accept(poller.isAlive());
    pace.reset();
    withoutFaults([&] { kit::await([&] { return poller.handled.load(); }); });
    pace.stop();
}

void runThread() {
    KestStoppableThread thread([] { return 7; });
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
    const KestProgramResult result =
        KestRunProgram({.arguments = {"/bin/sh", "-c", "echo out"}, .timeout = 100'000, .outputLimit = 3});
    confirm("output", [&] { return result.output == "out" && result.exceededOutput; });
}

void findAndRemove() {
    const Folder folder;
    const std::string tree = folder.pathOf("tree");
    const std::string deep =
        tree + "/b/c/d/e/f/g/h/i/j/k/l/m/n/o/p/q/r/s/t";  // more folders than the removal keeps open
    accept(KestCreateDirectory(deep));
    confirm("made", [&] {
        folder->write("tree/a.txt", "a");
        folder->write("tree/b/b.txt", "b");
        return std::filesystem::is_directory(deep);
    });
    for (KestFindFile search(tree + "/*.txt"); search.hasMore();) {
        const std::string name = search.next();
        confirm("found", [&] { return name.empty() || name == tree + "/a.txt"; });
    }
    KestRemoveDirectory(tree, true);
    // Only a log record reports that a folder could not be read. That folder stays.
    accept(withoutFaults([&] { return !std::filesystem::exists(tree); }));
}

void readRegistry() {
    const Folder folder([](const auto& it) {
        it.write("registry.reg",
                 "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Kest]\n\"name\"=\"value\"\n");
    });
    const std::string value = KestGetEnvironmentVariable("Software\\Kest\\name");
    confirm("value", [&] { return value.empty() || value == "value"; });
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
    KestProgramOptions options("program -a --name=\"a value\" argument", false), emptied("none", false);
    const std::string option = options.getSwitch("name");
    assign(options, emptied, [&] {
        return options.getProgramName() == "program" && options.isSet("a") && options.getArgument() == "argument";
    });
    KestVersion version("1.2"), longer("1.2.3.4.a suffix that is longer than a short text");
    assign(version, longer, [&] { return version.toString() == "1.2"; });
    std::string secret, plain;
    KestEncryption cipher;
    cipher.encryptData("key", "a text that is encrypted", secret);
    cipher.decryptData("key", secret, plain);
    KestEncryption other(KestEncryption::Normal);
    other.encryptData("a key that is longer than a short text", plain, secret);
    assign(cipher, other, [&] { return cipher.getStrength() == KestEncryption::High; });
    KestTreeNode tree("a key that is longer than a short text"), former("key");
    for (const char* path : {"a/b", "a/c/d", "a/b/e"})
        tree.add(KestSmartPointer<KestTreeNode>(new KestTreeNode(path)), "/");
    assign(former, tree, [&] { return former.getKey() == "key" && former.size() == 0; });
    const bool grown = former.getNode("a/b/e", "/") == tree.getNode("a/b/e", "/");
    confirm("values", [&] {
        return when.size() > 20 && expanded == "a text with  in it" && option == "a value" && grown &&
               plain.starts_with("a text that is encrypted");
    });
    throw KestException("a text that a caller sees", 0);
}

void assignObjects() {
    const auto create = [] { return static_cast<KestObjectBase*>(nullptr); };
    KestObjectFactory factory, factories;
    factory.add("kept", create);
    factories.add("a", create);
    assign(factory, factories, [&] { return factory.getRegisteredClasses() == std::vector<std::string>{"kept"}; });
    KestException exception(std::string("kept"), 1), other(wstring16(100, 'x'), 2);
    assign(exception, other, [&] { return exception.getText() == "kept" && exception.getCode() == 1; });
    KestMutexObject lock, used;
    used.unlock();  // creates the lock
    lock.lock();
    assign(lock, used, [&] { return lock.lockCount() == 1; });
}

void loadLibrary() {
    const KestSmartPointer<KestLibrary> library(new KestLibrary(KEST_LIBRARY_FIXTURE, true));
    const KestLibrary copy(*library);
    confirm("symbol", [&] { return copy.getProcAddr("countUnloads") != nullptr; });
}

struct Handle {
    ~Handle() { platform::serviceManager().closeHandle(value); }
    platform::ServiceManager::Handle value = nullptr;
};

// The platform's service manager reports its failures by error codes.
void liveAsService() {
    const Folder folder;
    const struct Killer {
        ~Killer() {
            withoutFaults([] { Services::run("end swept"); });
        }
    } killer;  // before its folder is removed
    const std::string command = withoutFaults([] { return kit::ChildProcess::commandOfRole("plain"); });
    platform::ServiceManager& manager = platform::serviceManager();
    Handle all, service;
    accept(manager.openManager(0xF003F, all.value) == 0);
    accept(manager.createService(all.value, {"swept", "", 16, 2, 1, command, ""}, 0xF01FF, service.value) == 0);
    accept(manager.startService(service.value, {"argument"}) == 0);
    platform::ServiceStatus status;
    accept(manager.queryStatus(service.value, status) == 0);
    confirm("started", [&] { return status.processId != 0; });
    accept(manager.control(service.value, platform::kServiceControlStop, status) == 0);
    confirm("stopped", [] { return Services::run("await swept 1; tell swept") == "1/0/7"; });
    accept(manager.deleteService(service.value) == 0);
    confirm("deleted", [] { return Services::list().empty(); });
}

// Calls the service in this process. Its own calls do not fail.
class Dispatcher : public kit::RecordingServiceManager {
  public:
    ErrorCode runDispatcher(const std::string&, ServiceMain main) override {
        try {
            main(startArguments);
        } catch (const std::bad_alloc&) {
            return platform::errorExceptionInService;
        }
        if (m_state != 1) withoutFaults([&] { m_handler(1); });
        kit::await([&] { return m_state == 1; });
        return 0;
    }
    Handle registerControlHandler(const std::string&, ControlHandler handler) override {
        m_handler = handler;
        return this;
    }
    ErrorCode setStatus(Handle, const ServiceStatus& status) override {
        m_state = status.currentState;
        return 0;
    }

  private:
    ControlHandler m_handler = nullptr;
    std::atomic<std::uint32_t> m_state{0};
};

class Hosted : public KestService {
  public:
    bool started = false, stopped = false;

  private:
    bool startIt(const std::string&) override { return started = true; }
    bool stopIt() override { return stopped = true; }
};

void hostService() {
    std::optional<Dispatcher> manager;
    withoutFaults([&] { manager.emplace(); });
    Hosted service;
    service.start("", true);
    accept(service.started && service.stopped);
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
                               {"assignments", assignObjects},
                               {"library", loadLibrary},
                               {"service", liveAsService},
                               {"host", hostService}};

struct Mode {
    const char* name;
    bool allocations;
    bool fromThenOn;
};

const Mode kModes[] = {{"call_once", false, false},
                       {"calls_from_then_on", false, true},
                       {"allocation_once", true, false},
                       {"allocations_from_then_on", true, true}};

/// Counts that grow with each run if a run loses something.
struct Footprint {
    std::int64_t allocations = 0;
    std::ptrdiff_t descriptors = 0;

    static Footprint now() {
        // The timer thread ends and releases its objects.
        KestTimerManager::cancelWait();
        const auto entries = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
        };
        kit::await([&] { return entries("/proc/self/task") == 1; });
        return {kit::g_liveAllocations, entries("/proc/self/fd")};
    }
    bool operator>(const Footprint& other) const {
        return allocations > other.allocations || descriptors > other.descriptors;
    }
};

class FaultSweep : public testing::TestWithParam<std::tuple<Scenario, Mode>> {
  protected:
    /// Runs the scenario with the fault. Returns whether the run reached it, and what was wrong in `error`.
    bool reaches(int number, std::string& error) const {
        const auto& [scenario, mode] = GetParam();
        const kit::FailingCalls calls(mode.allocations ? "none" : "", number, mode.fromThenOn, EMFILE);
        const FailingAllocations allocations(mode.allocations ? number : kNever, mode.fromThenOn);
        try {
            scenario.run();
        } catch (const WrongSuccess& e) {
            const WithoutFaults pause;
            error = "wrong success: " + e.what;
        } catch (const KestException& e) {
            const WithoutFaults pause;
            if (e.getText().empty() && e.getUText().empty()) error = "an exception without a text";
        } catch (const std::bad_alloc&) {  // a lock that cannot be made throws this too
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
    reaches(kNever, error);
    ASSERT_EQ(error, "") << "without a fault";
    bool reached = true;
    for (int number = 1; reached; ++number) {
        // Memory that is kept for later use grows in one run, a leak in each run.
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
