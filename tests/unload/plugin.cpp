// A library that uses the support library, loaded and unloaded by program.cpp.
#include <support/exceptions.h>
#include <support/threads.h>
#include <support/timers.h>

using namespace KestSupport;

// Uses what attaches the calling thread, makes threads and registers with the C runtime, and leaves a timer with the
// timer manager. True when all of it worked.
extern "C" __attribute__((visibility("default"))) bool useLibrary() {
    KestTimer timer(1, false);
    timer.reset();
    if (timer.wait(-1) != 0) return false;
    KestThread thread;
    thread.start();
    thread.wait(-1);
    (new KestTimer(3'600'000, false))->reset();
    try {
        throw KestException("text", 3);
    } catch (const KestException& e) {
        return e.getText() == "text" && e.getCode() == 3;
    }
}
