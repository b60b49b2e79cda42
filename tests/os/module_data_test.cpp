#include "os/module_data.h"

#include <gtest/gtest.h>

#include <memory>

#include "kit/failure_of.h"
#include "support/locks.h"
#include "support/object_factory.h"
#include "support/timers.h"
#include "sync/reference_count_lock.h"
#include "threads/timer_manager.h"

namespace KestSupport {
namespace {

// One test, because the tear-down is for good: the library's own module data made the lock before main.
TEST(ModuleData, TheLockOfTheProcessLivesFromLoadToTheLastTearDown) {
    KestCriticalSectionObject* const made = internal::referenceCountLock();
    ASSERT_NE(made, nullptr);
    auto module = std::make_unique<Module>();
    EXPECT_EQ(internal::referenceCountLock(), made) << "there is one for all module data";
    KestCriticalSectionObject used;
    used.lock();
    KestTimer timer(3600, 0, false);
    timer.start(3600, 0, false);
    KestObjectFactory::getGlobalInstance().add("gone", [] { return new KestObjectBase; });
    module.reset();
    EXPECT_EQ(internal::referenceCountLock(), nullptr);
    EXPECT_TRUE(KestObjectFactory::getGlobalInstance().construct("gone").isNull()) << "the factory is another one";
    timer.start(1, true);
    timer.stop();
    EXPECT_EQ(kit::failureOf(KestTimerManager::getInstance), "KestTimerManager::getInstance: Exiting system");
    used.unlock();
    KestCriticalSectionObject fresh;
    fresh.lock();
    EXPECT_EQ(fresh.lockCount(), 1) << "a lock that comes late is made without it";
    fresh.unlock();
}

}  // namespace
}  // namespace KestSupport
