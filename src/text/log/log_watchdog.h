// Watches for a record that stays open: a timer fires when the record has been open for 60 seconds, and every 60
// seconds after that. A thread then visits the logger.
//
// To start and stop a timer for each record would take longer than the rest of a short record, except its output. So
// opening a record only notes the time, and ending it clears the note. An expiry of the timer fires only if a record
// has been open for 60 seconds:
//
//   open for       expiry
//   no record      does nothing; the next record starts the timer again
//   below 60 s     starts the timer for the rest of the 60 s
//   60 s and more  fires, and starts the timer for 60 s
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/fork.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"
#include "support/threads.h"
#include "support/timers.h"
#include "text/log/open_record.h"

namespace KestSupport {

class KestLogging;

namespace internal {

/// Threads: the owner of the logger's lock opens and closes records. Any thread may call arm, without that lock: to
/// start a timer can fire other timers, and their dependents may log.
class LogWatchdog : public KestTimer {
  public:
    /// `openSince` is where the watchdog notes since when a record is open; it outlives the watchdog.
    LogWatchdog(std::int32_t seconds, std::atomic<std::int64_t>& openSince)
        : m_seconds(seconds), m_openSince(openSince) {}
    ~LogWatchdog() override { stop(); }

    /// Starts the timer unless it runs. Returns false if it cannot be started; the next record may try again.
    bool arm();

    /// Notes that a record is open from this time on. Returns false if the timer does not run; arm starts it.
    bool openRecord() noexcept;
    void closeRecord() noexcept { m_openSince.store(kNoRecord, std::memory_order_release); }
    bool isRecordOpen() const noexcept { return m_openSince.load(std::memory_order_relaxed) != kNoRecord; }

    /// The timer has expired.
    void set() override;

  private:
    static constexpr std::int64_t kNoRecord = OpenRecord::kNotOpen;

    bool startOnce(std::int64_t seconds);

    const std::int32_t m_seconds;  // for which a record may stay open

    // The times are calendar seconds: the calendar costs a tenth of the steady clock's time, for each record. If the
    // calendar is set back, the second expiry that finds the same record fires, at most m_seconds late.
    std::int64_t m_foundOpen = kNoRecord;  // m_openSince at the last expiry; only expiries use it, one at a time

    // openRecord writes m_openSince and then reads m_armed. An expiry writes m_armed, makes a barrier in all threads,
    // and then reads m_openSince. So at least one of the two sees the other, and a record needs no locked instruction.
    std::atomic<std::int64_t>& m_openSince;
    std::atomic<bool> m_armed{false};
};

/// Connects a logger with the watchdog thread that visits it, and outlives both. The logger's destructor waits for the
/// end of a visit.
class LogWatchLink {
  public:
    explicit LogWatchLink(KestLogging& logging) : m_pLogging(&logging) {}

    /// Starts a thread that visits the logger, unless one does or is about to. A visit waits while a record is open.
    static void startVisit(const std::shared_ptr<LogWatchLink>& link);

    /// Returns the logger, which then exists until leave; null if it is destroyed.
    KestLogging* enter();
    void leave();

    /// Lets no further thread enter, and waits for the end of a visit.
    void cut() noexcept;

  private:
    // The caller holds the lock. A visit that began before a fork has no thread in the child.
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
