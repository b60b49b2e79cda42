// The process-wide logger. A program constructs one KestLogging and registers it with setInstance. It writes a record
// in three steps: choose a level, insert values, end the record. The output is a file, standard output, or both. A
// KestLogRecord (log_record.h) does the three steps in one expression, and suits most programs better.
//
//   KestLogging              the logger: targets, levels, insertion
//   KestLogFileOptions       a log file with a fixed name, which is appended to and rotated
//   setloglevel, endrecord   the manipulators that begin and end a record
//
// Write each record like this, so that a record above the level costs two loads:
//
//   if (KestLogging::isAccessAllowed() && KestLogging::getInstance().getLogLevel() >= 5)
//       KestLogging::getInstance() << setloglevel("Disk", 5) << "free: " << bytes << endrecord;
//
// Levels run from 0 (always written while logging is on, without prefix) to 9 (most detailed); -1 switches logging off.
// A line is
//
//   20261118_13:05:07 5 Disk       [4711] free: 1024
//
// with local time, level, module ("Global" for none) and thread id. When endrecord returns, the system has taken the
// record, or the output has failed.
//
// Threads: any number of threads may log. The first insertion makes a thread the owner of the logger until its
// endrecord; insertions of other threads wait. Level and module of a record belong to the logger, not to the thread:
// below level 9, if another thread ends a record between a thread's setloglevel and its first insertion, the choice is
// lost and the whole record is skipped. A record never contains text of another record. It is complete, except in these
// cases:
//
//   a thread ends inside its record   the next thread that logs writes its text, under the id of the ended thread
//   a thread is terminated in         a part of the line, or nothing
//   endrecord
//   the output fails, for example     a part of the line, or nothing; the next record begins on a new line
//   on a full disk
//
// Exceptions: if a value throws, its record stays open and the thread still owns the logger. The next setloglevel of
// the thread drops that record and begins a new one; an endrecord writes the text until the exception. The logger
// notices an exception in an expression that contains the setloglevel of the record, and an exception of an insertion.
//
// Lifetime: the logger outlives every use; its destructor unregisters it. Failures of the output are not reported,
// except those of a file with KestLogFileOptions, and each record tries again. So do not use it for text that needs an
// acknowledgement. Signals lose no record.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
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
class KestLogRecord;

namespace internal {
struct LoggingState;
struct ShownLevel;
}  // namespace internal

/// A log file with a fixed name, to which every run appends, and the form of its lines. docs/formats/log_files.md
/// describes them.
struct KestLogFileOptions {
    /// The whole name of the file. A symbolic link is not followed. One process at a time rotates the file.
    std::string name = {};

    /// The file is rotated before a record that would make it larger than this number of bytes; 0: never. A record that
    /// is larger has a file of its own.
    std::uint64_t maxBytes = 0;
    /// The file is rotated before the first record of a local day.
    bool daily = false;
    /// The number of old files: name.1 is the newest, name.2 the next. With 0, rotation empties the file.
    int keep = 5;

    /// Adds milliseconds to the time in the prefix.
    bool milliseconds = false;
    /// Adds the offset of the local time from UTC to the time in the prefix.
    bool zoneOffset = false;
    /// Replaces each control character of a record by \n, \r, \t or \xHH, so a record is one line. Without it a record
    /// ends at its first NUL, and line breaks are written as they are.
    bool escape = false;
};

/// The result of setloglevel. Its insertion into a logger calls fn with the logger, module and level. If an exception
/// destroys it, it marks the open record of the thread as one to drop.
class KEST_SUPPORT_EXPORT KestSetLogLevelManipulator {
  public:
    /// What the insertion calls.
    using Function = KestLogging& (*)(KestLogging&, const std::string& module, int level);

