#include "platform/uninterrupted.h"

#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

// The word of an UninterruptedMutex. A sleeping thread is woken by the release of a contended one.
constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kTaken = 1;
constexpr std::uint32_t kContended = 2;

constexpr DWORD kLook = 100;  // milliseconds

}  // namespace

void beginUninterrupted() noexcept {
    currentRecord().depth.fetch_add(1, std::memory_order_relaxed);
}

// A request to suspend or terminate the thread looks again soon.
void endUninterrupted() noexcept {
    currentRecord().depth.fetch_sub(1, std::memory_order_relaxed);
}

RuntimeCall::RuntimeCall() noexcept {
    beginUninterrupted();
}

RuntimeCall::~RuntimeCall() {
    endUninterrupted();
}

void UninterruptedMutex::lock() noexcept {
    beginUninterrupted();
    std::uint32_t word = kFree;
    if (m_word.compare_exchange_strong(word, kTaken, std::memory_order_acquire)) return;
    while (m_word.exchange(kContended, std::memory_order_acquire) != kFree) {
        std::uint32_t contended = kContended;
        // The threads that a process has ended at its own end release nothing.
        if (!WaitOnAddress(&m_word, &contended, sizeof contended, kLook) && isProcessEnding()) return;
    }
}

void UninterruptedMutex::unlock() noexcept {
    if (m_word.exchange(kFree, std::memory_order_release) == kContended) WakeByAddressSingle(&m_word);
    endUninterrupted();
}

}  // namespace KestSupport::platform
