// The thread that waits until the earliest timer is due, runs a pass, and ends.
//
//   state       m_pWaiting of the manager  left by
//   waiting     this thread                the time has passed: dispatching; dismissed, or no timers: leaving
//   dispatching another thread or null     the end of the pass: leaving, or waiting when it cannot make another thread
//   leaving     another thread or null     its end; the object deletes itself
#pragma once

#include "platform/wait.h"
#include "support/threads.h"

namespace KestSupport {

class KestTimerThread : public KestThread {
  public:
    KestTimerThread();
    KestTimerThread(const KestTimerThread&) = delete;
    KestTimerThread& operator=(const KestTimerThread&) = delete;
    ~KestTimerThread() override;

    bool canWait() const noexcept { return m_wakeEvent != nullptr; }
    /// Makes the thread look again at what it waits for.
    void wake() noexcept { platform::setEvent(m_wakeEvent.get()); }
    /// True on each thread of this class.
    static bool isCurrent() noexcept { return t_isCurrent; }

  protected:
    using KestThread::run;
    int run() override;

  private:
    bool waitForExpiry();

    static inline constinit thread_local bool t_isCurrent = false;

    const platform::OwnedHandle m_wakeEvent;
};

}  // namespace KestSupport
