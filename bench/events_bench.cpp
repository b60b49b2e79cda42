// Events: one thread that sets and consumes an event, and round trips between two threads, also beside processes that
// use all processors.
#include <condition_variable>
#include <mutex>
#include <semaphore>

#include "bench_kit.h"
#include "round_trip.h"
#include "support/events.h"
#ifdef KEST_HAVE_POCO
#include <Poco/Event.h>
#endif

using KestBench::Body;
using KestBench::Comparison;
using KestBench::roundTrip;
using KestSupport::KestEvent;

namespace {

struct EventBaton {
    KestEvent event;
    void give() { event.set(); }
    void take() { event.wait(-1); }
};

// An event without the class: a flag, its mutex and a condition variable.
struct ConditionBaton {
    void give() {
        const std::lock_guard lock(m_mutex);
        m_given = true;
        m_changed.notify_one();
    }
    void take() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_given; });
        m_given = false;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_given = false;  // guarded by m_mutex
};

struct SemaphoreBaton {
    std::binary_semaphore semaphore{0};
    void give() { semaphore.release(); }
    void take() { semaphore.acquire(); }
};

void setAndWait(benchmark::State& state) {
    KestEvent event;
    for (auto _ : state) {
        event.set();
        benchmark::DoNotOptimize(event.wait(0));
    }
}

void setAndWaitOfCondition(benchmark::State& state) {
    ConditionBaton baton;
    for (auto _ : state) {
        baton.give();
        baton.take();
    }
}

#ifdef KEST_HAVE_POCO
void setAndWaitPoco(benchmark::State& state) {
    Poco::Event event;
    for (auto _ : state) {
        event.set();
        benchmark::DoNotOptimize(event.tryWait(0));
    }
}
#else
const Body setAndWaitPoco = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    const std::string condition = "condition variable";
    const std::string semaphore = "std::binary_semaphore";
    Comparison("events/set and wait")
        .ours(setAndWait)
        .peer(condition + " with flag", 0.8, setAndWaitOfCondition)
        .peer("Poco::Event", 1.0, setAndWaitPoco);
    Comparison("events/round trip")
        .realTime()
        .ours(roundTrip<EventBaton>)
        .peer(condition, 1.0, roundTrip<ConditionBaton>)
        .peer(semaphore, 1.0, roundTrip<SemaphoreBaton>);
    Comparison("events/round trip asleep")
        .realTime()
        .iterations(2000)
        .ours(roundTrip<EventBaton, true>)
        .peer(condition, 1.05, roundTrip<ConditionBaton, true>);
    // The semaphore is built on std::atomic::wait, which yields before it sleeps.
    Comparison("events/round trip beside busy processes")
        .besideBusyProcesses()
        .iterations(500)
        .ours(roundTrip<EventBaton>)
        .peer(condition, 1.2, roundTrip<ConditionBaton>)
        .peer(semaphore, roundTrip<SemaphoreBaton>);
}