    /// For a record of the level, and optionally of a module.
    KestSetLogLevelManipulator(Function function, int recordLevel) : fn(function), level(recordLevel) {}
    KestSetLogLevelManipulator(Function function, const std::string& recordModule, int recordLevel)
        : fn(function), module(recordModule), level(recordLevel) {}
    KestSetLogLevelManipulator(const KestSetLogLevelManipulator&) = default;
    KestSetLogLevelManipulator& operator=(const KestSetLogLevelManipulator&) = default;
    ~KestSetLogLevelManipulator() {
        // A destructor may write a whole record during an exception. That record is not dropped: its first insertion
        // and its endrecord remove the mark.
        if (std::uncaught_exceptions() > 0) leaveRecord();
    }

    Function fn;         ///< called by the insertion
    std::string module;  ///< empty for none
    int level;           ///< the level of the record

  private:
    static void leaveRecord() noexcept;
};

/// The logger of a process. A program constructs one and registers it with setInstance.
class KEST_SUPPORT_EXPORT KestLogging : protected KestDependent {
  public:
    /// Bits of a target.
    static constexpr int fileTarget = 1;
    static constexpr int standardOutputTarget = 2;

    /// Target standard output, level -1 (off), name "log".
    KestLogging();

    /// `target` is a set of the bits above and `level` is -1 to 9; neither is checked. With the file bit, opens the log
    /// file: its name is `name` up to the last dot, a number from rand() and ".log". The file is created or emptied.
    /// Standard error shows the attempt, and a failure with its errno. After a failure, records for the file are
    /// dropped.
    ///
    /// A program that does not seed rand() gets the same number in each run, so each run empties the log of the run
    /// before. To keep it, seed first:
    ///
    ///   std::random_device source;
    ///   std::srand(source());
    ///
    /// The last dot may be in a folder's name, and then cuts the path: "/srv/app.d/log" gives "/srv/app" and the
    /// number. If the name is a symbolic link, or a FIFO that no process reads, the opening fails (ELOOP, 40, and
    /// ENXIO, 6, on Linux).
    KestLogging(const std::string& name, int target, int level);

    /// Writes to a file that is appended to and rotated, instead of a new one in each run. With the file bit, opens the
    /// file or creates it. The form of the lines is that of all targets. Each failure to open or rename a file is
    /// reported once, on standard error and as a record of level 1. Records then continue in the present file; while
    /// there is none, a record tries to open it once in a second. Records that the file has not taken are counted, and
    /// the next record that it takes is preceded by one of level 1 with their number.
    KestLogging(int target, int level, const KestLogFileOptions& options);

    KestLogging(const KestLogging&) = delete;
    KestLogging& operator=(const KestLogging&) = delete;

    /// Unregisters the logger and closes its file. Waits for its watchdog thread. No other thread may have an open
    /// record; an open record of this thread is dropped.
    virtual ~KestLogging();

    /// Registers the process's logger, which must outlive all uses of getInstance.
    static void setInstance(KestLogging& logging) noexcept;

    /// Returns the registered logger. Call it only if isAccessAllowed returns true: otherwise there may be none.
    static KestLogging& getInstance() noexcept { return *m_pInstance.load(std::memory_order_acquire); }

    /// Whether a logger is registered and its level is 0 or more.
    static bool isAccessAllowed() noexcept { return m_shownLevel.load(std::memory_order_acquire) >= 0; }

    /// Returns the global level.
    int getLogLevel() const noexcept { return m_level.load(std::memory_order_relaxed); }

    /// Sets the global level, 0 to 9. Other values, -1 included, are ignored.
    void setLogLevel(int level) noexcept;

    /// Returns the module's level, or the global level if the module has none.
    int getLogLevel(const std::string& module) const;

    /// Sets the module's level, -1 to 9; other values are ignored. It can suppress records of the module up to the
    /// global level. Records above the global level are never written.
    void setLogLevel(const std::string& module, int level);

    /// Chooses level and module of the next record; setloglevel calls it. Ignores levels below -1. Waits while another
    /// thread's record is open.
    void setCurrentLevel(const std::string& module, int level);
    void setCurrentLevel(int level);

