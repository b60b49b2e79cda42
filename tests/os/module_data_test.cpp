#include "os/module_data.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/exceptions.h"
#include "support/locks.h"
#include "support/object_factory.h"
#include "support/timers.h"
#include "sync/reference_count_lock.h"
#include "threads/timer_manager.h"

namespace KestSupport {
namespace {

TEST(ModuleData, DerivedClassesKnowWhetherTheyAreEnabled) {
    struct Own : ModuleData {
        explicit Own(bool enabled) : ModuleData(enabled) {}
        void initialize() override {}
        void terminate() override {}
        using ModuleData::m_enabled;
        using ModuleData::m_initCount;
    };
    EXPECT_TRUE(Own(true).m_enabled);
    EXPECT_FALSE(Own(false).m_enabled);
    EXPECT_EQ(Own(true).m_initCount, 0);
    EXPECT_EQ(ModuleData::m_pHead, nullptr);
    ModuleData::entry();
    ModuleData::exit();
}

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
    try {
        KestTimerManager::getInstance();
        ADD_FAILURE() << "there is no timer manager any more";
    } catch (const KestException& exception) {
        EXPECT_EQ(exception.getText(), "KestTimerManager::getInstance: Exiting system");
        EXPECT_EQ(exception.getCode(), 0);
    }
    used.unlock();
    KestCriticalSectionObject fresh;
    fresh.lock();
    EXPECT_EQ(fresh.lockCount(), 1) << "a lock that comes late is made without it";
    fresh.unlock();
}

}  // namespace
}  // namespace KestSupport
