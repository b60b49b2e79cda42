// The memory of objects that do nothing; a log file goes to the current folder. Prints, for the argument and the number
// of objects, the bytes of the heap and the KiB of memory of its own that the process has more with them.
#include <malloc.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/logging.h"
#include "support/threads.h"
#include "support/timers.h"

using namespace KestSupport;

namespace {

struct Use {
    long heap;  // bytes
    long own;   // KiB of the process alone
};

Use use() {
    Use now{static_cast<long>(mallinfo2().uordblks + mallinfo2().hblkhd), 0};
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;) {
        long kibibytes = 0;
        if (word.starts_with("Private_") && file >> kibibytes) now.own += kibibytes;
    }
    return now;
}

// Threads meet here and wait for the end.
struct Gate {
    void wait() {
        std::unique_lock lock(mutex);
        ++waiting;
        changed.notify_all();
        changed.wait(lock, [this] { return open; });
    }
    void awaitAll(int count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return waiting == count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    int waiting = 0;    // guarded by mutex
    bool open = false;  // guarded by mutex
};
Gate gate;

class IdleThread : public KestThread {
    using KestThread::run;
    int run() override {
        gate.wait();
        return 0;
    }
};

std::vector<std::unique_ptr<KestLogging>> loggers;
std::vector<std::unique_ptr<KestTimer>> timers;
std::vector<std::unique_ptr<IdleThread>> threads;
std::vector<std::thread> standardThreads;

void makeLogger() {
    loggers.push_back(std::make_unique<KestLogging>("weight", KestLogging::fileTarget, 5));
    KestLogging::setInstance(*loggers.back());
    KestLogging::getInstance() << setloglevel(5) << "one" << endrecord;
}
void makeTimer() {
    timers.push_back(std::make_unique<KestTimer>());
    timers.back()->start(3600, 0, true);
}
void makeThread() {
    threads.push_back(std::make_unique<IdleThread>());
    threads.back()->start();
}
void makeStandardThread() {
    standardThreads.emplace_back([] { gate.wait(); });
}

struct Kind {
    const char* name;
    void (*make)();
    bool waits;  // at the gate
};
constexpr Kind kKinds[] = {{"logger", makeLogger, false},
                           {"timer", makeTimer, false},
                           {"thread", makeThread, true},
                           {"std::thread", makeStandardThread, true}};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const int count = std::atoi(argv[2]);
    for (const Kind& kind : kKinds) {
        if (std::strcmp(kind.name, argv[1]) != 0) continue;
        use();  // what asking needs itself is there before
        const Use before = use();
        for (int i = 0; i < count; ++i)
            kind.make();
        if (kind.waits) gate.awaitAll(count);
        const Use after = use();
        std::printf("%ld %ld\n", after.heap - before.heap, after.own - before.own);
        std::fflush(stdout);
        std::_Exit(0);  // the threads wait on
    }
    return 2;
}
