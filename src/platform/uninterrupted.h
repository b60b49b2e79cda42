// Steps in which a thread must not be suspended or terminated: functions of the C runtime that hold a lock while they
// read files, and short changes of state that all threads share.
#pragma once

#include <atomic>
#include <cstdint>

namespace KestSupport::platform {

/// Between the two calls, the calling thread is neither suspended nor terminated. A request takes effect at the end of
/// the outermost pair.
void beginUninterrupted() noexcept;
void endUninterrupted() noexcept;

class Uninterrupted {
  public:
    Uninterrupted() noexcept { beginUninterrupted(); }
    Uninterrupted(const Uninterrupted&) = delete;
    Uninterrupted& operator=(const Uninterrupted&) = delete;
    ~Uninterrupted() { endUninterrupted(); }
};

/// The same around a function of the runtime that takes a lock of the runtime. A fork waits until no thread is in one,
/// for at most 5 seconds, since a forked child cannot release such a lock. While a thread forks, another thread that
/// begins one waits until the fork ends. Recursive.
class RuntimeCall {
  public:
    RuntimeCall() noexcept;
    RuntimeCall(const RuntimeCall&) = delete;
    RuntimeCall& operator=(const RuntimeCall&) = delete;
    ~RuntimeCall();
};

/// A mutex that no termination leaves locked: a thread that waits for it or holds it is not suspended or terminated
/// until it has released it. In a forked child it is free if another thread held it. For short steps. Not recursive.
class UninterruptedMutex {
  public:
    constexpr UninterruptedMutex() noexcept = default;

    void lock() noexcept;
    void unlock() noexcept;

  private:
    std::atomic<std::uint32_t> m_word{0};  // 0: free; the other values are those of the back end
};

}  // namespace KestSupport::platform
