// Finished lines, and which thread writes them.
//
// As long as no two threads have met at the record lock, each thread writes its line while it holds that lock. From
// then on it releases the record lock before it writes, so that other threads build their records in that time:
//
//   output lock           the thread
//   free, no line waits   writes its line
//   free, lines wait      adds its line to them, and writes all of them
//   taken                 adds its line to those that wait, and returns when a thread has written it
//
// So the lines of several threads are written in one call of the system, which costs little more than one line.
//
// A termination does not interrupt a thread that writes lines of others. A thread that is terminated while its line
// waits has lost nothing: another thread writes the line.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fork.h"
#include "platform/uninterrupted.h"
#include "text/log/logger_lock.h"
#include "text/log/open_record.h"

namespace KestSupport::internal {

/// Lines one after another, and the end of each. A line may contain line ends.
struct LineBatch {
    void clear() noexcept {
        empty(text);
        ends.clear();
    }

    std::string text;
    std::vector<std::size_t> ends;
};

class LineQueue {
  public:
    /// What a thread has to do with its line.
    struct Turn {
        enum class Step : std::uint8_t { nothing, writeHere, writeOwn, writeAll, await };

        /// Whether the record lock is released before finish.
        bool isShared() const noexcept { return step > Step::writeHere; }

        Step step = Step::nothing;
        std::uint64_t number = 0;  // of a line that waits; writeOwn: the index of the line
    };

    // The caller of these functions holds the record lock.

    /// Adds the line that Build appends to a string, as long as no two threads have met.
    template <typename Build>
    Turn addAlone(const Build& build) {
        buildOwn(build);
        return {Turn::Step::writeHere};
    }
    /// The same after they have met.
    template <typename Build>
    Turn add(const Build& build) {
        using enum Turn::Step;
        dropLinesOfParent();
        const bool isFree = tryToLead();
        try {
            if (!isFree || m_hasWaiting.load(std::memory_order_relaxed))
                return {isFree ? writeAll : await, append(build)};
            buildOwn(build);
        } catch (...) {
            if (isFree) m_outputLock.unlock();
            throw;
        }
        const std::uint8_t own = m_line;
        m_line ^= 1;
        return {writeOwn, own};
    }

    /// Called after add. Returns when the line is written by a call of Write, which takes the text and the ends of the
    /// lines. A shared turn is finished without the record lock, unless that is the lock of an outer record.
    template <typename Write>
    void finish(const Turn& turn, const Write& write) {
        using enum Turn::Step;
        if (turn.step == nothing) return;
        if (turn.step == writeHere) return writeLine(m_lines[m_line], write);
        if (turn.step == await && !awaitOutput(turn.number)) return;
        const UnlockAtEnd unlock{m_outputLock};
        lead();
        if (turn.step == writeOwn) return writeLine(m_lines[turn.number], write);
        if (m_written.load(std::memory_order_relaxed) >= turn.number) return;
        const platform::Uninterrupted whole;
        std::uint64_t last = 0;
        const LineBatch& batch = take(last);
        write(std::string_view(batch.text), std::span(batch.ends));
        m_written.store(last, std::memory_order_release);
    }

    /// Held by the thread that writes, if it does not hold the record lock. Taken after the record lock: its owner does
    /// not wait for the record lock.
    LoggerLock& outputLock() noexcept { return m_outputLock; }

  private:
    struct UnlockAtEnd {
        LoggerLock& lock;
        ~UnlockAtEnd() { lock.unlock(); }
    };

    template <typename Build>
    void buildOwn(const Build& build) {
        empty(m_lines[m_line]);
        build(m_lines[m_line]);
    }

    // The line is built where it waits, so the memory of the own lines stays with the processor of the leader.
    template <typename Build>
    std::uint64_t append(const Build& build) {
        const std::lock_guard guard(m_waitingLock);
        LineBatch& waiting = m_batches[m_waiting];
        waiting.ends.reserve(waiting.ends.size() + 1);
        const std::size_t before = waiting.text.size();
        m_forks = platform::forkCount();
        m_hasWaiting.store(true, std::memory_order_relaxed);
        try {
            build(waiting.text);
        } catch (...) {
            waiting.text.resize(before);
            throw;
        }
        waiting.ends.push_back(waiting.text.size());
        return ++m_added;
    }

    bool tryToLead() noexcept;
    void lead() noexcept;
    void dropLinesOfParent() noexcept;
    bool awaitOutput(std::uint64_t number);
    const LineBatch& take(std::uint64_t& last) noexcept;

    template <typename Write>
    static void writeLine(const std::string& line, const Write& write) {
        const std::size_t end = line.size();
        write(std::string_view(line), std::span(&end, 1));
    }

    // Texts are not swapped: in a child that was forked at that moment, both would have the same memory. An index
    // changes in one step.

    // What changes with a line that waits is on two lines of the cache, which each thread that adds one must fetch.
    alignas(64) platform::UninterruptedMutex m_waitingLock;  // taken after m_outputLock
    std::uint32_t m_forks = 0;              // the process of the waiting lines; guarded by m_waitingLock
    std::uint64_t m_added = 0;              // the number of the last line that waited; guarded by m_waitingLock
    std::atomic<bool> m_hasWaiting{false};  // changed under m_waitingLock
    std::uint8_t m_waiting = 0;             // index of the batch that waits; guarded by m_waitingLock
    LineBatch m_batches[2];                 // the other one is used under m_outputLock

    // Polled by the threads that wait.
    alignas(64) std::atomic<std::uint64_t> m_written{0};  // the number of the last line that waited and is written

    // While a thread leads, it writes the lines of all others too, and its processor keeps what the system needs for
    // that. The others wait a moment for it before they try to take the output lock: two threads write a line in 510
    // instead of 570 ns (bench/logging).
    alignas(64) std::atomic<bool> m_hasLeader{false};
    std::atomic<std::uint32_t> m_leader{0};  // the thread that wrote last
    std::atomic<std::uint32_t> m_sleeps{0};  // successive waits that were long
    LoggerLock m_outputLock;

    // Guarded by the record lock.
    alignas(64) std::uint8_t m_line = 0;  // index of the line that is being built
    std::string m_lines[2];  // the other one is used under m_outputLock; members, so that their memory is used again
};

}  // namespace KestSupport::internal
