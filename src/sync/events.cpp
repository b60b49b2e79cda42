#include "support/events.h"

#include <algorithm>
#include <new>
#include <typeinfo>

#include "platform/wait.h"
#include "sync/wait_set.h"

namespace KestSupport {
namespace {

constexpr int kSignalled = internal::kSetSignalled;
constexpr int kFailed = internal::kSetFailed;
constexpr int kTimedOut = internal::kSetTimedOut;
constexpr int kAbandoned = -3;

}  // namespace

KestEvent::KestEvent() noexcept : KestEvent(false) {}

KestEvent::KestEvent(bool staysSignalled) noexcept {
    platform::OwnedHandle event(platform::createEvent(staysSignalled, false));
    if (event == nullptr) return;
    m_handle = new (std::nothrow) platform::WaitHandle(event.get());
    if (m_handle != nullptr) static_cast<void>(event.release());
}

KestEvent::~KestEvent() {
    if (m_handle == nullptr) return;
    platform::closeHandle(*m_handle);
    delete m_handle;
}

void KestEvent::notifyDependents() {
    // Without a dependent, set must not fail for lack of memory. The hooks of a derived class run in any case.
    if (!m_hadDependents.load(std::memory_order_acquire) && typeid(*this) == typeid(KestEvent)) return;
    KestNotification* const notification = createNotification();
    try {
        if (notification != nullptr) m_collaborator.notify(*notification);
    } catch (...) {
        destroyNotification(notification);
        throw;
    }
    destroyNotification(notification);  // outside a destructor, since a derived class may throw
}

void KestEvent::set() {
    if (m_handle == nullptr) return;
    notifyDependents();
    platform::setEvent(*m_handle);
}

void KestEvent::pulse() {
    if (m_handle == nullptr) return;
    notifyDependents();
    platform::pulseEvent(*m_handle);
}

void KestEvent::reset() {
    if (m_handle != nullptr) platform::resetEvent(*m_handle);
}

int KestEvent::wait(int timeout) {
    if (m_handle == nullptr) return kSignalled;
    switch (platform::waitForOne(*m_handle, static_cast<std::uint32_t>(timeout))) {
        case platform::kWaitAbandoned:
            return kAbandoned;
        case platform::kWaitTimeout:
            return kTimedOut;
        case platform::kWaitFailed:
            return kFailed;
        default:
            return kSignalled;
    }
}

void* KestEvent::getHandle() {
    return m_handle;
}

KestNotification* KestEvent::createNotification() {
    return new KestEventNotification;
}

void KestEvent::destroyNotification(KestNotification* notification) {
    delete notification;
}

int KestEvent::wait(std::vector<KestEvent*>& events, bool waitAll, int timeout) {
    const auto handleAt = [&](std::size_t i) { return events[i]->handle(); };
    return internal::waitForSet(events.size(), handleAt, waitAll, timeout);
}

int KestEvent::wait(int count, KestEvent* events, bool waitAll, int timeout) {
    const auto handleAt = [&](std::size_t i) { return events[i].handle(); };
    return internal::waitForSet(static_cast<std::size_t>(std::max(count, 0)), handleAt, waitAll, timeout);
}

}  // namespace KestSupport
