// What every back end of platform/critical_section.h must do.
#include "platform/critical_section.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kit/failing_calls.h"

using namespace KestSupport::platform;

namespace {

struct Owned {
    CriticalSection* section = createCriticalSection();
    ~Owned() { destroyCriticalSection(section); }
};

bool canBeTakenElsewhere(CriticalSection& section) {
    bool taken = false;
    std::thread([&] {
        taken = tryEnterCriticalSection(section);
        if (taken) leaveCriticalSection(section);
    }).join();
    return taken;
}

TEST(CriticalSection, IsRecursiveAndCounts) {
    const Owned owned;
    CriticalSection& section = *owned.section;
    EXPECT_EQ(recursionCount(section), 0U);
    enterCriticalSection(section);
    EXPECT_TRUE(tryEnterCriticalSection(section));
    EXPECT_EQ(recursionCount(section), 2U);
    EXPECT_FALSE(canBeTakenElsewhere(section));
    leaveCriticalSection(section);
    EXPECT_FALSE(canBeTakenElsewhere(section));
    leaveCriticalSection(section);
    EXPECT_EQ(recursionCount(section), 0U);
    EXPECT_TRUE(canBeTakenElsewhere(section));
    std::thread([&] { enterCriticalSection(section); }).join();
    EXPECT_FALSE(canBeTakenElsewhere(section)) << "one that ends while it holds the section leaves it taken";
    EXPECT_FALSE(tryEnterCriticalSection(section));
}

TEST(CriticalSection, GuardsItsDataUnderContention) {
    const Owned owned;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20'000; ++i) {
                enterCriticalSection(*owned.section);
                ++counter;
                leaveCriticalSection(*owned.section);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 60'000);
}

TEST(CriticalSection, ShortMemoryGivesNull) {
    const kit::FailingCalls failing("createCriticalSection");
    EXPECT_EQ(createCriticalSection(), nullptr);
    destroyCriticalSection(nullptr);
}

}  // namespace
