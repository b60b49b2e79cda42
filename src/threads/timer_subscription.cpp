#include "support/timer_subscription.h"

#include <utility>

#include "threads/timer_manager.h"

namespace KestSupport {

KestTimerSubscription::KestTimerSubscription(KestTimer& timer, std::shared_ptr<void> function, void (*call)(void*))
    : m_timer(&timer), m_function(std::move(function)), m_call(call) {
    timer.addDependent(*this);
}

KestTimerSubscription::~KestTimerSubscription() {
    end();
}

// A firing that has read this dependent before its removal may still be about to call it. The wait covers that too.
void KestTimerSubscription::end() {
    KestTimer* const timer = std::exchange(m_timer, nullptr);
    if (timer == nullptr) return;
    timer->removeDependent(*this);
    KestTimerManager::waitWhileFiring(*timer);
}

void KestTimerSubscription::handleNotification(KestCollaborator&, const KestNotification&) {
    m_call(m_function.get());
}

}  // namespace KestSupport
