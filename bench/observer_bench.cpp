// Notification of the dependents of a collaborator.
#include <vector>

#include "bench_kit.h"
#include "support/observer.h"
#ifdef KEST_HAVE_POCO
#include <Poco/BasicEvent.h>
#include <Poco/Delegate.h>
#endif

using namespace KestSupport;

namespace {

struct Counting : KestDependent {
    void handleNotification(KestCollaborator&, const KestNotification&) override { benchmark::DoNotOptimize(++calls); }
    long calls = 0;
};

void notifyOurs(benchmark::State& state, std::size_t count) {
    KestCollaborator collaborator;
    std::vector<Counting> dependents(count);
    for (auto& dependent : dependents)
        collaborator.addDependent(dependent);
    const KestEventNotification notification;
    for (auto _ : state)
        collaborator.notify(notification);
}

#ifdef KEST_HAVE_POCO
struct PocoCounting {
    void handle(const void*, int& id) { benchmark::DoNotOptimize(calls += id); }
    long calls = 0;
};

void notifyPoco(benchmark::State& state, std::size_t count) {
    Poco::BasicEvent<int> event;
    std::vector<PocoCounting> targets(count);
    for (auto& target : targets)
        event += Poco::delegate(&target, &PocoCounting::handle);
    int id = 1;
    for (auto _ : state)
        event.notify(nullptr, id);
}
constexpr bool kHavePoco = true;
#else
void notifyPoco(benchmark::State&, std::size_t) {}
constexpr bool kHavePoco = false;
#endif

}  // namespace

void KestBench::registerBenches() {
    for (const std::size_t count : {std::size_t{1}, std::size_t{1000}}) {
        const Body poco = [=](benchmark::State& state) { notifyPoco(state, count); };
        Comparison("observer/notify " + std::to_string(count))
            .ours([=](benchmark::State& state) { notifyOurs(state, count); })
            .peer("Poco::BasicEvent", 0.5, kHavePoco ? poco : kMissing);
    }
    Growth("observer/notify", "dependents")
        .at({1, 10, 100, 1000, 10000, 100000},
            [](benchmark::State& state, int count) { notifyOurs(state, static_cast<std::size_t>(count)); });
}
