#include "support/terminate_handler.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>

#include "platform/type_names.h"
#include "support/exceptions.h"

namespace KestSupport {
namespace {

std::atomic<std::terminate_handler> g_next{nullptr};

// The end of a process may have any reason, so a second failure here must not hide the first.
void showCurrentException() noexcept {
    try {
        throw;
    } catch (const KestException& failure) {
        try {
            const std::string line = "Uncaught " + platform::readableTypeName(typeid(failure)) + ": " +
                                     failure.getText() + " (code " + std::to_string(failure.getCode()) + ")\n";
            std::fputs(line.c_str(), stderr);
            std::fflush(stderr);
        } catch (...) {
            return;
        }
    } catch (...) {
        return;
    }
}

[[noreturn]] void showAndEnd() {
    if (std::current_exception() != nullptr) showCurrentException();
    if (const std::terminate_handler next = g_next.load(); next != nullptr) next();
    std::abort();
}

}  // namespace

void kestShowUncaughtExceptions() noexcept {
    // The present handler may be one of the program that calls this one.
    static constinit std::atomic<bool> isInstalled{false};
    if (isInstalled.exchange(true)) return;
    g_next = std::get_terminate();
    std::set_terminate(showAndEnd);
}

}  // namespace KestSupport
