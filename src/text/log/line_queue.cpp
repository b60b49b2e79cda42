#include "text/log/line_queue.h"

#include <mutex>

#include "platform/fork.h"
#include "platform/spin.h"
#include "text/log/open_record.h"

namespace KestSupport::internal {

LineQueue::Turn LineQueue::add() {
    using enum Turn::Step;
    if (!m_isShared) return {writeHere};
    dropLinesOfParent();
    const bool isFree = mayLead() && m_outputLock.try_lock();
    if (!isFree) m_hasLeader.store(true, std::memory_order_relaxed);
    if (isFree && !m_hasWaiting.load(std::memory_order_relaxed)) {
        const std::uint8_t own = m_line;
        m_line ^= 1;
        return {writeOwn, own};
    }
    try {
        return {isFree ? writeAll : await, append()};
    } catch (...) {
        if (isFree) m_outputLock.unlock();
        throw;
    }
}

std::uint64_t LineQueue::append() {
    const std::lock_guard guard(m_waitingLock);
    LineBatch& waiting = m_batches[m_waiting];
    waiting.ends.reserve(waiting.ends.size() + 1);
    makeRoom(waiting.text, line().size());
    m_forks = platform::forkCount();
    m_hasWaiting.store(true, std::memory_order_relaxed);
    waiting.text += line();
    waiting.ends.push_back(waiting.text.size());
    return ++m_added;
}

// In a forked child, the waiting lines are those of the parent's threads. The parent writes them.
void LineQueue::dropLinesOfParent() noexcept {
    if (!m_hasWaiting.load(std::memory_order_relaxed)) return;
    const std::lock_guard guard(m_waitingLock);
    if (m_forks == platform::forkCount()) return;
    m_batches[m_waiting].clear();
    m_hasWaiting.store(false, std::memory_order_relaxed);
}

bool LineQueue::mayLead() const noexcept {
    return !m_hasLeader.load(std::memory_order_relaxed) ||
           m_leader.load(std::memory_order_relaxed) == platform::threadKey();
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
        if (!m_outputLock.try_lock()) continue;
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
