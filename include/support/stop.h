// Requests to stop, which a wait can include.
//
//   KestStopEvent        an event that stays signalled from the request on; also gives and follows a std::stop_token
//   KestStoppableThread  a KestThread whose work gets such an event; its destructor requests the stop and waits
//
//     KestEvent news;
//     KestStoppableThread worker([&](KestStopEvent& stop) {
//         std::vector<KestEvent*> events{&stop, &news};
//         while (KestEvent::wait(events, false, -1) == 1) handleNews();
//     });
//     worker.start();
//
// Threads: any thread may call every operation. Lifetime: the event outlives the waits for it, but not the tokens that
// it has given.
//
// The operations with std::stop_token exist where the standard library has it (__cpp_lib_jthread). A thread that is
// killed while it uses a token may leave the token locked; the other operations are not affected by a kill.
//
// Windows: the C++ runtime of GCC 12 loses wake-ups. A std::stop_callback whose destructor waits for its callback may
// wait without end, also inside a wait of std::condition_variable_any that takes a token. Wait for the event, or poll
// the token.
#pragma once

#include <version>
#ifdef __cpp_lib_jthread
#include <stop_token>
#endif

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "support/events.h"
#include "support/export.h"
#include "support/threads.h"

namespace KestSupport {

/// An event for one request, which is never taken back. A wait leaves it signalled, so each of several threads may wait
/// for it, again and again. `wait(1000) == 0` is a sleep of a second that a request ends.
class KEST_SUPPORT_EXPORT KestStopEvent : public KestEvent {
  public:
    /// Throws std::bad_alloc, so the event is never inert.
    KestStopEvent();
    ~KestStopEvent() override;

    /// Requests the stop. Returns whether this call did it; false when it was requested before. The first call notifies
    /// the dependents, runs the callbacks of tokens, and signals. If a dependent throws, the caller gets the exception
    /// after the rest was done. If the thread of the first call is killed during the call, the next call does the rest.
    bool request();
    /// Returns whether a stop was requested.
    bool isRequested() const noexcept;

    /// The same as request.
    void set() override;
    void pulse() override;
    /// Does nothing.
    void reset() override;

#ifdef __cpp_lib_jthread
    /// Follows the token: a stop of the token is one of this event. What a dependent throws then is dropped. Throws
    /// std::bad_alloc. The library keeps a small registration with the token for each event that followed it at the
    /// same time, for later events, until the token is stopped or has no source.
    explicit KestStopEvent(std::stop_token token);
    /// Returns a token of this event.
    std::stop_token getToken() const;
#endif

  private:
    struct State;
    const std::unique_ptr<State> m_pState;
};

/// A thread that another thread asks to stop. Once made, the request stays, also for a run that follows a kill.
class KEST_SUPPORT_EXPORT KestStoppableThread : public KestThread {
  public:
    /// Calls `work` as the run: with a std::stop_token, a KestStopEvent& or nothing, the first that it accepts. The
    /// result is that of the run, 0 if it is void. The thread has no work information.
    template <typename Work, typename = std::enable_if_t<!std::is_convertible_v<Work, std::string>>>
    explicit KestStoppableThread(Work work, const std::string& name = kUsualName)
        : KestStoppableThread(name, workOf(std::move(work))) {}

    /// Requests a stop and waits for the end of the run, also if the thread is marked for kill. In its own destructor,
    /// a derived class calls requestStop and waitForThreadExit if its members are used by the run.
    ~KestStoppableThread() override;

    /// As KestStopEvent::request. Does not wait.
    bool requestStop() { return m_stop.request(); }
    /// Returns the event that the work gets.
    KestStopEvent& getStopEvent() noexcept KEST_SUPPORT_LIFETIMEBOUND { return m_stop; }
#ifdef __cpp_lib_jthread
    /// Returns a token of that event.
    std::stop_token getStopToken() const {
        return m_stop.getToken();
    }
#endif

  protected:
    /// For a derived class that overrides run.
    explicit KestStoppableThread(const std::string& name);

    /// Call the work, if there is one.
    int run() override;
    int run(KestWorkInformation& info) override;

  private:
    static constexpr const char* kUsualName = "class KestSupport::KestStoppableThread";  // the system does not get it

    // Not a std::function, whose header takes 100 ms to compile.
    struct Run {
        std::shared_ptr<void> work;  // null: none
        int (*call)(void* work, KestStopEvent& stop) = nullptr;
    };

    KestStoppableThread(const std::string& name, Run work);

#ifdef __cpp_lib_jthread
    template <typename Work>
    static constexpr bool kTakesToken = std::is_invocable_v<Work&, std::stop_token>;
#else
    template <typename Work>
    static constexpr bool kTakesToken = false;
#endif

    template <typename Work>
    static Run workOf(Work given) {
        return {std::make_shared<Work>(std::move(given)),
                [](void* work, KestStopEvent& stop) { return call(*static_cast<Work*>(work), stop); }};
    }

    // Event is KestStopEvent, which may have no getToken.
    template <typename Work, typename Event>
    static int call(Work& work, Event& stop) {
        if constexpr (kTakesToken<Work>) {
            return resultOf([&] { return work(stop.getToken()); });
        } else if constexpr (std::is_invocable_v<Work&, Event&>) {
            return resultOf([&] { return work(stop); });
        } else {
            return resultOf(work);
        }
    }

    template <typename Call>
    static int resultOf(Call&& call) {
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            return 0;
        } else {
            return call();
        }
    }

    KestStopEvent m_stop;
    const Run m_work;  // empty for a derived class that overrides run
};

}  // namespace KestSupport
