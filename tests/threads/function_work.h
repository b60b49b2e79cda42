// Work of a thread that is given as a function, and a dependent that holds the thread that notifies it.
#pragma once

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "kit/gate.h"
#include "support/observer.h"
#include "support/threads.h"

namespace kit {

struct FunctionWork : KestSupport::KestThread::KestRunnable {
    explicit FunctionWork(std::function<int()> function) : m_function(std::move(function)) {}
    int run() override { return m_function(); }
    const std::function<int()> m_function;
};

/// A notification returns once `left` is open.
struct HoldingDependent : KestSupport::KestDependent {
    Gate entered, left;
    void handleNotification(KestSupport::KestCollaborator&, const KestSupport::KestNotification&) override {
        entered.open();
        left.pass();
    }
};

/// Kills a thread that repeats the step with the numbers from 0 on.
inline void killInside(int microseconds, const std::function<void(int)>& step) {
    Gate begins;
    KestSupport::KestThread thread(new FunctionWork([&]() -> int {
        begins.open();
        for (int i = 0;; ++i)
            step(i);
    }));
    thread.start();
    begins.pass();
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    thread.kill();
    if (thread.isAlive()) thread.wait(-1);
}

}  // namespace kit
