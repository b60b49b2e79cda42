#include "text/log/line_queue.h"

#include "platform/spin.h"
#include "platform/thread_bias.h"

namespace KestSupport::internal {

// In a forked child, the waiting lines are those of the parent's threads. The parent writes them.
void LineQueue::dropLinesOfParent() noexcept {
    if (!m_hasWaiting.load(std::memory_order_relaxed)) return;
    const std::lock_guard guard(m_waitingLock);
    if (m_forks == platform::forkCount()) return;
    m_batches[m_waiting].clear();
    m_hasWaiting.store(false, std::memory_order_relaxed);
}

// The two functions write only what changes, so that the line of the cache stays with all processors.
bool LineQueue::tryToLead() noexcept {
    const bool hasLeader = m_hasLeader.load(std::memory_order_relaxed);
    const bool mayLead = !hasLeader || m_leader.load(std::memory_order_relaxed) == platform::threadKey();
    if (mayLead && m_outputLock.tryLock()) return true;
    if (!hasLeader) m_hasLeader.store(true, std::memory_order_relaxed);
    return false;
}

void LineQueue::lead() noexcept {
    const std::uint32_t self = platform::threadKey();
    if (m_leader.load(std::memory_order_relaxed) != self) m_leader.store(self, std::memory_order_relaxed);
}

// Returns whether the thread has taken the output lock, and so has to write. A thread that slept at once would sleep
// long after its line is written. If the output is so slow that threads sleep, most of them do not spin for long.
bool LineQueue::awaitOutput(std::uint64_t number) {
    constexpr unsigned kPatience = 2000;  // nanoseconds: several lines
    constexpr int kRounds = 10;
    constexpr std::uint32_t kProbeEvery = 16;
    const std::uint32_t sleeps = m_sleeps.load(std::memory_order_relaxed);
    for (int rounds = sleeps % kProbeEvery == 0 ? kRounds : 1; rounds > 0; --rounds) {
        if (platform::spinUntilReached(m_written, number, kPatience)) {
            if (sleeps != 0) m_sleeps.store(0, std::memory_order_relaxed);
            return false;
        }
        if (!m_outputLock.tryLock()) continue;
        m_hasLeader.store(false, std::memory_order_relaxed);
        return true;
    }
    m_sleeps.store(sleeps + 1, std::memory_order_relaxed);
    m_outputLock.lock();
    return true;
}

// Returns the lines that waited, and the number of the last one.
const LineBatch& LineQueue::take(std::uint64_t& last) noexcept {
    const std::lock_guard guard(m_waitingLock);
    const std::uint8_t taken = m_waiting;
    m_batches[taken ^ 1].clear();  // they are written, or are lines of a parent process
    m_waiting ^= 1;
    m_hasWaiting.store(false, std::memory_order_relaxed);
    last = m_added;
    return m_batches[taken];
}

}  // namespace KestSupport::internal
