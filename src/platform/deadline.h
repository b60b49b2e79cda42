// Time-outs as points in time.
//
// A wait makes its Deadline when it begins, and asks it after each wake-up how much time is left. So a wait that sleeps
// several times keeps its time-out. The rest is rounded up, so no wait ends too early. The clock is the steady clock of
// the C++ runtime, so stepClocks (clock.h) does not move a wait that has begun.
//
// Threads: a Deadline is a value.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <limits>

#include "platform/wait.h"

namespace KestSupport::platform {

class Deadline {
  public:
    /// Nanoseconds since the steady clock's epoch.
    using Time = std::int64_t;

    static constexpr Time kMillisecond = 1'000'000;

    static Time now() noexcept {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    static constexpr Deadline at(Time time) noexcept { return Deadline(time); }
    /// A deadline that does not pass.
    static constexpr Deadline never() noexcept { return Deadline(std::numeric_limits<Time>::max()); }
    /// The point `milliseconds` from now; never for kInfinite.
    static Deadline after(std::uint32_t milliseconds) noexcept {
        return milliseconds == kInfinite ? never() : afterNumber(milliseconds);
    }
    /// The same, where kInfinite is a number like others.
    static Deadline afterNumber(std::uint32_t milliseconds) noexcept { return at(now() + milliseconds * kMillisecond); }

    constexpr bool isNever() const noexcept { return *this == never(); }
    constexpr Time time() const noexcept { return m_time; }

    constexpr bool hasPassed(Time now) const noexcept { return !isNever() && now >= m_time; }
    bool hasPassed() const noexcept { return hasPassed(now()); }

    /// Returns the milliseconds until the deadline, rounded up and less than kInfinite; 0 if it has passed, kInfinite
    /// for never.
    constexpr std::uint32_t rest(Time now) const noexcept {
        if (isNever()) return kInfinite;
        if (now >= m_time) return 0;
        const Time milliseconds = (m_time - now - 1) / kMillisecond + 1;
        return milliseconds < kInfinite ? static_cast<std::uint32_t>(milliseconds) : kInfinite - 1;
    }
    std::uint32_t rest() const noexcept { return rest(now()); }

    friend constexpr auto operator<=>(const Deadline&, const Deadline&) = default;

  private:
    constexpr explicit Deadline(Time time) noexcept : m_time(time) {}

    Time m_time;
};

}  // namespace KestSupport::platform
