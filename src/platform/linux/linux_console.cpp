// Terminals, and SIGINT, SIGTERM and SIGHUP as control events. A signal handler may only count the signal and post a
// semaphore. One thread takes the counts and delivers the events. No signal is blocked for this, so children inherit no
// change: a caught signal has its default effect again in a program that a child executes.
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/console.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

struct EventSignal {
    int number;
    std::uint32_t event;
    ConsoleEvents kind;
    std::atomic<unsigned> pending{0};
    struct sigaction before = {};  // written while our handler is not installed
};

// Static storage without constructors and destructors, since a signal may arrive at any time.
constinit std::array<EventSignal, 3> g_signals{EventSignal{SIGINT, kConsoleControlC, ConsoleEvents::ending},
                                               EventSignal{SIGTERM, kConsoleControlBreak, ConsoleEvents::ending},
                                               EventSignal{SIGHUP, kConsoleReload, ConsoleEvents::reload}};
sem_t g_arrived;
std::atomic<pid_t> g_owner{0};  // the process that the delivering thread belongs to
std::atomic<ConsoleEventSink> g_sink{nullptr};

static_assert(std::atomic<unsigned>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free,
              "a signal handler may use lock-free atomics only");

// A forked child has no delivering thread. In it the signal has its default effect when this handler returns.
void onSignal(int number) {
    const int savedError = errno;
    if (g_owner.load(std::memory_order_relaxed) != getpid()) {
        signal(number, SIG_DFL);
        raise(number);
    } else {
        for (EventSignal& each : g_signals) {
            if (each.number == number) each.pending.fetch_add(1, std::memory_order_release);
        }
        sem_post(&g_arrived);
    }
    errno = savedError;
}

// Runs the effect that the signal had before it was caught. The delivering thread blocks all signals and unblocks this
// one for a moment.
void runFormerEffect(const EventSignal& which) {
    struct sigaction present = {};
    sigaction(which.number, &which.before, &present);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, which.number);
    raise(which.number);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    pthread_sigmask(SIG_BLOCK, &only, nullptr);
    sigaction(which.number, &present, nullptr);
}

void* deliverEvents(void*) {
    for (;;) {
        while (sem_wait(&g_arrived) != 0) {
        }
        for (EventSignal& each : g_signals) {
            for (unsigned count = each.pending.exchange(0, std::memory_order_acquire); count > 0; --count) {
                if (!g_sink.load(std::memory_order_acquire)(each.event)) runFormerEffect(each);
            }
        }
    }
    return nullptr;
}

// Keeps the library loaded: an unload would remove the code of the delivering thread and of a handler that is about to
// run.
void stayLoaded() {
    Dl_info here;
    if (dladdr(&g_signals, &here) != 0) dlopen(here.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

// The thread is created once and never ends. It sleeps until an event arrives. Ending it would require a wait for a
// handler, which may be changing the list.
bool startDelivery() {
    if (g_owner.load(std::memory_order_relaxed) == getpid()) return true;
    if (sem_init(&g_arrived, 0, 0) != 0) return false;
    sigset_t all;
    sigset_t callers;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &callers);
    pthread_t thread;
    const int error =
        errorCall("startConsoleThread", [&] { return pthread_create(&thread, nullptr, deliverEvents, nullptr); });
    pthread_sigmask(SIG_SETMASK, &callers, nullptr);
    if (error != 0) return false;
    pthread_detach(thread);
    stayLoaded();
    g_owner.store(getpid(), std::memory_order_relaxed);
    return true;
}

bool catchSignal(EventSignal& which) {
    // A SIGHUP that was ignored at the start of the program stays ignored, also for programs that this one starts.
    struct sigaction present = {};
    sigaction(which.number, nullptr, &present);
    if (which.kind == ConsoleEvents::reload && present.sa_handler == SIG_IGN) {
        which.before = present;
        return true;
    }
    struct sigaction ours = {};
    ours.sa_handler = onSignal;
    ours.sa_flags = SA_RESTART;
    sigemptyset(&ours.sa_mask);
    return systemCall("openConsoleEvents", [&] { return sigaction(which.number, &ours, &which.before); }) == 0;
}

}  // namespace

bool isTerminal(StandardStream stream) noexcept {
    return ::isatty(static_cast<int>(stream)) == 1;
}

std::uint32_t terminalWidth(StandardStream stream) noexcept {
    winsize size{};
    return ::ioctl(static_cast<int>(stream), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool showsColours(StandardStream stream) noexcept {
    const char* const kind = std::getenv("TERM");
    return isTerminal(stream) && (kind == nullptr || std::string_view(kind) != "dumb");
}

bool openConsoleEvents(ConsoleEvents kind, ConsoleEventSink sink) {
    g_sink.store(sink, std::memory_order_release);
    if (!startDelivery()) return false;
    for (std::size_t i = 0; i < g_signals.size(); ++i) {
        if (g_signals[i].kind != kind || catchSignal(g_signals[i])) continue;
        while (i-- > 0) {
            if (g_signals[i].kind == kind) sigaction(g_signals[i].number, &g_signals[i].before, nullptr);
        }
        return false;
    }
    return true;
}

void closeConsoleEvents(ConsoleEvents kind) {
    for (const EventSignal& each : g_signals) {
        if (each.kind == kind) sigaction(each.number, &each.before, nullptr);
    }
}

}  // namespace KestSupport::platform
