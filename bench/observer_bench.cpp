// Notifying one and a thousand dependents.
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
#endif

}  // namespace

void KestBench::registerBenches() {
    for (const std::size_t count : {std::size_t{1}, std::size_t{1000}}) {
        Comparison comparison("observer/notify " + std::to_string(count));
        comparison.ours([=](benchmark::State& state) { notifyOurs(state, count); });
#ifdef KEST_HAVE_POCO
        comparison.peer("Poco::BasicEvent", 0.5, [=](benchmark::State& state) { notifyPoco(state, count); });
#endif
    }
}
