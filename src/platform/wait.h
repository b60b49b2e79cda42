// Waitable objects (events, mutexes, waitable timers and threads), and waits for one, any and all of them.
//
// The creator of a handle owns it, and closes it once with closeHandle. No thread may wait for an object while it is
// closed. A thread whose wait was satisfied may close the object at once, even if the signalling thread is still inside
// its call.
//
// Time-outs are milliseconds on the steady clock, rounded up; kInfinite waits without limit. A wait never ends
// spuriously. A satisfied wait consumes the signal, depending on the object:
//   auto-reset event    the wait resets it; one signal releases one thread
//   manual-reset event  stays signalled
//   mutex               the waiting thread owns it, recursively; that thread releases each level
//   timer               signalled when it is due; the wait resets an auto-reset timer
//   thread              stays signalled after its end
// If the owner of a mutex ended without releasing it, the mutex is abandoned: the next wait takes it and reports that.
//
// A back end with waits of its own (emulated/) does not enter the kernel for an uncontended mutex, nor for an event
// that is signalled or that no thread waits for. A waiting thread spins for a few microseconds at most before it
// sleeps, and does not spin if there is only one processor. A back end over the system's objects enters the kernel for
// each operation, the system chooses the order of waiting threads, and a time-out may end a tick of its clock too
// early.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace KestSupport::platform {

class WaitObject;
using WaitHandle = WaitObject*;

// The results of waits.
inline constexpr std::uint32_t kWaitObject0 = 0;  ///< satisfied; a wait for any object adds the lowest satisfied index
inline constexpr std::uint32_t kWaitAbandoned = 0x80;     ///< like kWaitObject0, and the mutex was abandoned
inline constexpr std::uint32_t kWaitTimeout = 0x102;      ///< the time-out has passed
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;  ///< the arguments are not valid

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;
inline constexpr std::size_t kMaximumWaitObjects = 64;

/// Returns a new event, or null if memory is short. Calls with a null handle fail.
WaitHandle createEvent(bool manualReset, bool signalled) noexcept;
/// Signals the event. Does nothing if it is signalled.
bool setEvent(WaitHandle event) noexcept;
bool resetEvent(WaitHandle event) noexcept;
/// Releases the threads that wait now (one for an auto-reset event) and leaves the event not signalled.
bool pulseEvent(WaitHandle event) noexcept;

/// Returns whether a thread waits for the event while the calling thread owns the mutex. A back end that does not know
/// returns false.
bool isAwaited(WaitHandle event, WaitHandle mutex) noexcept;

/// Returns a new mutex without an owner, or null if memory is short.
WaitHandle createMutex() noexcept;
/// The same for a mutex that is used by waitForOne, releaseMutex, mutexLevels and closeHandle only. On every system it
/// enters the kernel only while another thread owns it.
WaitHandle createLock() noexcept;
/// Releases one level. Returns false if the calling thread does not own the mutex.
bool releaseMutex(WaitHandle mutex) noexcept;
/// Returns the levels that the owner of the mutex holds, or 0 if it is free. The number may be out of date unless the
/// calling thread owns the mutex. Requires a mutex.
std::uint32_t mutexLevels(WaitHandle mutex) noexcept;

/// Returns a new timer that is not armed, or null if memory is short.
WaitHandle createWaitableTimer(bool manualReset) noexcept;
/// Arms the timer. It becomes signalled after `delay` (in units of 100 nanoseconds; 0 and below: at once) and then
/// every `period` milliseconds (0: only once). Until then it is not signalled. Returns false for a negative period.
bool setWaitableTimer(WaitHandle timer, std::int64_t delay, std::int32_t period) noexcept;
/// Disarms the timer. Does not change its signalled state.
bool cancelWaitableTimer(WaitHandle timer) noexcept;

/// Waits for one object.
std::uint32_t waitForOne(WaitHandle object, std::uint32_t timeout) noexcept;
/// Waits for any or all of 1 to kMaximumWaitObjects different objects. All: the wait consumes them together or not at
/// all; the result is kWaitAbandoned if one of them was an abandoned mutex. Any: the lowest index wins.
std::uint32_t waitForMany(std::span<const WaitHandle> objects, bool all, std::uint32_t timeout) noexcept;
/// Sets an event or releases a mutex, and waits, as one step: a thread that sees the signal cannot pulse before the
/// wait has begun. Returns kWaitFailed, without waiting, if the first object cannot be signalled.
std::uint32_t signalAndWait(WaitHandle toSignal, WaitHandle toWait, std::uint32_t timeout) noexcept;

/// Closes the handle. Ignores null.
void closeHandle(WaitHandle object) noexcept;

struct HandleCloser {
    void operator()(WaitHandle object) const noexcept { closeHandle(object); }
};
/// A handle that closes itself.
using OwnedHandle = std::unique_ptr<WaitObject, HandleCloser>;

}  // namespace KestSupport::platform
