// Waitable objects: events, mutexes, waitable timers and threads, and the waits for one, any and all of them.
//
// A handle is owned by who made it and closed once, with closeHandle. Closing an object while a thread waits on it is a
// fault of the caller; closing it right after one's own wait was satisfied is not, even while the thread that signalled
// is still inside its call.
//
// Waits: time-outs are milliseconds on a clock that no clock change moves, rounded up; kInfinite waits without limit. A
// wait never ends spuriously. Signals are consumed as the object says:
//   auto-reset event    a satisfied wait clears it, and one set releases one waiter, the longest waiting first
//   manual-reset event  stays signalled
//   mutex               a satisfied wait owns it, recursively; each level is released by the owning thread
//   timer               becomes signalled when it is due; a satisfied wait clears an auto-reset one
//   thread              stays signalled once it has ended
// A mutex whose owner ended without releasing it is abandoned: the next wait owns it and says so.
//
// Without contention a mutex, and an event that is signalled or has no waiter, never enters the kernel. A waiter spins
// for a few microseconds at the most before it sleeps, and not at all on one processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace KestSupport::platform {

class WaitObject;
using WaitHandle = WaitObject*;

// Results of the waits.
inline constexpr std::uint32_t kWaitObject0 = 0;          ///< satisfied; any: plus the lowest satisfied index
inline constexpr std::uint32_t kWaitAbandoned = 0x80;     ///< as kWaitObject0, and the mutex had been abandoned
inline constexpr std::uint32_t kWaitTimeout = 0x102;      ///< the time has passed
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;  ///< the arguments cannot be waited on

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;
inline constexpr std::size_t kMaximumWaitObjects = 64;

/// A new event; null when memory is short. Calls on a null handle fail.
WaitHandle createEvent(bool manualReset, bool signalled) noexcept;
/// Signals; on a signalled event nothing happens.
bool setEvent(WaitHandle event) noexcept;
bool resetEvent(WaitHandle event) noexcept;
/// Releases those who wait now (one for an auto-reset event) and leaves the event not signalled.
bool pulseEvent(WaitHandle event) noexcept;

/// A new mutex that nobody owns; null when memory is short.
WaitHandle createMutex() noexcept;
/// Gives back one level. False when the calling thread does not own the mutex.
bool releaseMutex(WaitHandle mutex) noexcept;
/// The levels that the owner of the mutex, which is not null, holds; 0 for a free one. Out of date at once when it is
/// another thread's.
std::uint32_t mutexLevels(WaitHandle mutex) noexcept;

/// A new timer, not armed; null when memory is short.
WaitHandle createWaitableTimer(bool manualReset) noexcept;
/// Arms the timer, for the first time after delay (in units of 100 nanoseconds; not above 0 is at once), then every
/// period milliseconds (0: once). It is not signalled until then. False for a negative period.
bool setWaitableTimer(WaitHandle timer, std::int64_t delay, std::int32_t period) noexcept;
/// Disarms the timer; its signalled state stays.
bool cancelWaitableTimer(WaitHandle timer) noexcept;

/// Waits for one object.
std::uint32_t waitForOne(WaitHandle object, std::uint32_t timeout) noexcept;
/// Waits for any or all of 1 to kMaximumWaitObjects different objects. All: they are consumed together or not at all;
/// the result is kWaitAbandoned when one of them was an abandoned mutex. Any: the lowest index wins.
std::uint32_t waitForMany(std::span<const WaitHandle> objects, bool all, std::uint32_t timeout) noexcept;
/// Sets an event or releases a mutex, and waits, as one step: no pulse of another thread that sees the signal can come
/// before the wait has begun. kWaitFailed when the first cannot be signalled; nothing was waited for then.
std::uint32_t signalAndWait(WaitHandle toSignal, WaitHandle toWait, std::uint32_t timeout) noexcept;

/// Gives the object back. A null handle is ignored.
void closeHandle(WaitHandle object) noexcept;

struct HandleCloser {
    void operator()(WaitHandle object) const noexcept { closeHandle(object); }
};
/// A handle with an owner.
using OwnedHandle = std::unique_ptr<WaitObject, HandleCloser>;

}  // namespace KestSupport::platform
