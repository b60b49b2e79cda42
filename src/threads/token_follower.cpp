#include "threads/token_follower.h"

#ifdef __cpp_lib_jthread
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "platform/process_memory.h"
#include "platform/thread.h"
#include "platform/thread_bias.h"
#include "platform/uninterrupted.h"

namespace KestSupport::internal {

/// A callback that is registered with a token, for one follower after another.
///
/// The destructor of std::stop_callback waits for its callback if that has begun on another thread. With the C++
/// runtime of GCC 12 for Windows this wait may last without end: the runtime loses wake-ups, and loses all of them if
/// the program and the library are separate files. So the std::stop_callback is destroyed only where it does not wait:
/// by its own call, or when no thread can stop the token any more. Until then it is kept for the next follower.
struct TokenCallback {
    struct Call {
        TokenCallback& callback;
        void operator()() const noexcept { callback.run(); }
    };

    TokenCallback(std::stop_token followed, TokenFollower& first) : token(std::move(followed)), follower(&first) {}
    /// Deletes the callback if the token is stopped already. Otherwise the callback deletes itself when it has run.
    static void begin(std::unique_ptr<TokenCallback> made);
    void run() noexcept;
    bool canNeverRun() const noexcept { return !token.stop_possible(); }

    const std::stop_token token;
    TokenFollower* follower;        // null: unused; guarded by the lock of TokenCallbacks
    TokenCallback* next = nullptr;  // of the unused; guarded by that lock
    const std::uint32_t creator = platform::currentThreadId();
    bool hasRunAtOnce = false;  // by the creator, before it is registered
    std::atomic<bool> isRegistered{false};
    std::optional<std::stop_callback<Call>> registration;
};

/// The callbacks without a follower. Under the lock only links and atomic objects are used.
class TokenCallbacks {
  public:
    TokenCallbacks() = default;
    TokenCallbacks(const TokenCallbacks&) = delete;
    TokenCallbacks& operator=(const TokenCallbacks&) = delete;
    ~TokenCallbacks() { deleteAll(m_unused); }

    /// Gives the follower an unused callback of the token. Returns false if there is none. Deletes those that can never
    /// run.
    bool reuse(const std::stop_token& token, TokenFollower& follower) noexcept {
        TokenCallback* useless = nullptr;
        const bool isFound = [&] {
            const std::lock_guard guard(m_lock);
            for (TokenCallback** place = &m_unused; *place != nullptr;) {
                TokenCallback& each = **place;
                if (each.token == token) {
                    *place = each.next;
                    each.follower = &follower;
                    follower.m_callback = &each;
                    return true;
                }
                if (each.canNeverRun()) {
                    *place = std::exchange(each.next, std::exchange(useless, &each));
                } else {
                    place = &each.next;
                }
            }
            return false;
        }();
        deleteAll(useless);
        return isFound;
    }

    /// Registers a new callback for the follower.
    static void add(const std::stop_token& token, TokenFollower& follower) {
        auto made = std::make_unique<TokenCallback>(token, follower);
        follower.m_callback = made.get();
        TokenCallback::begin(std::move(made));
    }

    void leave(TokenFollower& follower) noexcept {
        const std::lock_guard guard(m_lock);
        TokenCallback* const callback = follower.m_callback;
        if (callback == nullptr) return;
        callback->follower = nullptr;
        callback->next = std::exchange(m_unused, callback);
    }

    /// Separates a callback that runs from its follower, which is returned and passed to finish later, or from the
    /// unused ones.
    TokenFollower* take(TokenCallback& callback) noexcept {
        const std::lock_guard guard(m_lock);
        TokenFollower* const follower = callback.follower;
        if (follower != nullptr) {
            follower->m_callback = nullptr;
            follower->m_runner = platform::threadKey();
            platform::resetEvent(follower->m_isIdle.get());
            return follower;
        }
        TokenCallback** place = &m_unused;
        while (*place != &callback)
            place = &(*place)->next;
        *place = callback.next;
        return nullptr;
    }

    /// The follower may be destroyed now.
    static void finish(TokenFollower& follower) noexcept { platform::setEvent(follower.m_isIdle.get()); }

  private:
    static void deleteAll(TokenCallback* first) noexcept {
        while (first != nullptr)
            delete std::exchange(first, first->next);
    }

    platform::UninterruptedMutex m_lock;
    TokenCallback* m_unused = nullptr;  // owned; guarded by m_lock
};

namespace {

constinit platform::ProcessObject<TokenCallbacks> g_callbacks;

}  // namespace

void TokenCallback::begin(std::unique_ptr<TokenCallback> made) {
    TokenCallback& callback = *made;
    callback.registration.emplace(callback.token, Call{callback});
    if (callback.hasRunAtOnce) return;
    static_cast<void>(made.release());
    callback.isRegistered.store(true, std::memory_order_release);  // it may delete itself now
}

void TokenCallback::run() noexcept {
    TokenFollower* const served = g_callbacks.get().take(*this);
    if (served != nullptr) served->request();
    if (creator == platform::currentThreadId() && !isRegistered.load(std::memory_order_acquire)) {
        hasRunAtOnce = true;  // this is the constructor of the std::stop_callback
    } else {
        while (!isRegistered.load(std::memory_order_acquire))  // the creator has little left to do
            platform::sleepThread(1);
        delete this;
    }
    if (served != nullptr) TokenCallbacks::finish(*served);
}

TokenFollower::TokenFollower(KestStopEvent& event, const std::stop_token& token) : m_event(event) {
    if (m_isIdle == nullptr) throw std::bad_alloc();
    TokenCallbacks& callbacks = g_callbacks.get();
    if (token.stop_possible() && !token.stop_requested() && !callbacks.reuse(token, *this))
        TokenCallbacks::add(token, *this);
    // A callback that is used again may not have run yet.
    if (token.stop_requested()) request();
}

TokenFollower::~TokenFollower() {
    constexpr std::uint32_t kLookAgain = 50;  // milliseconds
    g_callbacks.get().leave(*this);
    // A thread that was killed, or that is not in a forked child, does not complete the request.
    while (platform::waitForOne(m_isIdle.get(), kLookAgain) == platform::kWaitTimeout &&
           platform::threadMayRun(m_runner)) {
    }
}

}  // namespace KestSupport::internal
#endif
