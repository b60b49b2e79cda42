// Steps at which a thread must not be suspended or terminated: calls of the C runtime that hold a lock of the runtime
// while they read files, and short changes of what all threads share.
#pragma once

#include <mutex>

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
/// has released it. For steps that always end soon. Not recursive.
class UninterruptedMutex {
  public:
    constexpr UninterruptedMutex() noexcept = default;

    void lock() {
        beginUninterrupted();
        m_mutex.lock();
    }
    void unlock() {
        m_mutex.unlock();
        endUninterrupted();
    }

  private:
    std::mutex m_mutex;
};

}  // namespace KestSupport::platform
