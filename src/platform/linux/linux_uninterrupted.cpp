#include "platform/uninterrupted.h"

#include "platform/linux/linux_wait_object.h"

namespace KestSupport::platform {
namespace {

// The word of an UninterruptedMutex: its state in the lowest bits, above them the number of forks of the process that
// it was taken in. A mutex that was taken in another process is free.
constexpr std::uint32_t kMutexTaken = 1;
constexpr std::uint32_t kMutexContended = 2;
constexpr std::uint32_t kStateBits = 3;

}  // namespace

void beginUninterrupted() noexcept {
    Region::begin(t_record);
}

void endUninterrupted() noexcept {
    Region::end(t_record);
}

void UninterruptedMutex::lock() noexcept {
    beginUninterrupted();
    const std::uint32_t process = g_forks << 2;
    std::uint32_t taken = process | kMutexTaken;
    for (std::uint32_t word = m_word.load(std::memory_order_relaxed);;) {
        const bool isFree = (word & kStateBits) == 0 || (word & ~kStateBits) != process;
        if (!isFree) taken = process | kMutexContended;
        if (word != taken &&
            !m_word.compare_exchange_weak(word, taken, std::memory_order_acquire, std::memory_order_relaxed)) {
            continue;
        }
        if (isFree) return;
        futexWait(m_word, taken);
        word = m_word.load(std::memory_order_relaxed);
    }
}

void UninterruptedMutex::unlock() noexcept {
    const std::uint32_t word = m_word.exchange(0, std::memory_order_release);
    if ((word & kStateBits) == kMutexContended) futexWake(&m_word, 1);
    endUninterrupted();
}

}  // namespace KestSupport::platform
