// A gate that threads of a test pass when it is open. Tests use it instead of sleeping.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kit {

class Gate {
  public:
    void open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    void pass() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_open; });
    }

    /// Returns false when the gate is still closed after the time. Proves that something has not happened yet.
    bool passWithin(std::chrono::milliseconds time) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, time, [this] { return m_open; });
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

/// Waits until a condition holds. For states that notify no thread.
template <typename Condition>
void await(Condition condition) {
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock lock(mutex);
    while (!condition())
        never.wait_for(lock, std::chrono::milliseconds(1));
}

}  // namespace kit
