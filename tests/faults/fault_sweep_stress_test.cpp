// Scenarios of the library that kit/fault_sweep.h repeats with each failing call and allocation.
#include "kit/fault_sweep.h"

#include <limits>
#include <sstream>

#include "kit/child_process.h"
#include "kit/recording_service_manager.h"
#include "kit/registry.h"
#include "platform/process.h"
#include "support/support.h"

namespace {

using namespace KestSupport;

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
    confirm("saved",
            [&] { return folder->readText("out") == "a=1\nb=2\nc=a value that is longer than a short text\n"; });
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
        std::istringstream lines(folder->readText(file->path().filename().string()));
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
    const auto shell = [](const std::string& command) {
        return withoutFaults([&] { return kit::shellCommand(command); });
    };
    const auto line = [&](const std::string& command) {
        const std::vector<std::string> words = shell(command);
        return withoutFaults([&] { return KestJoinArguments(words); });
    };
    int exitCode = 0;
    accept(KestExecuteProgram(line("exit 3"), true, nullptr, &exitCode));
    accept(exitCode != std::numeric_limits<int>::min());
    confirm("exit code", [&] { return exitCode == 3; });
    accept(KestExecuteProgram(line("exit 0"), false, nullptr, nullptr));
    const KestProgramResult result =
        KestRunProgram({.arguments = shell("echo out"), .timeout = 100'000, .outputLimit = 3});
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
    struct Entry {
        Entry() {
            withoutFaults([&] { registry.emplace().setText("Software\\Kest", "name", "value"); });
        }
        ~Entry() {
            withoutFaults([&] { registry.reset(); });
        }
        std::optional<kit::Registry> registry;
    } entry;
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
        return when.size() > 10 && expanded == "a text with  in it" && option == "a value" && grown &&
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

const std::vector<Scenario> kScenarios = {{"properties", loadAndSaveProperties},
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
                                          {"host", hostService}};

INSTANTIATE_TEST_SUITE_P(Everything, FaultSweep, inEachMode(kScenarios), nameOf);

}  // namespace
