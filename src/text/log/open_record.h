// The record that a logger is building, and what a thread knows of its own records.
//
// The states of a record. Its builder is the thread that has inserted into it.
//
//   state      builder       accepted  lock of the logger   next state
//   idle       none          no        free                 setloglevel: chosen; an accepted insertion: open
//   chosen     none          no        free                 setloglevel: chosen; an accepted insertion: open;
//                                                           endrecord of any thread: idle
//   open       a thread      yes       held by the builder  endrecord: idle; setloglevel or setLogLevel of the
//                                                           builder: asked
//   asked      a thread      no        held by the builder  an accepted insertion: open; endrecord: idle
//   abandoned  ended thread  any       free                 the next thread that takes the lock: idle
//
// An insertion is accepted when the record's level is within the global level. A refused one does not change the
// record, but the thread refuses the rest of its own record. So a level that changes inside a record cannot cut the
// record, unless the builder itself changes the level.
//
// The next thread writes an abandoned record under the id of the ended thread. So texts change only in steps that a
// termination does not interrupt.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/fork.h"
#include "platform/uninterrupted.h"

namespace KestSupport::internal {

// A child that is forked while another thread grows or empties a text uses the text again. So both swap it with another
// string, which releases the memory. The functions of a string release its memory while it still has the address.

/// Reserves memory for more characters, before they are appended.
inline void makeRoom(std::string& text, std::size_t more) {
    if (text.capacity() - text.size() >= more) return;
    const platform::Uninterrupted whole;
    std::string larger;
    larger.reserve(std::max(text.size() + more, 2 * text.capacity()));
    larger.append(text);
    larger.swap(text);
}

/// Empties a text that serves many records. Keeps its memory, unless that is much.
inline void empty(std::string& text) noexcept {
    constexpr std::size_t kKeptCapacity = 65536;
    if (text.capacity() > kKeptCapacity) {
        const platform::Uninterrupted whole;
        std::string().swap(text);
    }
    text.clear();
}

/// What a thread knows of its own records. Its number is never used again, unlike the id that the system gave it.
struct LoggingThread {
    std::uint64_t number = 0;
    std::uint64_t refusedBy = 0;  // serial of the logger that refused an insertion into this thread's record
    bool hasLeftRecord = false;   // an exception has left the expression that began this thread's record
};

/// Guarded by the logger's lock, except for the builder: any thread may compare it with itself, since only the builder
/// writes its own number there, while it holds the lock.
class alignas(64) OpenRecord {
  public:
    static constexpr int kUnchosenLevel = 9;
    static constexpr std::int64_t kNotOpen = -1;

    bool isBuiltBy(const LoggingThread& thread) const noexcept {
        return m_builder.load(std::memory_order_relaxed) == thread.number;
    }
    /// Whether any thread has inserted into the record. The caller holds the lock.
    bool hasBuilder() const noexcept { return m_builder.load(std::memory_order_relaxed) != kNoThread; }
    /// The system's id of the builder.
    std::uint32_t builderId() const noexcept { return m_builderId; }
    /// Whether the builder is a thread of the process that forked this one. The parent writes such a record.
    bool isOfParent() const noexcept { return hasBuilder() && m_forks != platform::forkCount(); }

    /// The calendar second in which the record was opened; kNotOpen for none. The watchdog's (log_watchdog.h).
    std::atomic<std::int64_t>& openSince() noexcept { return m_openSince; }

    int level() const noexcept { return m_level; }
    const std::string& module() const noexcept { return m_module; }
    const std::string& text() const noexcept { return m_text; }
    bool isAccepted() const noexcept { return m_accepted; }

    void choose(const std::string& module, int level) {
        if (!m_module.empty()) m_module.clear();
        if (!module.empty()) {
            makeRoom(m_module, module.size());
            m_module += module;
        }
        m_level = level;
    }
    /// Makes the thread the builder, and the record open.
    void accept(const LoggingThread& thread, std::uint32_t threadId) noexcept {
        m_builderId = threadId;
        m_forks = platform::forkCount();
        m_builder.store(thread.number, std::memory_order_relaxed);
        m_accepted = true;
    }
    /// Makes an open record an asked one.
    void reconsider() noexcept { m_accepted = false; }

    /// The text, with room for more characters.
    std::string& textWithRoom(std::size_t more) {
        makeRoom(m_text, more);
        return m_text;
    }

    /// Makes the record idle.
    void reset() noexcept {
        empty(m_text);
        if (!m_module.empty()) m_module.clear();
        m_level = kUnchosenLevel;
        m_accepted = false;
        m_builder.store(kNoThread, std::memory_order_relaxed);
    }

  private:
    static constexpr std::uint64_t kNoThread = 0;

    // All that each record changes is on one line of the cache.
    std::atomic<std::uint64_t> m_builder{kNoThread};
    std::atomic<std::int64_t> m_openSince{kNotOpen};
    std::string m_text;
    std::uint32_t m_builderId = 0;
    std::uint32_t m_forks = 0;  // the builder's process
    int m_level = kUnchosenLevel;
    bool m_accepted = false;

    std::string m_module;  // empty for none
};

}  // namespace KestSupport::internal
