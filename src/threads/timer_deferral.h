// Keeps a thread from firing timers while it holds a lock that the dependent of some timer may take.
#pragma once

namespace KestSupport {

/// While one of these exists on a thread, starting, resetting and stopping timers fires none on that thread. A timer
/// thread fires them.
class KestTimerDeferral {
  public:
    KestTimerDeferral() noexcept { ++t_depth; }
    KestTimerDeferral(const KestTimerDeferral&) = delete;
    KestTimerDeferral& operator=(const KestTimerDeferral&) = delete;
    ~KestTimerDeferral() { --t_depth; }

    static bool isActive() noexcept { return t_depth > 0; }

  private:
    static inline constinit thread_local int t_depth = 0;
};

}  // namespace KestSupport
