// Events: signalled and consumed by one thread, and passed to and fro between two.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <semaphore>
#include <thread>

#include "bench_kit.h"
#include "platform/linux/linux_futex.h"
#include "platform/wait.h"
#include "support/events.h"
#ifdef KEST_HAVE_POCO
#include <Poco/Event.h>
#endif

using namespace KestSupport;

namespace {

// What one thread does for another's answer: give() wakes the other, take() waits for it.
struct EventBaton {
    platform::OwnedHandle handle{platform::createEvent(false, false)};
    void give() { platform::setEvent(handle.get()); }
    void take() { platform::waitForOne(handle.get(), platform::kInfinite); }
};

struct SemaphoreBaton {
    std::binary_semaphore semaphore{0};
    void give() { semaphore.release(); }
    void take() { semaphore.acquire(); }
};

struct FutexBaton {
    platform::FutexWord word{0};
    void give() {
        word.store(1, std::memory_order_release);
        platform::futexWake(&word, 1);
    }
    void take() {
        while (word.exchange(0, std::memory_order_acquire) == 0)
            platform::futexWait(word, 0);
    }
};

// Round trips to a second thread. With a pause the other side is asleep each time: a spin that is still going on by
// then is over. The pauses are not measured.
template <typename Baton>
void roundTrip(benchmark::State& state, bool asleep) {
    Baton there, back;
    std::atomic<bool> end{false};
    std::thread partner([&] {
        for (;;) {
            there.take();
            if (end) return;
            back.give();
        }
    });
    for (auto _ : state) {
        if (asleep) {
            state.PauseTiming();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            state.ResumeTiming();
        }
        there.give();
        back.take();
    }
    end = true;
    there.give();
    partner.join();
}

void conditionVariable(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable changed;
    bool signalled = false;
    for (auto _ : state) {
        {
            const std::lock_guard lock(mutex);
            signalled = true;
            changed.notify_one();
        }
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return signalled; });
        signalled = false;
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("events/platform event set and wait")
        .ours([](benchmark::State& state) {
            const platform::OwnedHandle event(platform::createEvent(false, false));
            for (auto _ : state) {
                platform::setEvent(event.get());
                benchmark::DoNotOptimize(platform::waitForOne(event.get(), 0));
            }
        })
        .peer("condition variable", 0.35, conditionVariable);
    Comparison kestEvent("events/KestEvent set and wait");
    kestEvent.ours([](benchmark::State& state) {
        KestEvent event;
        for (auto _ : state) {
            event.set();
            benchmark::DoNotOptimize(event.wait(0));
        }
    });
#ifdef KEST_HAVE_POCO
    kestEvent.peer("Poco::Event", 1.0, [](benchmark::State& state) {
        Poco::Event event;
        for (auto _ : state) {
            event.set();
            benchmark::DoNotOptimize(event.tryWait(0));
        }
    });
#endif
    Comparison("events/round trip running")
        .realTime()
        .ours([](benchmark::State& state) { roundTrip<EventBaton>(state, false); })
        .peer("std::binary_semaphore", 0.5, [](benchmark::State& state) { roundTrip<SemaphoreBaton>(state, false); });
    Comparison("events/round trip beside busy processes")
        .realTime()
        .iterations(2000)
        .ours([](benchmark::State& state) {
            const BusyProcesses busy;
            roundTrip<EventBaton>(state, false);
        })
        .peer("std::binary_semaphore", 1.0, [](benchmark::State& state) {
            const BusyProcesses busy;
            roundTrip<SemaphoreBaton>(state, false);
        });
    Comparison("events/round trip asleep")
        .realTime()
        .iterations(2000)
        .ours([](benchmark::State& state) { roundTrip<EventBaton>(state, true); })
        .peer("futex", 1.05, [](benchmark::State& state) { roundTrip<FutexBaton>(state, true); });
}
