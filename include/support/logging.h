// The process-wide logger. A program makes one KestLogging, registers it with setInstance and from then on writes
// records by insertion: choose a level, insert values, end the record. Records go to a file, to standard output, or to
// both.
//
//   KestLogging              the logger: targets, levels, insertion
//   setloglevel, endrecord   the manipulators that begin and end a record
//
// Every record is written in this way, so that one above the level costs two loads:
//
//   if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 5)
//       KestLogging::getInstance() << setloglevel("Disk", 5) << "free: " << bytes << endrecord;
//
// Levels run from 0 (always written while logging is on, without prefix) to 9 (most detailed); -1 switches logging off.
// A line is
//
//   20261118_13:05:07 5 Disk       [4711] free: 1024
//
// with local time, level, module ("Global" for none) and thread id. The system has each record when endrecord returns,
// unless it refused it.
//
// Threads: any number may log. A thread that has inserted into a record owns the logger until its endrecord; others
// that insert wait. Level and module of a record belong to the logger, not to the thread: below level 9, another thread
// that ends a record between a thread's setloglevel and its first insertion takes the choice away, and that record is
// then skipped as a whole. A record never holds another one's text, and it is written in part in two cases only. A
// thread that ends inside its record leaves a record of what it had inserted, which the next thread that logs writes
// under the id of the ended one; a thread that is terminated while endrecord writes may leave nothing or a part. An
// output that fails, such as a full disk, may leave a part of a line; the next record begins on a line of its own.
//
// Exceptions: a value that throws leaves its record open, and the thread keeps the logger. Its next setloglevel drops
// that record and begins one of its own; an endrecord writes what was inserted. The logger notices an exception in an
// expression that holds the setloglevel of the record, and one that an insertion throws.
//
// Lifetime: the logger outlives every use; its destructor unregisters it. Not meant for text that must be acknowledged:
// output failures are not reported, and the next record is tried again. Signals lose no record.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "support/export.h"
#include "support/observer.h"
#include "support/strings.h"

namespace KestSupport {

class KestLogging;
class KestLoggingEventTimerThread;

namespace internal {
struct LoggingState;
}  // namespace internal

/// What setloglevel returns: inserted into a logger, it calls fn with the logger, module and level. Destroyed by an
/// exception, it marks the record that the thread has begun as one to drop.
class KEST_SUPPORT_EXPORT KestSetLogLevelManipulator {
  public:
    using Function = KestLogging& (*)(KestLogging&, const std::string& module, int level);

    KestSetLogLevelManipulator(Function function, int recordLevel) : fn(function), level(recordLevel) {}
    KestSetLogLevelManipulator(Function function, const std::string& recordModule, int recordLevel)
        : fn(function), module(recordModule), level(recordLevel) {}
    KestSetLogLevelManipulator(const KestSetLogLevelManipulator&) = default;
    KestSetLogLevelManipulator& operator=(const KestSetLogLevelManipulator&) = default;
    ~KestSetLogLevelManipulator() {
        // Records that are written while an exception is under way are not marked: a first insertion after this, and
        // endrecord, remove the mark.
        if (std::uncaught_exceptions() > 0) leaveRecord();
    }

    Function fn;
    std::string module;
    int level;

  private:
    static void leaveRecord() noexcept;
};

class KEST_SUPPORT_EXPORT KestLogging : protected KestDependent {
  public:
    /// Bits of a target.
    static constexpr int fileTarget = 1;
    static constexpr int standardOutputTarget = 2;

    /// Target standard output, level -1 (off), name "log".
    KestLogging();

    /// `target` is a set of the bits above and `level` -1 to 9; neither is checked. With the file bit the log file is
    /// opened here: `name` up to its last dot, a number from rand() and ".log", created or emptied; the attempt, and a
    /// failure with its errno, is reported on standard error, after which records meant for the file are dropped.
    ///
    /// A program that does not seed rand() gets the same number in each run, so each run empties the log of the run
    /// before. To keep it, seed first:
    ///
    ///   std::random_device source;
    ///   std::srand(source());
    ///
    /// The last dot may be one of a folder's name, which then cuts the path: "/srv/app.d/log" gives "/srv/app" and the
    /// number. A symbolic link at the file's name is not followed, but is a failure (ELOOP, 40 on Linux).
    KestLogging(const std::string& name, int target, int level);

    KestLogging(const KestLogging&) = delete;
    KestLogging& operator=(const KestLogging&) = delete;

    /// Unregisters the logger and closes its file. Waits for a watchdog thread that is using it. No record may be open
    /// in another thread; one of this thread is dropped.
    virtual ~KestLogging();

    /// Registers the process's logger, which must outlive all use of getInstance.
    static void setInstance(KestLogging& logging) noexcept;

    /// The registered logger. Test isAccessAllowed first: there may be none.
    static KestLogging& getInstance() noexcept { return *m_pInstance.load(std::memory_order_acquire); }

    /// Whether a logger is registered and its level is 0 or more.
    static bool isAccessAllowed() noexcept {
        const KestLogging* const logging = m_pInstance.load(std::memory_order_acquire);
        return logging != nullptr && logging->getLogLevel() >= 0;
    }

