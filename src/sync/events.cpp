#include "support/events.h"

#include <memory>
#include <new>
#include <typeinfo>

#include "platform/wait.h"

namespace KestSupport {
namespace {

enum Status : int { kSignalled = 0, kFailed = -1, kTimedOut = -2, kAbandoned = -3, kNoMemory = -4 };

}  // namespace

KestEvent::KestEvent() noexcept {
    platform::OwnedHandle event(platform::createEvent(false, false));
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
    // Setting an event must not fail for want of memory when there is no dependent to tell. A derived class may have
    // hooks of its own, which run in any case.
    if (!m_hadDependents.load(std::memory_order_acquire) && typeid(*this) == typeid(KestEvent)) return;
    const auto giveBack = [this](KestNotification* notification) { destroyNotification(notification); };
    const std::unique_ptr<KestNotification, decltype(giveBack)> notification(createNotification(), giveBack);
    if (notification != nullptr) m_collaborator.notify(*notification);
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
    const std::unique_ptr<platform::WaitHandle[]> handles(new (std::nothrow) platform::WaitHandle[events.size()]);
    if (handles == nullptr) return kNoMemory;
    for (std::size_t i = 0; i < events.size(); ++i) {
        handles[i] = events[i]->m_handle == nullptr ? nullptr : *events[i]->m_handle;
    }
    const std::uint32_t result =
        platform::waitForMany({handles.get(), events.size()}, waitAll, static_cast<std::uint32_t>(timeout));
    if (result == platform::kWaitFailed) return kFailed;
    if (result == platform::kWaitTimeout) return kTimedOut;
    return waitAll ? kSignalled : static_cast<int>(result);
}

int KestEvent::wait(int count, KestEvent* events, bool waitAll, int timeout) {
    std::vector<KestEvent*> addresses;
    if (count > 0) addresses.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        addresses.push_back(&events[i]);
    return wait(addresses, waitAll, timeout);
}

}  // namespace KestSupport
