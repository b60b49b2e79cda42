// Console control events: a user's or a supervisor's request that the program end, or that it read its settings again,
// and the handlers that meet it. And whether there is a person at the other end of a standard stream.
//
//   addConsoleHandler, removeConsoleHandler    the list of handlers; written once, above the back ends
//   isTerminal                                 asks about a stream
//   openConsoleEvents and what follows it      what a back end gives
//
// An event is offered to the handlers of its kind, last registered first, until one takes it; an event that none takes
// has the effect that it has in a program without handlers. Handlers run on a thread that this layer owns, never inside
// a signal handler, so they may lock, wait and allocate. Events are handed out one after another.
//
// Threads: every function may be called by any thread, also from inside a handler. Child processes see nothing of this:
// they start with the effects that events have by default.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Ctrl+C; with a POSIX back end also any SIGINT.
inline constexpr std::uint32_t kConsoleControlC = 0;
/// Ctrl+Break; with a POSIX back end SIGTERM, since a supervisor's request to end is to be met by the same clean stop.
inline constexpr std::uint32_t kConsoleControlBreak = 1;

/// A request to read the settings again; with a POSIX back end SIGHUP. No other system's consoles send it: there the
/// service manager's control kServiceControlParameterChange is the only such request.
inline constexpr std::uint32_t kConsoleReload = 0x100;

/// The kinds of events. A kind without handlers is left to the system.
enum class ConsoleEvents {
    ending,  ///< kConsoleControlC, kConsoleControlBreak
    reload,  ///< kConsoleReload; never sent to a program that was started with SIGHUP ignored, as nohup does
};

/// Returns true when it has taken the event. It must not throw.
using ConsoleHandler = bool (*)(std::uint32_t event);

/// Puts the handler in front of those that are registered; one that is there already is called once for each time that
/// it was added. False when the system refuses to report events of the kind; the handler is then not registered.
bool addConsoleHandler(ConsoleHandler handler, ConsoleEvents kind = ConsoleEvents::ending);

/// Takes out the handler's latest registration; false when there is none. When this returns, the handler is not running
/// on behalf of that registration and will not: it waits for a call that is under way, except inside a handler.
bool removeConsoleHandler(ConsoleHandler handler);

enum class StandardStream { input, output, error };

/// Back end: whether the stream is a terminal or console window, so that what is shown there may be shown over again.
/// False for a pipe, a file, and a stream that is closed.
bool isTerminal(StandardStream stream) noexcept;

/// Receives a control event and returns whether a handler took it; if not, the back end gives the event the effect that
/// it has without us, usually the end of the process. It must not throw.
using ConsoleEventSink = bool (*)(std::uint32_t event);

/// Back end: from now on passes every event of the kind to the sink, which is the same for all kinds, on a thread that
/// has no other work. False when the system refuses; nothing is changed then. A system without events of the kind
/// returns true. This and the following two are called one at a time.
bool openConsoleEvents(ConsoleEvents kind, ConsoleEventSink sink);

/// Back end: gives the events of the kind back the effect that they had before openConsoleEvents. Does not wait for the
/// sink, which may still be called for an event that has already arrived.
void closeConsoleEvents(ConsoleEvents kind);

}  // namespace KestSupport::platform