    /// The global level.
    int getLogLevel() const noexcept { return m_level.load(std::memory_order_relaxed); }

    /// Sets the global level, 0 to 9. Other values, -1 included, are ignored.
    void setLogLevel(int level) noexcept;

    /// The module's level, or the global one when the module has none of its own.
    int getLogLevel(const std::string& module) const;

    /// Gives the module a level of its own, -1 to 9; other values are ignored. It can lower a module's output below the
    /// global level; what is above the global level is never written.
    void setLogLevel(const std::string& module, int level);

    /// Level and module of the record that comes next; what setloglevel calls. Below -1 nothing happens. Waits while
    /// another thread's record is open.
    void setCurrentLevel(const std::string& module, int level);
    void setCurrentLevel(int level);

    int getTarget() const noexcept { return m_target.load(std::memory_order_relaxed); }

    /// Changes the target: closes the log file when its bit goes, opens a new one, with a new number, when it comes.
    void setTarget(int target);

    /// Whether lines carry the prefix of time, level, module and thread (they do by default).
    void enableRecordData(bool enable) noexcept;

    /// Insertion: appends the value's text to the record, when the record's level is within the global level. The first
    /// insertion waits while another thread's record is open. Nothing separates two values.
    ///
    /// bool is "true" or "false"; integers are decimal; floating point has six decimals and a point in every locale; a
    /// pointer is 16 upper-case hexadecimal digits on a 64-bit system. A const char* is not null. Wide text is narrowed
    /// through the locale of KestLocaleFactory::getDefaultLocale(true), up to its first zero unit.
    KestLogging& operator<<(bool value);
    KestLogging& operator<<(char value);
    KestLogging& operator<<(short value);
    KestLogging& operator<<(unsigned short value);
    KestLogging& operator<<(int value);
    KestLogging& operator<<(unsigned int value);
    KestLogging& operator<<(long value);
    KestLogging& operator<<(unsigned long value);
    KestLogging& operator<<(const long long& value);
    KestLogging& operator<<(const unsigned long long& value);
    KestLogging& operator<<(float value);
    KestLogging& operator<<(double value);
    KestLogging& operator<<(const void* value);
    KestLogging& operator<<(const char* value);
    KestLogging& operator<<(const std::string& value);
    KestLogging& operator<<(const string_ci& value);
    KestLogging& operator<<(const wstring16& value);
    KestLogging& operator<<(const wstring16_ci& value);

    /// Calls the manipulator and returns what it returns.
    KestLogging& operator<<(KestLogging& (*manipulator)(KestLogging&)) { return manipulator(*this); }

  protected:
    /// The watchdog has fired: a thread of its own calls timerElapsed, unless one is still at it.
    void handleNotification(KestCollaborator& collaborator, const KestNotification& notification) override;

    /// Opens what the target needs. Called by the constructors and by setTarget, with no lock held.
    virtual void startLogging();

    /// Closes what `newTarget` no longer needs. Called by setTarget and, with 0, by the destructor, with no lock held.
    virtual void stopLogging(int newTarget);

    /// Opens the log file, unless one is open.
    void openLogFile();

    /// Whether the record takes an insertion. When it does, the calling thread owns the logger until endrecord.
    bool getLogAccess();

    /// See the free function. Without effect when another thread's record is open and stays so for 100 ms.
    void endrecord();

    /// Starts the 60 s watchdog if it is stopped; stops it.
    void resetTimer();
    void cancelTimer();

    /// Writes the record of a thread that has ended inside it, and logs its visit at level 9.
    void timerElapsed();

  private:
    friend KestLogging& endrecord(KestLogging& logging);
    friend class KestLoggingEventTimerThread;

    template <typename Append>
    KestLogging& insert(std::size_t most, Append append);
    KestLogging& insertText(std::string_view value);
    template <typename Integer>
    KestLogging& insertDecimal(Integer value);
    void writeRecord();
    void writeAbandonedRecord();
    bool buildLine();
    void dropRecord() noexcept;

    static std::atomic<KestLogging*> m_pInstance;

    // Read by every thread, without a lock.
    std::atomic<int> m_target;
    std::atomic<int> m_level;
    std::atomic<bool> m_recordData{true};

    std::unique_ptr<internal::LoggingState> m_pState;
};

// Declared after the class: GCC drops the import from a Windows library when the friend declaration comes second.
/// Ends the record of the calling thread: writes it when its level allows it, and releases the logger to other threads.
KEST_SUPPORT_EXPORT KestLogging& endrecord(KestLogging& logging);

/// Begins a record of the given level, 0 (always shown) to 9, and optionally of a module.
KEST_SUPPORT_EXPORT KestSetLogLevelManipulator setloglevel(int level);
KEST_SUPPORT_EXPORT KestSetLogLevelManipulator setloglevel(const std::string& module, int level);

inline KestLogging& operator<<(KestLogging& logging, const KestSetLogLevelManipulator& manipulator) {
    manipulator.fn(logging, manipulator.module, manipulator.level);
    return logging;
}

}  // namespace KestSupport
