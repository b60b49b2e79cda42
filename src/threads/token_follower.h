// An event that follows a std::stop_token.
#pragma once

#include "platform/wait.h"
#include "support/stop.h"

#ifdef __cpp_lib_jthread
namespace KestSupport::internal {

struct TokenCallback;

/// Requests the stop of an event when a token is stopped, until it is destroyed.
class TokenFollower {
  public:
    TokenFollower(KestStopEvent& event, const std::stop_token& token);
    TokenFollower(const TokenFollower&) = delete;
    TokenFollower& operator=(const TokenFollower&) = delete;
    /// Waits for a request that the callback is making.
    ~TokenFollower();

    void request() noexcept {
        try {
            m_event.request();
        } catch (...) {  // the thread that stops the token cannot handle what a dependent throws
            return;
        }
    }

  private:
    friend class TokenCallbacks;

    KestStopEvent& m_event;
    // Guarded by the lock of TokenCallbacks.
    TokenCallback* m_callback = nullptr;                                      // null once it runs
    std::uint32_t m_runner = 0;                                               // the key of the thread that runs it
    const platform::OwnedHandle m_isIdle{platform::createEvent(true, true)};  // reset while the callback runs
};

}  // namespace KestSupport::internal
#endif
