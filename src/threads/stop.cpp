#include "support/stop.h"

#include <atomic>
#include <cstdint>
#include <new>
#include <optional>

#include "platform/thread.h"
#include "platform/wait.h"

namespace KestSupport {

#ifdef __cpp_lib_jthread
namespace {

/// Requests the stop of an event when a token is stopped, until it is destroyed.
///
/// The destructor of std::stop_callback waits for its callback if that has begun on another thread. With the C++
/// runtime of GCC 12 for Windows this wait may last without end: the runtime loses wake-ups, and loses all of them if
/// the program and the library are separate files. So a callback that has begun destroys itself, which waits for
/// nothing. The destructor of the follower waits for an event of its own.
class TokenFollower {
  public:
    TokenFollower(KestStopEvent& event, std::stop_token token) : m_event(event) {
        if (m_isRegistered == nullptr || m_hasEnded == nullptr) throw std::bad_alloc();
        m_callback.emplace(std::move(token), Callback{*this});
        platform::setEvent(m_isRegistered.get());
    }
    TokenFollower(const TokenFollower&) = delete;
    TokenFollower& operator=(const TokenFollower&) = delete;
    ~TokenFollower() {
        // A callback that begins after the exchange returns at once, while the destructor of m_callback still polls.
        if (m_isTaken.exchange(true)) platform::waitForOne(m_hasEnded.get(), platform::kInfinite);
    }

  private:
    struct Callback {
        TokenFollower& follower;
        void operator()() const noexcept { follower.run(); }
    };

    void run() noexcept {
        if (m_isTaken.exchange(true)) return;
        try {
            m_event.request();
        } catch (...) {  // the thread that stops the token cannot handle what a dependent throws
        }
        // The constructor of the callback has run it if the token was stopped already. Such a callback is not
        // registered.
        const bool isRegistered = platform::waitForOne(m_isRegistered.get(), 0) == platform::kWaitObject0;
        if (isRegistered || platform::currentThreadId() != m_creator) {
            platform::waitForOne(m_isRegistered.get(), platform::kInfinite);
            m_callback.reset();
        }
        platform::setEvent(m_hasEnded.get());  // the follower may be destroyed now
    }

    KestStopEvent& m_event;
    const std::uint32_t m_creator = platform::currentThreadId();
    std::atomic<bool> m_isTaken{false};  // by the callback or by the destructor
    const platform::OwnedHandle m_isRegistered{platform::createEvent(true, false)};
    const platform::OwnedHandle m_hasEnded{platform::createEvent(true, false)};
    std::optional<std::stop_callback<Callback>> m_callback;
};

}  // namespace
#endif

/// Without a token that was given, a request does not use the source, whose lock a killed thread would leave taken.
struct KestStopEvent::State {
    std::atomic<bool> isRequested{false};
#ifdef __cpp_lib_jthread
    void requestOfTokens() {
        if (isTokenGiven) source.request_stop();
    }

    std::stop_source source;
    std::atomic<bool> isTokenGiven{false};
    std::optional<TokenFollower> following;
#else
    void requestOfTokens() {}
#endif
};

KestStopEvent::KestStopEvent() : KestEvent(true), m_pState(std::make_unique<State>()) {
    if (handle() == nullptr) throw std::bad_alloc();
}

KestStopEvent::~KestStopEvent() {
#ifdef __cpp_lib_jthread
    m_pState->following.reset();  // waits for a request that is being made
#endif
}

bool KestStopEvent::request() {
    if (m_pState->isRequested.exchange(true)) return false;
    struct Rest {
        KestStopEvent& event;
        ~Rest() {
            event.m_pState->requestOfTokens();
            platform::setEvent(event.handle());  // a thread that waits may destroy the event now
        }
    } const rest{*this};
    notifyDependents();
    return true;
}

bool KestStopEvent::isRequested() const noexcept {
    return m_pState->isRequested;
}

void KestStopEvent::set() {
    request();
}

void KestStopEvent::pulse() {
    request();
}

void KestStopEvent::reset() {}

#ifdef __cpp_lib_jthread
KestStopEvent::KestStopEvent(std::stop_token token) : KestStopEvent() {
    m_pState->following.emplace(*this, std::move(token));
}

// A concurrent request sees the flag, or this call sees the request.
std::stop_token KestStopEvent::getToken() const {
    m_pState->isTokenGiven = true;
    if (isRequested()) m_pState->source.request_stop();
    return m_pState->source.get_token();
}
#endif

KestStoppableThread::KestStoppableThread(const std::string& name) : KestStoppableThread(name, Run()) {}

KestStoppableThread::KestStoppableThread(const std::string& name, Run work)
    : KestThread(name), m_work(std::move(work)) {}

KestStoppableThread::~KestStoppableThread() {
    try {
        requestStop();
    } catch (...) {  // the request is made nevertheless
        waitForThreadExit();
        return;
    }
    waitForThreadExit();
}

int KestStoppableThread::run() {
    return m_work.work == nullptr ? 0 : m_work.call(m_work.work.get(), m_stop);
}

int KestStoppableThread::run(KestWorkInformation&) {
    return run();
}

}  // namespace KestSupport
