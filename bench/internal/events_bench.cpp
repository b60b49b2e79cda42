// The platform layer's events: one thread that sets and consumes an event, and round trips compared with the bare
// system call.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "bench_kit.h"
#include "platform/wait.h"
#include "round_trip.h"

using namespace KestSupport;

namespace {

struct EventBaton {
    platform::OwnedHandle handle{platform::createEvent(false, false)};
    void give() { platform::setEvent(handle.get()); }
    void take() { platform::waitForOne(handle.get(), platform::kInfinite); }
};

struct FutexBaton {
    std::atomic<std::uint32_t> word{0};
    void give() {
        word.store(1, std::memory_order_release);
        ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1);
    }
    void take() {
        while (word.exchange(0, std::memory_order_acquire) == 0)
            ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, 0, nullptr);
    }
};

template <typename Baton>
void setAndWait(benchmark::State& state) {
    Baton baton;
    for (auto _ : state) {
        baton.give();
        baton.take();
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("events/platform set and wait").ours(setAndWait<EventBaton>).peer("futex", setAndWait<FutexBaton>);
    Comparison("events/platform round trip")
        .realTime()
        .ours(roundTrip<EventBaton>)
        .peer("futex", roundTrip<FutexBaton>);
    Comparison("events/platform round trip asleep")
        .realTime()
        .iterations(2000)
        .ours(roundTrip<EventBaton, true>)
        .peer("futex", roundTrip<FutexBaton, true>);
}
