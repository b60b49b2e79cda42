// The watch over a record that stays open: a timer that fires when the record has been open for 60 seconds, and every
// 60 seconds after that, and the thread on which the logger then visits its record.
//
// A timer that was started and stopped for each record would cost more than all else of a short record but its output.
// So the timer is left to run out: opening a record notes the time, ending it clears the note, and when the timer
// expires it fires only if a record is open long enough; otherwise it waits for the rest, or rests itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/fork.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"
#include "support/threads.h"
#include "support/timers.h"

namespace KestSupport {

class KestLogging;

namespace internal {

/// Threads: records are opened and closed by the owner of the logger's lock; arm may be called by any thread, without
/// that lock, since starting a timer can fire others, whose dependents may log.
class LogWatchdog : public KestTimer {
  public:
    explicit LogWatchdog(std::int32_t seconds) : m_seconds(seconds) {}
    ~LogWatchdog() override { stop(); }

    /// Starts the timer unless it runs. False when it cannot be started; the next record may try again.
    bool arm();

    /// Notes that a record is open from now on. False when the timer does not run: it has to be armed first.
    bool openRecord() noexcept;
    void closeRecord() noexcept { m_openSince.store(kNoRecord, std::memory_order_release); }
    bool isRecordOpen() const noexcept { return m_openSince.load(std::memory_order_relaxed) != kNoRecord; }

    /// The timer has expired.
    void set() override;

  private:
    static constexpr std::int64_t kNoRecord = -1;

    bool startOnce(std::int64_t seconds);

    const std::int32_t m_seconds;  // that a record may stay open

    // Opening, once for each record, asks for the calendar's seconds, which cost a tenth of the steady clock's time. A
    // calendar that is set back cannot put the watch off for longer than another m_seconds: at its second expiry the
    // record has been open for the rest that the first one found.
    std::int64_t m_foundOpen = kNoRecord;  // what the last expiry found; one expiry at a time

    // Opening writes the first and reads the second, expiry writes the second and reads the first, all sequentially
    // consistent: so at least one of them sees the other.
    std::atomic<std::int64_t> m_openSince{kNoRecord};  // in seconds of the calendar
    std::atomic<bool> m_armed{false};
};

/// Connects a logger with the watchdog thread that visits it, and outlives both. The logger is destroyed when the visit
/// is over.
class LogWatchLink {
  public:
    explicit LogWatchLink(KestLogging& logging) : m_pLogging(&logging) {}

    /// Starts a thread that visits the logger, unless one is on its way or there. A visit waits while a record is open.
    static void startVisit(const std::shared_ptr<LogWatchLink>& link);

    /// The logger, if it still exists; it then stays until leave.
    KestLogging* enter();
    void leave();

    /// Keeps further threads away from the logger and returns when none uses it.
    void cut() noexcept;

  private:
    // Called with the lock held. A visit that began before a fork has no thread in the child.
    bool isVisiting() const noexcept { return m_visiting && m_forks == platform::forkCount(); }

    platform::UninterruptedMutex m_lock;
    const platform::OwnedHandle m_left{platform::createEvent(false, false)};  // signalled when a visit ends
    KestLogging* m_pLogging;                                                  // guarded by m_lock
    bool m_visiting = false;                                                  // guarded by m_lock
    std::uint32_t m_forks = 0;  // the process of the visit; guarded by m_lock
};

}  // namespace internal

/// Visits the logger once and deletes itself.
class KestLoggingEventTimerThread : public KestThread {
  public:
    explicit KestLoggingEventTimerThread(std::shared_ptr<internal::LogWatchLink> link);

  protected:
    using KestThread::run;
    int run() override;

  private:
    const std::shared_ptr<internal::LogWatchLink> m_pLink;
};

}  // namespace KestSupport