    /// Returns the set of target bits.
    int getTarget() const noexcept { return m_target.load(std::memory_order_relaxed); }

    /// Changes the target. Closes the log file if its bit is removed; opens a new file, with a new number, if it is
    /// added.
    void setTarget(int target);

    /// Opens a file with a fixed name again, for example after another program has renamed it. Every record that begins
    /// to be written after the call is in the new file. While a record of another thread is open, takes up to 100 ms,
    /// and the file is opened before the next record. Has no effect on a file without a fixed name. May throw
    /// std::bad_alloc.
    void reopen();

    /// Sets whether lines have the prefix of time, level, module and thread; initially true.
    void enableRecordData(bool enable) noexcept;

    /// Appends the value's text to the record if the record's level is within the global level. The first insertion
    /// waits while another thread's record is open. There is no separator between two values.
    ///
    /// bool is "true" or "false"; integers are decimal; floating point has six decimals and a point in every locale; a
    /// pointer is 16 upper-case hexadecimal digits on a 64-bit system. A const char* is not null. Wide text up to its
    /// first zero unit is narrowed through the locale of KestLocaleFactory::getDefaultLocale(true).
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
    /// Called when the watchdog fires. Starts a thread that calls timerElapsed, unless there is one.
    void handleNotification(KestCollaborator& collaborator, const KestNotification& notification) override;

    /// Opens the log file if the target has its bit. Called by the constructors and by setTarget, without a lock.
    virtual void startLogging();

    /// Closes the log file if the target has its bit and `newTarget` has not. Called by setTarget and, with 0, by the
    /// destructor, without a lock.
    virtual void stopLogging(int newTarget);

    /// Opens the log file, unless one is open.
    void openLogFile();

    /// Returns whether the record accepts an insertion. If so, the calling thread owns the logger until endrecord.
    bool getLogAccess();

    /// See the free function. Has no effect if another thread's record is open for the next 100 ms.
    void endrecord();

    /// Starts the watchdog of 60 seconds if it is stopped.
    void resetTimer();
    /// Stops the watchdog.
    void cancelTimer();

    /// Writes the record of a thread that has ended inside it. Logs the call at level 9.
    void timerElapsed();

  private:
    friend class KestLoggingEventTimerThread;
    friend class KestLogRecord;
    friend struct internal::LoggingState;
    friend struct internal::ShownLevel;

    template <typename Append>
    KestLogging& insert(std::size_t most, Append append);
    KestLogging& insertText(std::string_view value);
    template <typename Integer>
    KestLogging& insertDecimal(Integer value);
    void writeAbandonedRecord();
    void dropRecord() noexcept;
    bool hasRecordData() const noexcept { return m_recordData.load(std::memory_order_relaxed); }

    static void publishLevel() noexcept;

    static std::atomic<KestLogging*> m_pInstance;
    // The level of the registered logger, or -1 without one. A caller tests a record above the level by this variable
    // alone: 0.3 instead of 0.5 ns (bench/logging).
    static std::atomic<int> m_shownLevel;

    // Read by every thread, without a lock.
    std::atomic<int> m_target;
    std::atomic<int> m_level;
    std::atomic<bool> m_recordData{true};

    std::unique_ptr<internal::LoggingState> m_pState;
};

/// Ends the record of the calling thread: writes it if its level allows that, and releases the logger to other threads.
KEST_SUPPORT_EXPORT KestLogging& endrecord(KestLogging& logging);

/// Begins a record of the given level, 0 (always shown) to 9, and optionally of a module.
KEST_SUPPORT_EXPORT KestSetLogLevelManipulator setloglevel(int level);
KEST_SUPPORT_EXPORT KestSetLogLevelManipulator setloglevel(const std::string& module, int level);

/// Chooses the level and the module of the next record.
inline KestLogging& operator<<(KestLogging& logging, const KestSetLogLevelManipulator& manipulator) {
    manipulator.fn(logging, manipulator.module, manipulator.level);
    return logging;
}

}  // namespace KestSupport
