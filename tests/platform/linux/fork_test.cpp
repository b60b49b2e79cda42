// What works in a child that was forked from a process with threads.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>

#include "kit/gate.h"
#include "kit/temporary_folder.h"
#include "platform/linux/linux_sanitizers.h"
#include "support/support.h"
#include "threads/function_work.h"

using namespace KestSupport;

namespace {

const std::locale g_unnamed(std::locale::classic(), new std::time_put<wchar_t>);  // the runtime writes its dates

// Sleeps in the parent, holds a lock and has written a part of a record.
class Sleeper : public KestThread {
  public:
    Sleeper(KestMutexObject& lock, KestLogging& log) : m_lock(lock), m_log(log) {}
    kit::Gate ready;
    KestEvent end;

  protected:
    int run() override {
        m_lock.lock();
        m_log << setloglevel(1) << "half";
        ready.open();
        end.wait(-1);
        m_log << " a record" << endrecord;
        m_lock.unlock();
        return 0;
    }

  private:
    KestMutexObject& m_lock;
    KestLogging& m_log;
};

// Objects of the parent. `own` and `shared` are locked by the thread that forks.
struct Inherited {
    explicit Inherited(KestLogging& target) : log(target), sleeper(others, target) {}
    KestLogging& log;
    KestMutexObject others, own;
    KestReadWriteLock shared;
    KestTimer timer;
    Sleeper sleeper;
};

void useInChild(Inherited& parent) {
    EXPECT_EQ(static_cast<pid_t>(KestThread::getCurrentThreadId()), getpid());
    EXPECT_EQ(parent.own.lockCount(), 1);
    parent.own.unlock();
    EXPECT_EQ(parent.own.lockCount(), 0);
    parent.shared.writeUnLock();
    EXPECT_TRUE(parent.shared.tryReadLock());
    EXPECT_FALSE(parent.others.testAndSet()) << "the first one finds an abandoned lock";
    EXPECT_TRUE(parent.others.testAndSet());
    EXPECT_EQ(parent.others.lockCount(), 1);
    KestMutexObject fresh;
    const KestCriticalSection guard(fresh, true);
    EXPECT_EQ(parent.sleeper.wait(-1), 0);
    parent.sleeper.end.set();
    EXPECT_EQ(parent.sleeper.end.wait(0), 0) << "the sleeper took the event";
    EXPECT_EQ(parent.sleeper.end.wait(1), -2);
    parent.log << setloglevel(1) << "from the child" << endrecord;
    EXPECT_FALSE(KestDateTime().toString(g_unnamed).empty()) << "needs a lock of the runtime";
    if (platform::kSanitizerDefersSignals) return;  // ThreadSanitizer has no new threads in a forked child
    KestTimer timer;
    timer.start(1, true);
    EXPECT_EQ(timer.wait(-1), 0);
    EXPECT_EQ(parent.timer.wait(-1), 0);
    parent.sleeper.kill();
    EXPECT_FALSE(parent.sleeper.isAlive());
}

TEST(Fork, KeepsLocksTimersAndLogUsable) {
    constexpr int kRounds = 40;
    const kit::TemporaryFolder folder;
    KestLogging log(folder.pathOf("log"), KestLogging::fileTarget, 1);
    const std::locale before = std::locale::global(g_unnamed);  // the runtime locks it for each new stream
    std::atomic<bool> stop{false};
    std::vector<std::jthread> busy;
    for (int i = 0; i < 2; ++i) {
        busy.emplace_back([&] {
            while (!stop) {
                KestMutexObject lock;
                const KestCriticalSection guard(lock, true);
                KestTimer timer;
                timer.start(3600, 0, true);
                KestEvent().wait(0);
            }
        });
    }
    busy.emplace_back([&] {
        while (!stop)
            KestDateTime().toString(g_unnamed);
    });
    for (int round = 0; round < kRounds; ++round) {
        Inherited parent(log);
        parent.sleeper.start();
        parent.sleeper.ready.pass();
        parent.timer.start(1, false);
        parent.own.lock();
        parent.shared.writeLock();
        const pid_t child = fork();
        if (child == 0) {
            alarm(300);
            useInChild(parent);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        parent.shared.writeUnLock();
        parent.own.unlock();
        parent.sleeper.end.set();
        parent.sleeper.waitForThreadExit();
    }
    stop = true;
    std::locale::global(before);
    for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
        const std::string text = folder.read(file.path().filename().string());
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2 * kRounds) << text;
        EXPECT_EQ(text.find("halffrom"), std::string::npos);
    }
}

// The child has the forking thread, inside its run, and none that completes the stop of a token.
TEST(Fork, WaitsForNoThreadOfTheParent) {
    kit::HoldingDependent holder;
    std::stop_source source;
    auto follows = std::make_unique<KestStopEvent>(source.get_token());
    follows->addDependent(holder);
    const std::jthread stopper([&] { source.request_stop(); });
    holder.entered.pass();
    int status = -1;
    KestStoppableThread forker([&] {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            forker.waitForThreadExit();
            follows.reset();
            _exit(0);
        }
        EXPECT_EQ(waitpid(child, &status, 0), child);
    });
    forker.start();
    forker.waitForThreadExit();
    EXPECT_EQ(status, 0);
    holder.left.open();
}

// A line that waits for another thread's write while the process forks is written by the parent alone.
TEST(Fork, LeavesWaitingRecordsToTheParent) {
    constexpr int kRounds = 40;
    const kit::TemporaryFolder folder;
    KestLogging log(folder.pathOf("log"), KestLogging::fileTarget, 1);
    KestLogging::setInstance(log);
    log.enableRecordData(false);
    std::atomic<bool> stop{false};
    std::array<int, 2> sent{};
    std::vector<std::thread> busy;
    for (int& own : sent) {
        busy.emplace_back([&] {
            while (!stop)
                KestLogRecord(1) << "parent " << &own - sent.data() << ' ' << own++;
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(300);
            KestLogRecord(1) << "child " << round;
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    for (std::thread& thread : busy)
        thread.join();
    std::map<std::string, int> next;
    for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
        std::istringstream lines(folder.read(file.path().filename().string()));
        for (std::string line; std::getline(lines, line);) {
            const std::size_t number = line.rfind(' ');
            EXPECT_EQ(std::to_string(next[line.substr(0, number)]++), line.substr(number + 1)) << line;
        }
    }
    EXPECT_EQ(next, (std::map<std::string, int>{{"child", kRounds}, {"parent 0", sent[0]}, {"parent 1", sent[1]}}));
}

}  // namespace
