// Runs each scenario of a test program with the first call to the system failing, then with the second, and so on until
// a run needs no such call; the same for allocations; and each once or from then on. No run may crash, hang, leak or
// report a false success, and each failure that it reports has a text. The program links kit/allocations.cc.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "kit/allocations.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/system.h"
#include "kit/temporary_folder.h"
#include "support/exceptions.h"
#include "threads/timer_manager.h"

namespace {

constexpr int kNever = 1'000'000;  // more than the calls and the allocations of any scenario

// Makes the Nth allocation of this program fail, counted from 1, once or from then on.
class FailingAllocations {
  public:
    FailingAllocations(std::int64_t first, bool fromThenOn) noexcept {
        s_first = first;
        s_fromThenOn = fromThenOn;
        s_seen = 0;
    }
    static std::int64_t seen() noexcept { return s_seen; }

  private:
    static bool succeeds(std::size_t) noexcept {
        const std::int64_t number = ++s_seen;
        return number < s_first || (number > s_first && !s_fromThenOn);
    }
    inline static std::atomic<std::int64_t> s_first, s_seen;
    inline static std::atomic<bool> s_fromThenOn;
    const kit::AllocationHook m_hook{succeeds};
};

/// Thrown when the library reports a failure.
struct Refusal {};

void accept(bool done) {
    if (!done) throw Refusal();
}

/// Thrown when the library reports a success, and the result is wrong.
struct WrongSuccess {
    std::string what;
};

class WithoutFaults {
  public:
    WithoutFaults() noexcept { KestSupport::platform::setFaultHook(nullptr); }
    ~WithoutFaults() { KestSupport::platform::setFaultHook(m_hook); }

  private:
    const KestSupport::platform::FaultHook m_hook = KestSupport::platform::internal::g_faultHook;
    const kit::AllocationHook m_acceptAll{nullptr};
};

template <typename Call>
auto withoutFaults(Call call) {
    const WithoutFaults pause;
    return call();
}

template <typename Check>
void confirm(const char* what, Check check) {
    const WithoutFaults pause;
    if (!check()) throw WrongSuccess{what};
}

/// A folder that is filled and removed without faults. It is the state directory while it exists.
class Folder {
  public:
    explicit Folder(const std::function<void(const kit::TemporaryFolder&)>& fill = [](const auto&) {}) {
        withoutFaults([&] {
            fill(m_folder.emplace());
            m_environment.emplace().set("KEST_STATE_DIR", m_folder->path());
        });
    }
    ~Folder() {
        withoutFaults([&] {
            m_environment.reset();
            m_folder.reset();
        });
    }
    const kit::TemporaryFolder* operator->() const { return &*m_folder; }
    std::string pathOf(const char* name) const {
        return withoutFaults([&] { return m_folder->pathOf(name); });
    }

  private:
    std::optional<kit::TemporaryFolder> m_folder;
    std::optional<kit::EnvironmentGuard> m_environment;
};

struct Scenario {
    const char* name;
    void (*run)();
};

struct Mode {
    const char* name;
    bool allocations;
    bool fromThenOn;
};

const Mode kModes[] = {{"call_once", false, false},
                       {"calls_from_then_on", false, true},
                       {"allocation_once", true, false},
                       {"allocations_from_then_on", true, true}};

/// Counts that grow with each run if a run loses something.
struct Footprint {
    std::int64_t allocations = 0;
    std::ptrdiff_t handles = 0;

    static Footprint now() {
        // The timer thread ends and releases its objects.
        KestSupport::KestTimerManager::cancelWait();
        kit::await([] { return kit::threadCount() == 1; });
        return {kit::g_liveAllocations, kit::handleCount()};
    }
    bool operator>(const Footprint& other) const { return allocations > other.allocations || handles > other.handles; }
};

class FaultSweep : public testing::TestWithParam<std::tuple<Scenario, Mode>> {
  protected:
    /// Runs the scenario with the fault. Returns whether the run reached it, and what was wrong in `error`.
    bool reaches(int number, std::string& error) const {
        const auto& [scenario, mode] = GetParam();
        const kit::FailingCalls calls(mode.allocations ? "none" : "", number, mode.fromThenOn, EMFILE);
        const FailingAllocations allocations(mode.allocations ? number : kNever, mode.fromThenOn);
        try {
            scenario.run();
        } catch (const WrongSuccess& e) {
            const WithoutFaults pause;
            error = "wrong success: " + e.what;
        } catch (const KestSupport::KestException& e) {
            const WithoutFaults pause;
            if (e.getText().empty() && e.getUText().empty()) error = "an exception without a text";
        } catch (const std::bad_alloc&) {  // a lock that cannot be made throws this too
        } catch (const Refusal&) {
        } catch (const std::exception& e) {
            const WithoutFaults pause;
            error = std::string("a foreign exception: ") + e.what();
        }
        return mode.allocations ? FailingAllocations::seen() >= number : kit::FailingCalls::seen() >= number;
    }
};

TEST_P(FaultSweep, EndsWithoutHarm) {
    std::string error;
    reaches(kNever, error);
    ASSERT_EQ(error, "") << "without a fault";
    bool reached = true;
    for (int number = 1; reached; ++number) {
        // Memory that is kept for later use grows in one run, a leak in each run.
        Footprint before = Footprint::now();
        for (int run = 0; run < 4; ++run) {
            reached = reaches(number, error);
            ASSERT_EQ(error, "") << "fault " << number;
            const Footprint after = Footprint::now();
            if (!(after > before)) break;
            EXPECT_LT(run, 3) << "fault " << number << " loses " << after.allocations - before.allocations
                              << " allocations and " << after.handles - before.handles << " handles";
            before = after;
        }
    }
}

/// A row for INSTANTIATE_TEST_SUITE_P: the scenarios in each mode.
inline auto inEachMode(const std::vector<Scenario>& scenarios) {
    return testing::Combine(testing::ValuesIn(scenarios), testing::ValuesIn(kModes));
}
inline std::string nameOf(const testing::TestParamInfo<std::tuple<Scenario, Mode>>& each) {
    return std::string(std::get<0>(each.param).name) + "_" + std::get<1>(each.param).name;
}

}  // namespace
