// Tests the tear-down of the process-wide state while other threads use locks.
#include "os/module_data.h"

#include "kit/failure_of.h"
#include "kit/gate.h"
#include "support/locks.h"
#include "support/object_factory.h"
#include "support/timers.h"
#include "threads/timer_manager.h"

namespace {

using namespace KestSupport;

// One test, because the tear-down is permanent.
TEST(ModuleData, EndsFactoryAndTimers) {
    auto module = std::make_unique<Module>();
    std::atomic<int> made{0};
    std::jthread locker([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            KestCriticalSectionObject fresh;
            const KestCriticalSection guard(fresh, true);
            ++made;
        }
    });
    kit::await([&] { return made > 0; });
    KestCriticalSectionObject used;
    used.lock();
    KestTimer timer(3600, 0, false);
    timer.start(3600, 0, false);
    KestObjectFactory::getGlobalInstance().add("gone", [] { return new KestObjectBase; });
    module.reset();
    const int before = made;
    kit::await([&] { return made > before; });
    EXPECT_TRUE(KestObjectFactory::getGlobalInstance().construct("gone").isNull()) << "a new factory";
    timer.start(1, true);
    timer.stop();
    EXPECT_EQ(kit::failureOf(KestTimerManager::getInstance), "KestTimerManager::getInstance: Exiting system");
    used.unlock();
}

}  // namespace
