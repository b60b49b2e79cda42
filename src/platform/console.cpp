#include "platform/console.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

// Stays: an event may arrive while static objects are being destroyed.
struct HandlerList {
    std::mutex lock;  // guards everything below and the back end's calls; never held while a handler runs
    std::condition_variable handlerReturned;
    std::vector<ConsoleHandler> handlers;
    ConsoleHandler running = nullptr;
    std::thread::id runner;
};

constinit ProcessObject<HandlerList> g_list;

HandlerList& list() {
    return g_list.get();
}

// Walks a copy: a handler may change the list. One that has been removed meanwhile is passed over.
void offerToHandlers(std::uint32_t event) {
    HandlerList& all = list();
    std::unique_lock guard(all.lock);
    all.runner = std::this_thread::get_id();
    const std::vector<ConsoleHandler> offered = all.handlers;
    bool taken = false;
    for (auto handler = offered.rbegin(); handler != offered.rend() && !taken; ++handler) {
        if (std::find(all.handlers.begin(), all.handlers.end(), *handler) == all.handlers.end()) continue;
        all.running = *handler;
        guard.unlock();
        taken = (*handler)(event);
        guard.lock();
        all.running = nullptr;
        all.handlerReturned.notify_all();
    }
    if (!taken) giveFormerEffect(event);
}

}  // namespace

bool addConsoleHandler(ConsoleHandler handler) {
    HandlerList& all = list();
    const std::lock_guard guard(all.lock);
    if (all.handlers.empty() && !openConsoleEvents(offerToHandlers)) return false;
    all.handlers.push_back(handler);
    return true;
}

bool removeConsoleHandler(ConsoleHandler handler) {
    HandlerList& all = list();
    std::unique_lock guard(all.lock);
    const auto latest = std::find(all.handlers.rbegin(), all.handlers.rend(), handler);
    if (latest == all.handlers.rend()) return false;
    all.handlers.erase(std::next(latest).base());
    if (all.handlers.empty()) closeConsoleEvents();
    const bool inHandler = all.running != nullptr && all.runner == std::this_thread::get_id();
    if (!inHandler) all.handlerReturned.wait(guard, [&] { return all.running != handler; });
    return true;
}

}  // namespace KestSupport::platform
