// The memory of idle objects. Run with a kind of object and a number. Prints the bytes of the heap and the KiB of
// private memory that these objects add to the process. A log file is created in the current folder.
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
    long own;   // KiB of private memory
};

Use use() {
    Use now{static_cast<long>(mallinfo2().uordblks + mallinfo2().hblkhd), 0};
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;) {
        long kibibytes = 0;
        if (word == "Private_Dirty:" && file >> kibibytes) now.own = kibibytes;
    }
    return now;
}

// Threads wait here until the end.
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
    bool waits;  // whether the object is a thread that waits at the gate
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
        use();  // the memory of the measurement itself is allocated before
        const Use before = use();
        for (int i = 0; i < count; ++i)
            kind.make();
        if (kind.waits) gate.awaitAll(count);
        const Use after = use();
        std::printf("%ld %ld\n", after.heap - before.heap, after.own - before.own);
        std::fflush(stdout);
        std::_Exit(0);  // the threads still wait
    }
    return 2;
}
