// The list of console handlers. An event is offered to a copy of the list, since a handler may change the list.
#include "platform/console.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/process_memory.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

struct Registration {
    ConsoleHandler handler;
    ConsoleEvents kind;

    bool operator==(const Registration&) const = default;
};

// Never destroyed: an event may arrive during the destruction of static objects.
struct HandlerList {
    UninterruptedMutex lock;  // guards the members below and the calls of the back end; free while a handler runs
    std::condition_variable_any handlerReturned;
    std::vector<Registration> handlers;
    ConsoleHandler running = nullptr;
    std::thread::id runner;
};

constinit ProcessObject<HandlerList> g_list;

HandlerList& list() {
    return g_list.get();
}

bool hasHandlers(const HandlerList& all, ConsoleEvents kind) {
    return std::any_of(all.handlers.begin(), all.handlers.end(),
                       [&](const Registration& each) { return each.kind == kind; });
}

// Returns whether a handler took the event. Skips a handler that was removed after the copy was made.
bool offerToHandlers(std::uint32_t event) {
    HandlerList& all = list();
    std::unique_lock guard(all.lock);
    all.runner = std::this_thread::get_id();
    const ConsoleEvents kind = event == kConsoleReload ? ConsoleEvents::reload : ConsoleEvents::ending;
    const std::vector<Registration> offered = all.handlers;
    bool taken = false;
    for (auto each = offered.rbegin(); each != offered.rend() && !taken; ++each) {
        if (each->kind != kind) continue;
        if (std::find(all.handlers.begin(), all.handlers.end(), *each) == all.handlers.end()) continue;
        all.running = each->handler;
        guard.unlock();
        taken = each->handler(event);
        guard.lock();
        all.running = nullptr;
        all.handlerReturned.notify_all();
    }
    return taken;
}

}  // namespace

bool addConsoleHandler(ConsoleHandler handler, ConsoleEvents kind) {
    HandlerList& all = list();
    const std::lock_guard guard(all.lock);
    if (!hasHandlers(all, kind) && !openConsoleEvents(kind, offerToHandlers)) return false;
    all.handlers.push_back({handler, kind});
    return true;
}

bool removeConsoleHandler(ConsoleHandler handler) {
    HandlerList& all = list();
    std::unique_lock guard(all.lock);
    const auto latest = std::find_if(all.handlers.rbegin(), all.handlers.rend(),
                                     [&](const Registration& each) { return each.handler == handler; });
    if (latest == all.handlers.rend()) return false;
    const ConsoleEvents kind = latest->kind;
    all.handlers.erase(std::next(latest).base());
    if (!hasHandlers(all, kind)) closeConsoleEvents(kind);
    const bool inHandler = all.running != nullptr && all.runner == std::this_thread::get_id();
    if (!inHandler) all.handlerReturned.wait(guard, [&] { return all.running != handler; });
    return true;
}

}  // namespace KestSupport::platform
