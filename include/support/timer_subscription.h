// A function that a timer calls, for as long as an object lives:
//
//     KestTimer timer;
//     KestTimerSubscription ticking(timer, [&] { count(); });
//     timer.start(100, false);
//
// The function runs where a dependent runs: on a thread of the library, without a lock (timers.h). An exception that it
// throws is dropped, and ends the notification of that firing.
//
// Threads: one thread at a time ends and destroys a subscription. A thread that does so holds no lock that the function
// needs.
//
// Lifetime: the timer outlives the subscription. The function may end its own subscription, but not destroy it. Only
// firings are waited for: while a subscription ends, the program does not call set or pulse of the timer itself.
#pragma once

#include <memory>
#include <utility>

#include "support/export.h"
#include "support/observer.h"
#include "support/timers.h"

namespace KestSupport {

/// A function that a timer calls until the object ends.
class KEST_SUPPORT_EXPORT KestTimerSubscription final : private KestDependent {
  public:
    /// Calls the function at each firing from now on. Throws std::bad_alloc.
    template <typename Function>
    KestTimerSubscription(KestTimer& timer KEST_SUPPORT_LIFETIMEBOUND, Function function)
        : KestTimerSubscription(timer, std::make_shared<Function>(std::move(function)),
                                [](void* object) { (*static_cast<Function*>(object))(); }) {}
    KestTimerSubscription(const KestTimerSubscription&) = delete;
    KestTimerSubscription& operator=(const KestTimerSubscription&) = delete;
    /// Ends the subscription.
    ~KestTimerSubscription() override;

    /// Returns when the function is not running and will not be called again. Inside the function it returns at once.
    /// Does not stop the timer. A second call does nothing.
    void end();

  private:
    KestTimerSubscription(KestTimer& timer, std::shared_ptr<void> function, void (*call)(void*));
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override;

    KestTimer* m_timer;  // null after the end
    // Not a std::function, whose header takes 100 ms to compile.
    const std::shared_ptr<void> m_function;
    void (*const m_call)(void*);
};

}  // namespace KestSupport
