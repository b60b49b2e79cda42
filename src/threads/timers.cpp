#include "support/timers.h"

#include <algorithm>
#include <limits>

#include "support/exceptions.h"
#include "threads/timer_manager.h"

namespace KestSupport {
namespace {

internal::TimerSetting normalise(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) noexcept {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::int64_t sum = std::int64_t{seconds} + milliseconds / 1000;
    const std::int64_t held = std::clamp<std::int64_t>(sum, Limits::min(), Limits::max());
    return {static_cast<std::int32_t>(held), static_cast<std::int16_t>(milliseconds % 1000), oneShot};
}

}  // namespace

KestTimer::KestTimer() noexcept : m_setting(internal::TimerSetting{}) {}

KestTimer::KestTimer(std::int32_t milliseconds, bool oneShot) noexcept : KestTimer(0, milliseconds, oneShot) {}

KestTimer::KestTimer(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) noexcept
    : m_setting(normalise(seconds, milliseconds, oneShot)) {}

KestTimer::~KestTimer() {
    KestTimer::stop();
}

void KestTimer::reset() {
    const internal::TimerSetting setting = m_setting.load(std::memory_order_acquire);
    start(setting.seconds, setting.milliseconds, setting.oneShot);
}

void KestTimer::start(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) {
    try {
        KestTimerManager::getInstance();
    } catch (const KestException&) {  // the library is being torn down
        return;
    }
    const internal::TimerSetting setting = normalise(seconds, milliseconds, oneShot);
    if (seconds > 0 || milliseconds > 0) {
        KestTimerManager::addTimer(*this, setting);
    } else {
        KestTimerManager::removeTimer(*this, setting);
    }
}

void KestTimer::start(std::int32_t milliseconds, bool oneShot) {
    start(0, milliseconds, oneShot);
}

// A firing on another thread may start the timer again. So stop repeats until the timer is not registered after the
// firing that it waited for.
void KestTimer::stop() {
    bool waited = true;
    while (waited && m_registered.load(std::memory_order_acquire)) {
        try {
            KestTimerManager::getInstance();
            KestTimerManager::removeTimer(*this);
        } catch (const KestException&) {  // the library is being torn down
        }
        // A timer that is still registered is being fired, or its manager has been deleted.
        waited = m_registered.load(std::memory_order_acquire) && KestTimerManager::waitWhileFiring(*this);
    }
}

bool KestTimer::isOneShot() const {
    return m_setting.load(std::memory_order_acquire).oneShot;
}

}  // namespace KestSupport
