// A log record in one expression, for the registered logger (logging.h).
//
//   KestLogRecord(5, "Disk") << "free: " << bytes;
//
// Above the level no text is made, but the values are computed. This form does not compute them either:
//
//   if (KestLogRecord record{5, "Disk"}) record << "free: " << countFreeBytes();
//
// The line, the levels and the targets are those of logging.h. The differences from a record between setloglevel and
// endrecord:
//
//                              setloglevel ... endrecord            KestLogRecord
//   level and module           belong to the logger; another        belong to the record; no record is lost
//                              thread's endrecord may discard them
//   while values are computed  other threads wait to log             no lock is taken
//   a value throws             the record stays open                 the record is dropped
//   a record inside a record   ends the outer one                    each is a line of its own, the inner one first
//   a thread ends inside it    another thread writes the text        nothing is written
//
// Both kinds may be used together. The end of a KestLogRecord waits while another thread has an open record of the
// other kind. Inside an open record of its own thread it writes its line at once, before that of the open record, and
// does not change the open record. It also leaves a level alone that setloglevel has chosen for the next record.
//
// Threads: any number of threads may write records; one thread at a time uses an object. Lifetime: the logger outlives
// the record. The text is stored in the object, up to some length, so a short record allocates nothing. A terminated
// thread leaves no lock taken; memory of a long record is not freed.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <ratio>
#include <string>
#include <string_view>
#include <type_traits>
#ifdef __GLIBCXX__
// Clocks and durations without the calendars and streams of <chrono>, which take 60 ms to compile.
#include <shared_mutex>
#else
#include <chrono>
#endif

#include "support/export.h"
#include "support/logging.h"
#include "support/strings.h"

namespace KestSupport {

/// One record. Its destructor writes the line.
class KEST_SUPPORT_EXPORT KestLogRecord {
  public:
    /// Begins a record of the level, 0 (always shown) to 9. An empty module is "Global". The level is tested here and
    /// not again: with that of the logger and, if the record has a module and is not of level 0, with that of the
    /// module.
    explicit KestLogRecord(int level, std::string_view module = {})
        : m_pLogging(isShown(level) ? begin(level, module) : nullptr) {}
    KestLogRecord(const KestLogRecord&) = delete;
    KestLogRecord& operator=(const KestLogRecord&) = delete;

    /// Writes the line, if the record has text. Drops the record if an exception destroys the object.
    ~KestLogRecord() {
        if (m_pLogging != nullptr) finish();
    }

    /// Whether the record will be written.
    explicit operator bool() const noexcept { return m_pLogging != nullptr; }

    /// Appends the text of a value:
    ///
    ///   text, numbers, pointers   as operator<< of KestLogging; text includes std::string_view, and each other type
    ///                             that converts to it; each integer is decimal, except bool and char
    ///   std::chrono::duration     the number and "ns", "us", "ms", "s", "min", "h" or "d"; of another unit, the
    ///                             seconds
    ///   another type              what its operator<< for std::ostream writes, with the classic locale. So
    ///                             std::filesystem::path has quotes
    ///
    /// Manipulators such as std::setw have no effect on other values. If the value throws, the record is dropped and
    /// the exception continues. Throws std::bad_alloc.
    template <typename Value>
    KestLogRecord& operator<<(const Value& value) {
        static_assert(!std::is_function_v<Value>, "A KestLogRecord takes no manipulator, and ends by itself");
        if (m_pLogging == nullptr) return *this;
        try {
            appendValue(value);
        } catch (...) {
            drop();
            throw;
        }
        return *this;
    }

  private:
    template <typename Value>
    void appendValue(const Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            append(value ? "true" : "false");
        } else if constexpr (std::is_same_v<Value, char>) {
            append(std::string_view(&value, 1));
        } else if constexpr (std::is_integral_v<Value> && std::is_signed_v<Value>) {
            appendNumber(static_cast<long long>(value));
        } else if constexpr (std::is_integral_v<Value>) {
            appendNumber(static_cast<unsigned long long>(value));
        } else if constexpr (std::is_floating_point_v<Value>) {
            appendNumber(static_cast<double>(value));
        } else if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
            append(value);
        } else if constexpr (std::is_base_of_v<string_ci, Value>) {
            append(std::string_view(value.data(), value.size()));
        } else if constexpr (std::is_base_of_v<wstring16, Value>) {
            appendWide(value);
        } else if constexpr (std::is_base_of_v<wstring16_ci, Value>) {
            appendWide(wstring16(value.c_str()));
        } else if constexpr (std::is_pointer_v<Value> && std::is_convertible_v<Value, const void*>) {
            appendPointer(value);
        } else {
            appendOther(value);
        }
    }

    template <typename Count, typename Period>
    void appendOther(const std::chrono::duration<Count, Period>& value) {
        constexpr std::string_view unit = unitOf<typename Period::type>();
        if constexpr (unit.empty()) {
            appendNumber(std::chrono::duration<double>(value).count());
            append("s");
        } else {
            appendValue(value.count());
            append(unit);
        }
    }

    template <typename Value>
    void appendOther(const Value& value) {
        appendStreamed([](std::ostream& stream, const void* object) { stream << *static_cast<const Value*>(object); },
                       std::addressof(value));
    }

    template <typename Period>
    static constexpr std::string_view unitOf() {
        if (std::is_same_v<Period, std::nano>) return "ns";
        if (std::is_same_v<Period, std::micro>) return "us";
        if (std::is_same_v<Period, std::milli>) return "ms";
        if (std::is_same_v<Period, std::ratio<1>>) return "s";
        if (std::is_same_v<Period, std::ratio<60>>) return "min";
        if (std::is_same_v<Period, std::ratio<3600>>) return "h";
        if (std::is_same_v<Period, std::ratio<86400>>) return "d";
        return {};
    }

    static bool isShown(int level) noexcept {
        const int shown = KestLogging::m_shownLevel.load(std::memory_order_acquire);
        return shown >= level && shown >= 0;
    }
    /// Returns the logger, or null if the record is not written.
    KestLogging* begin(int level, std::string_view module);
    void finish() noexcept;
    void write() noexcept;
    void drop() noexcept;
    void freeLarge() noexcept;
    char* room(std::size_t more);
    void append(std::string_view text);
    void appendNumber(long long value);
    void appendNumber(unsigned long long value);
    void appendNumber(double value);
    void appendPointer(const void* value);
    void appendWide(const wstring16& value);
    void appendStreamed(void (*insert)(std::ostream&, const void*), const void* value);

    static constexpr std::size_t kSmall = 256;

    // Null if the record is not written; then the other members are not used. No member is initialised before it, so
    // the compiler knows in the caller that it is null above the level: 0.3 instead of 0.5 ns (bench/logging).
    KestLogging* m_pLogging;
    int m_level;
    int m_exceptions;  // that were under way when the record began
    std::size_t m_moduleSize;
    std::size_t m_size;
    std::size_t m_capacity;
    char* m_text;  // the module, then the text: m_small, or memory from new[] when they do not fit
    char m_small[kSmall];
};

}  // namespace KestSupport
