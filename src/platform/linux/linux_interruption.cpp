#include "platform/interruption.h"

#include <pthread.h>
#include <signal.h>

namespace KestSupport::platform {

struct Interruption::State {
    sigset_t held;
    sigset_t before;
};

// A signal that is ignored, such as SIGHUP under nohup, is not blocked: a blocked signal would be kept and reported.
Interruption::Interruption() : m_state(std::make_unique<State>()) {
    sigemptyset(&m_state->held);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction present = {};
        if (sigaction(each, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) sigaddset(&m_state->held, each);
    }
    pthread_sigmask(SIG_BLOCK, &m_state->held, &m_state->before);
}

Interruption::~Interruption() {
    pthread_sigmask(SIG_SETMASK, &m_state->before, nullptr);
}

int Interruption::wait(std::uint32_t timeout) noexcept {
    timespec limit{};
    limit.tv_sec = timeout / 1000;
    limit.tv_nsec = static_cast<long>(timeout % 1000) * 1'000'000;
    const int number = sigtimedwait(&m_state->held, nullptr, &limit);
    return number > 0 ? number : 0;
}

void Interruption::takeEffect(int request) noexcept {
    raise(request);
}

}  // namespace KestSupport::platform
