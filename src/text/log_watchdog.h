// The watch over a record that stays open: a timer that fires when the record has been open for 60 seconds, and every
// 60 seconds after that, and the thread on which the logger then looks after it.
//
// A timer that was started and stopped for each record would cost more than all else of a short record but its output.
// So the timer is left to run out: opening a record notes the time, ending it clears the note, and when the timer
// expires it fires only if a record is open long enough; otherwise it waits for the rest, or rests itself.
#pragma once

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>

#include "support/threads.h"
#include "support/timers.h"

namespace KestSupport {

class KestLogging;

namespace internal {

/// Threads: records are opened and closed by the owner of the logger's lock; arm may be called by any thread, without
/// that lock, since starting a timer can fire others, whose dependents may log.
class LogWatchdog : public KestTimer {
  public:
    explicit LogWatchdog(std::time_t seconds) : m_seconds(seconds) {}
    ~LogWatchdog() override { stop(); }

    /// Starts the timer unless it runs. False when it cannot be started; the next record may try again.
    bool arm();

    /// Notes that a record is open from now on. False when the timer does not run: it has to be armed first.
    bool openRecord() noexcept;
    void closeRecord() noexcept { m_openSince.store(noRecord, std::memory_order_release); }
    bool isRecordOpen() const noexcept { return m_openSince.load(std::memory_order_relaxed) != noRecord; }

    /// The timer has expired.
    void set() override;

  private:
    static constexpr std::time_t noRecord = -1;

    bool startOnce(std::time_t seconds);

    const std::time_t m_seconds;  // that a record may stay open

    // Opening writes the first and reads the second, expiry writes the second and reads the first, all sequentially
    // consistent: so at least one of them sees the other.
    std::atomic<std::time_t> m_openSince{noRecord};
    std::atomic<bool> m_armed{false};
};

/// Connects a logger with the watchdog threads that use it, and outlives them all. The logger is destroyed when the
/// last one has let go of it.
class LogWatchLink {
  public:
    explicit LogWatchLink(KestLogging& logging) : m_pLogging(&logging) {}

    /// Starts a thread that visits the logger.
    static void startVisit(const std::shared_ptr<LogWatchLink>& link);

    /// The logger, if it still is there; it then stays until leave.
    KestLogging* enter();
    void leave();

    /// Keeps further threads away from the logger and returns when none uses it.
    void cut();

  private:
    std::mutex m_lock;
    std::condition_variable m_idle;
    KestLogging* m_pLogging;  // guarded by m_lock
    int m_visitors = 0;       // guarded by m_lock
};

}  // namespace internal

/// Lets the logger look after its open record once, and is gone.
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
