// The record that a logger is building, and what a thread knows of the records that it builds itself.
//
// A record belongs to the thread that has inserted into it. When that thread has ended, terminated or not, the next
// thread that gets the logger's lock finds the record and writes it under the id of the thread that began it. So the
// texts grow by steps that no termination interrupts; within the memory that a text has, each of its changes leaves it
// usable.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>

#include "platform/fork.h"
#include "platform/uninterrupted.h"

namespace KestSupport::internal {

/// Makes room for more characters, before they are appended.
inline void makeRoom(std::string& text, std::size_t more) {
    if (text.capacity() - text.size() >= more) return;
    const platform::Uninterrupted whole;
    text.reserve(std::max(text.size() + more, 2 * text.capacity()));
}

/// Numbers of threads are never used twice, unlike the system's ids.
struct LoggingThread {
    std::uint64_t number = 0;
    std::uint64_t refusedBy = 0;  // serial of the logger that refused an insertion into this thread's record
    bool hasLeftRecord = false;   // an exception has left the expression that began this thread's record
};

/// Guarded by the logger's lock, but for the builder, which any thread may compare with itself: only the builder writes
/// its own number there, and only while it holds the lock.
///
/// Whether the record takes insertions is decided at its first one, so that a level that changes after it cannot write
/// the record in part; a choice of its own thread opens the question again.
class OpenRecord {
  public:
    static constexpr int kUnchosenLevel = 9;

    bool isBuiltBy(const LoggingThread& thread) const noexcept {
        return m_builder.load(std::memory_order_relaxed) == thread.number;
    }
    /// Whether any thread has inserted into it. The caller holds the lock.
    bool hasBuilder() const noexcept { return m_builder.load(std::memory_order_relaxed) != kNoThread; }
    std::uint32_t builderId() const noexcept { return m_builderId; }
    /// Whether its builder is a thread of the process that this one was forked from, which ends the record there.
    bool isOfParent() const noexcept { return hasBuilder() && m_forks != platform::forkCount(); }

    int level() const noexcept { return m_level; }
    const std::string& module() const noexcept { return m_module; }
    const std::string& text() const noexcept { return m_text; }
    bool isAccepted() const noexcept { return m_accepted; }

    void choose(const std::string& module, int level) {
        m_module.clear();
        if (!module.empty()) {
            makeRoom(m_module, module.size());
            m_module += module;
        }
        m_level = level;
    }
    /// From here on the record is the thread's, and takes its insertions.
    void accept(const LoggingThread& thread, std::uint32_t threadId) noexcept {
        m_builderId = threadId;
        m_forks = platform::forkCount();
        m_builder.store(thread.number, std::memory_order_relaxed);
        m_accepted = true;
    }
    void reconsider() noexcept { m_accepted = false; }

    /// The text, with room for more characters.
    std::string& textWithRoom(std::size_t more) {
        makeRoom(m_text, more);
        return m_text;
    }

    /// Back to a record that no thread has chosen or begun.
    void reset() noexcept {
        constexpr std::size_t kKeptCapacity = 65536;
        if (m_text.capacity() > kKeptCapacity) {
            const platform::Uninterrupted whole;
            std::string().swap(m_text);
        }
        m_text.clear();
        m_module.clear();
        m_level = kUnchosenLevel;
        m_accepted = false;
        m_builder.store(kNoThread, std::memory_order_relaxed);
    }

  private:
    static constexpr std::uint64_t kNoThread = 0;

    std::atomic<std::uint64_t> m_builder{kNoThread};
    std::uint32_t m_builderId = 0;  // the system's id of the builder
    std::uint32_t m_forks = 0;      // the builder's process
    bool m_accepted = false;
    int m_level = kUnchosenLevel;
    std::string m_module;  // empty for none
    std::string m_text;
};

}  // namespace KestSupport::internal
