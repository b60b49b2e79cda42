#include "support/stop.h"

#include <atomic>
#include <cstdint>
#include <new>
#include <optional>
#include <utility>

#include "platform/thread_bias.h"
#include "platform/wait.h"
#include "threads/token_follower.h"

namespace KestSupport {

/// Without a token that was given, a request does not use the source, whose lock a killed thread would leave taken.
struct KestStopEvent::State {
    std::atomic<std::uint32_t> requester{0};  // the key of the thread that made the request; 0: none
#ifdef __cpp_lib_jthread
    void requestOfTokens() {
        if (isTokenGiven) source.request_stop();
    }

    std::stop_source source;
    std::atomic<bool> isTokenGiven{false};
    std::optional<internal::TokenFollower> following;
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
    std::uint32_t requester = 0;
    const bool isFirst = m_pState->requester.compare_exchange_strong(requester, platform::threadKey());
    // The rest is done once more if the first thread has ended: it may have been killed before it did that.
    if (!isFirst && platform::threadMayRun(requester)) return false;
    struct Rest {
        KestStopEvent& event;
        ~Rest() {
            event.m_pState->requestOfTokens();
            platform::setEvent(event.handle());  // a thread that waits may destroy the event now
        }
    } const rest{*this};
    if (isFirst) notifyDependents();
    return isFirst;
}

bool KestStopEvent::isRequested() const noexcept {
    return m_pState->requester != 0;
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
    m_pState->following.emplace(*this, token);
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
