// A lock of the logger: what KestCriticalSectionObject is in mutex mode, without the two objects between it and the
// platform's lock. After a system call, each object that a record touches may have to be fetched again.
#pragma once

#include <cstdint>
#include <new>

#include "platform/wait.h"

namespace KestSupport::internal {

class LoggerLock {
  public:
    /// Throws std::bad_alloc.
    LoggerLock() {
        if (m_handle == nullptr) throw std::bad_alloc();
    }

    void lock() noexcept { platform::waitForOne(m_handle.get(), platform::kInfinite); }
    bool tryLock() noexcept {
        const std::uint32_t result = platform::waitForOne(m_handle.get(), 0);
        return result == platform::kWaitObject0 || result == platform::kWaitAbandoned;
    }
    /// Waits up to 100 ms. A lock that an ended thread left taken is not taken, but is free afterwards.
    bool testAndSet() noexcept {
        constexpr std::uint32_t kTimeout = 100;
        const std::uint32_t result = platform::waitForOne(m_handle.get(), kTimeout);
        if (result == platform::kWaitAbandoned) unlock();
        return result == platform::kWaitObject0;
    }
    /// Releases one level of the calling thread.
    void unlock() noexcept { platform::releaseMutex(m_handle.get()); }
    bool isFree() const noexcept { return platform::mutexLevels(m_handle.get()) == 0; }

  private:
    const platform::OwnedHandle m_handle{platform::createLock()};
};

}  // namespace KestSupport::internal
