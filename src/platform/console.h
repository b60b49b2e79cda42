// Console control events, their handlers, and whether a standard stream is a terminal. A user or a supervisor sends an
// event to make the program end or read its settings again.
//
//   addConsoleHandler, removeConsoleHandler    the list of handlers, common to all back ends
//   isTerminal, terminalWidth, showsColours    ask about a stream
//   openConsoleEvents and the functions below  the back end
//
// An event is offered to the handlers of its kind, the last registered first, until one takes it. An event that no
// handler takes has the effect that it has in a program without handlers. Handlers run on a thread of this layer and
// never inside a signal handler, so they may lock, wait and allocate. Events are delivered one after another.
//
// Threads: any thread may call every function, a handler included. Child processes start with the default effects of
// the events.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Ctrl+C; with a POSIX back end every SIGINT.
inline constexpr std::uint32_t kConsoleControlC = 0;
/// Ctrl+Break; with a POSIX back end SIGTERM, which a supervisor sends to end a program.
inline constexpr std::uint32_t kConsoleControlBreak = 1;

/// A request to read the settings again; with a POSIX back end SIGHUP. The consoles of other systems have no such
/// event. Services receive kServiceControlParameterChange there.
inline constexpr std::uint32_t kConsoleReload = 0x100;

/// The kinds of events. The system handles a kind without handlers.
enum class ConsoleEvents {
    ending,  ///< kConsoleControlC, kConsoleControlBreak
    reload,  ///< kConsoleReload; not sent if the program was started with SIGHUP ignored, as by nohup
};

/// Returns true if it takes the event. Must not throw.
using ConsoleHandler = bool (*)(std::uint32_t event);

/// Adds the handler as the first to be called. A handler that is added several times is called once for each time.
/// Returns false, and adds nothing, if the system refuses to report events of the kind.
bool addConsoleHandler(ConsoleHandler handler, ConsoleEvents kind = ConsoleEvents::ending);

/// Removes the handler's latest registration. Returns false if there is none. Waits until a call of the handler that is
/// under way has returned, except inside a handler. So after the return the handler does not run for that registration.
bool removeConsoleHandler(ConsoleHandler handler);

enum class StandardStream { input, output, error };

/// Back end: returns whether the stream is a terminal or a console window, where shown text can be replaced. Returns
/// false for a pipe, a file and a closed stream.
bool isTerminal(StandardStream stream) noexcept;

/// Back end: returns the columns of the stream's terminal, or 0 when it is none or its width is not known.
std::uint32_t terminalWidth(StandardStream stream) noexcept;

/// Back end: returns whether the stream is a terminal that obeys the usual escape sequences for colours.
bool showsColours(StandardStream stream) noexcept;

/// Receives a control event and returns whether a handler took it. If none did, the back end runs the effect that the
/// event has in a program without handlers, usually the end of the process. Must not throw.
using ConsoleEventSink = bool (*)(std::uint32_t event);

/// Back end: from now on passes every event of the kind to the sink, on a thread that has no other work. All kinds have
/// the same sink. Returns false, and changes nothing, if the system refuses. Returns true on a system without events of
/// the kind. This function and the two below are called one at a time.
bool openConsoleEvents(ConsoleEvents kind, ConsoleEventSink sink);

/// Back end: restores the effect that the events of the kind had before openConsoleEvents. Does not wait for the sink,
/// which may still be called for an event that has arrived.
void closeConsoleEvents(ConsoleEvents kind);

}  // namespace KestSupport::platform
