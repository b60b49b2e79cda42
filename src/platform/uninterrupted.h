// Steps at which a thread must not be suspended or terminated: calls of the C runtime that hold a lock of the runtime
// while they read files, and short changes of what all threads share.
#pragma once

#include <atomic>
#include <cstdint>

namespace KestSupport::platform {

/// Back end: between the two calls the calling thread is neither suspended nor terminated; a request is carried out at
/// the end of the outermost pair.
void beginUninterrupted() noexcept;
void endUninterrupted() noexcept;

class Uninterrupted {
  public:
    Uninterrupted() noexcept { beginUninterrupted(); }
    Uninterrupted(const Uninterrupted&) = delete;
    Uninterrupted& operator=(const Uninterrupted&) = delete;
    ~Uninterrupted() { endUninterrupted(); }
};

/// A mutex that survives its owner: the thread that waits for it or holds it is not suspended or terminated until it
/// has released it. In a forked child it is free when another thread had it. For steps that always end soon. Not
/// recursive.
class UninterruptedMutex {
  public:
    constexpr UninterruptedMutex() noexcept = default;

    void lock() noexcept;
    void unlock() noexcept;

  private:
    std::atomic<std::uint32_t> m_word{0};  // the back end's
};

}  // namespace KestSupport::platform
