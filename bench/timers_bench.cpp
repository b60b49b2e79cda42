// Start and stop of one timer while others are active: one that is due before all others, and one that is due between
// them. The first peer is what a program without timers would write: a set of due times with a mutex, which reads the
// clock. libuv serves one thread, takes no lock and reads the clock once in each turn of its loop.
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bench_kit.h"
#include "support/timers.h"

#ifdef KEST_HAVE_UV
#include <uv.h>
#endif

namespace {

constexpr int kMinute = 60;
constexpr int kSpread = 3600;  // seconds; the others are due in one to two hours

constexpr int kOthers[] = {1, 1000, 100000};

struct Moment {
    const char* name;
    int seconds;
};
constexpr Moment kMoments[] = {{"first of", kMinute}, {"amid", kSpread + kSpread / 2}};

int secondsOfOther(int index, int count) {
    return kSpread + static_cast<int>(static_cast<long long>(index) * 7919 % count * kSpread / count);
}

void startAndStop(benchmark::State& state, int others, int seconds) {
    std::vector<std::unique_ptr<KestSupport::KestTimer>> timers;
    for (int index = 0; index < others; ++index) {
        timers.push_back(std::make_unique<KestSupport::KestTimer>());
        timers.back()->start(secondsOfOther(index, others), 0, true);
    }
    KestSupport::KestTimer timer;
    for (auto _ : state) {
        timer.start(seconds, 0, true);
        timer.stop();
    }
}

class TimerSet {
  public:
    using Moment = std::pair<std::chrono::steady_clock::time_point, std::uint64_t>;

    Moment start(int seconds) {
        const std::lock_guard lock(m_mutex);
        return *m_timers.emplace(std::chrono::steady_clock::now() + std::chrono::seconds(seconds), ++m_count).first;
    }
    void stop(const Moment& moment) {
        const std::lock_guard lock(m_mutex);
        m_timers.erase(moment);
    }

  private:
    std::mutex m_mutex;
    std::set<Moment> m_timers;  // guarded by m_mutex
    std::uint64_t m_count = 0;  // guarded by m_mutex
};

void startAndStopInSet(benchmark::State& state, int others, int seconds) {
    TimerSet timers;
    for (int index = 0; index < others; ++index)
        timers.start(secondsOfOther(index, others));
    for (auto _ : state)
        timers.stop(timers.start(seconds));
}

#ifdef KEST_HAVE_UV
constexpr bool kHaveUv = true;

void startAndStopUv(benchmark::State& state, int others, int seconds) {
    const auto nothing = [](uv_timer_t*) {};
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> timers(static_cast<std::size_t>(others) + 1);
    for (uv_timer_t& timer : timers)
        uv_timer_init(&loop, &timer);
    for (int index = 0; index < others; ++index) {
        const auto delay = static_cast<std::uint64_t>(secondsOfOther(index, others)) * 1000;
        uv_timer_start(&timers[static_cast<std::size_t>(index)], nothing, delay, 0);
    }
    uv_timer_t& timer = timers.back();
    for (auto _ : state) {
        uv_timer_start(&timer, nothing, static_cast<std::uint64_t>(seconds) * 1000, 0);
        uv_timer_stop(&timer);
    }
    for (uv_timer_t& other : timers)
        uv_close(reinterpret_cast<uv_handle_t*>(&other), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}
#else
constexpr bool kHaveUv = false;

void startAndStopUv(benchmark::State&, int, int) {}
#endif

using StartAndStop = void (*)(benchmark::State& state, int others, int seconds);
KestBench::Body bodyOf(StartAndStop startAndStop, int others, int seconds) {
    return [=](benchmark::State& state) { startAndStop(state, others, seconds); };
}

}  // namespace

void KestBench::registerBenches() {
    for (const Moment& moment : kMoments) {
        const std::string what = std::string("timers/start and stop ") + moment.name;
        for (const int others : kOthers) {
            Comparison(what + " " + std::to_string(others) + " others")
                .ours(bodyOf(startAndStop, others, moment.seconds))
                .peer("std::set with mutex and clock", 0.8, bodyOf(startAndStopInSet, others, moment.seconds))
                .peer("uv_timer (no lock nor clock)",
                      kHaveUv ? bodyOf(startAndStopUv, others, moment.seconds) : kMissing);
        }
        const int seconds = moment.seconds;
        Growth(what, "others").at({1, 10, 100, 1000, 10000, 100000, 1000000}, [=](benchmark::State& state, int others) {
            startAndStop(state, others, seconds);
        });
    }
}
