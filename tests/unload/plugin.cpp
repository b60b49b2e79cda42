// A plug-in that uses the support library. The program of each system loads and unloads it.
#include <support/date_time.h>
#include <support/exceptions.h>
#include <support/object_factory.h>
#include <support/stop.h>
#include <support/threads.h>
#include <support/timers.h>
#include <support/utilities.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

using namespace KestSupport;

namespace {

// Created during the load, before other threads exist.
[[maybe_unused]] KestObjectFactory& g_factory = KestObjectFactory::getGlobalInstance();

// These timers are still active at the unload.
std::mutex g_lock;
std::vector<std::unique_ptr<KestTimer>> g_timers;

void leaveTimers() {
    const std::lock_guard guard(g_lock);
    for (const int period : {1, 3'600'000}) {
        g_timers.push_back(std::make_unique<KestTimer>(period, false));
        g_timers.back()->reset();
    }
}

}  // namespace

// Uses the parts that attach the calling thread, create threads, register with the C runtime and keep memory, and
// leaves timers active. Returns whether all of it worked.
extern "C" __attribute__((visibility("default"))) bool useLibrary() {
    KestTimer timer(1, false);
    timer.reset();
    if (timer.wait(-1) != 0) return false;
    KestThread thread;
    thread.start();
    thread.wait(-1);
    leaveTimers();
    std::stop_source source;
    if (KestStopEvent(source.get_token()).isRequested()) return false;
    KestDateTime().toString();
    KestGetEnvironmentVariable("none");
    try {
        throw KestException("text", 3);
    } catch (const KestException& e) {
        return e.getText() == "text" && e.getCode() == 3;
    }
}

// Leaves a timer active.
extern "C" __attribute__((visibility("default"))) void startTimer() {
    (new KestTimer(3'600'000, true))->reset();
}

// Starts a thread that never ends.
extern "C" __attribute__((visibility("default"))) void runForEver() {
    struct Endless : KestThread {
        int run() override {
            for (std::atomic<bool> endless{true}; endless;) {
            }
            return 0;
        }
    };
    (new Endless)->start();
}
