// What works in a child that was forked from a process with threads.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "kit/gate.h"
#include "kit/temporary_folder.h"
#include "platform/linux/linux_sanitizers.h"
#include "support/events.h"
#include "support/logging.h"
#include "support/read_write_lock.h"
#include "support/threads.h"
#include "support/timers.h"

using namespace KestSupport;

namespace {

// Sleeps in the parent, with a lock taken and a record of the log half written.
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

class Empty : public KestThread {
  protected:
    int run() override { return 0; }
};

// What the child does; the text of what is wrong, null when all is well.
const char* inChild(Sleeper& sleeper, KestMutexObject& others, KestMutexObject& mine, KestReadWriteLock& shared,
                    KestTimer& timer, KestLogging& log) {
    if (KestThread::getCurrentThreadId() != getpid()) return "the thread id is the parent's";
    if (mine.lockCount() != 1 || (mine.unlock(), mine.lockCount() != 0)) return "an own lock is lost";
    if (shared.writeUnLock(), !shared.tryReadLock()) return "an own write lock is lost";
    if (others.testAndSet() || !others.testAndSet() || others.lockCount() != 1) return "a lock is not abandoned";
    KestMutexObject fresh;
    const KestCriticalSection guard(fresh, true);
    if (sleeper.wait(-1) != 0) return "a thread of the parent seems to run";
    KestEvent event;
    if (event.set(), event.wait(-1) != 0 || event.wait(1) != -2) return "a fresh event does not work";
    sleeper.end.set();
    if (sleeper.end.wait(0) != 0) return "a thread of the parent took an event";
    log << setloglevel(1) << "from the child" << endrecord;
    if (platform::kSanitizerDefersSignals) return nullptr;  // ThreadSanitizer has no new threads in a forked child
    KestTimer own;
    own.start(1, true);
    if (own.wait(-1) != 0 || timer.wait(-1) != 0) return "a timer does not fire";
    Empty thread;
    if (thread.start(), thread.waitForThreadExit(), thread.isAlive() && thread.getExitCode() != 0) return "no thread";
    return sleeper.kill(), sleeper.isAlive() ? "a thread of the parent cannot be killed" : nullptr;
}

TEST(Fork, AChildOfAProcessWithThreadsLocksWaitsLogsAndFiresTimers) {
    const kit::TemporaryFolder folder;
    KestLogging log(folder.pathOf("log"), KestLogging::fileTarget, 1);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> busy;
    for (int i = 0; i < 2; ++i) {
        busy.emplace_back([&] {
            while (!stop) {
                KestMutexObject lock;
                const KestCriticalSection guard(lock, true);
                KestEvent event;
                KestTimer timer;
                timer.start(3600, 0, true);
                event.wait(0);
            }
        });
    }
    for (int round = 0; round < 40; ++round) {
        KestMutexObject others, mine;
        KestReadWriteLock shared;
        KestTimer timer;
        Sleeper sleeper(others, log);
        sleeper.start();
        sleeper.ready.pass();
        timer.start(1, false);
        mine.lock();
        shared.writeLock();
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            const char* const wrong = inChild(sleeper, others, mine, shared, timer, log);
            if (wrong != nullptr) std::fprintf(stderr, "%s\n", wrong);
            _exit(wrong == nullptr ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        shared.writeUnLock();
        mine.unlock();
        sleeper.end.set();
        sleeper.waitForThreadExit();
    }
    stop = true;
    for (const auto& file : std::filesystem::directory_iterator(folder.path())) {
        const std::string text = folder.read(file.path().filename().string());
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 80) << text;
        EXPECT_EQ(text.find("halffrom"), std::string::npos);
    }
}

}  // namespace
