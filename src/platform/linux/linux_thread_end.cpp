// The report of the end of a thread, by a thread-specific value. The system destroys the value after the C++
// thread-local objects of the thread. A thread-local object of the library would keep the library loaded until the last
// thread with such an object ends. A key can be deleted, and the threads that continue are forgotten.
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/emulated/thread_record.h"
#include "platform/linux/linux_thread_object.h"
#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

// Created before the static objects of the library and deleted after them.
constinit pthread_key_t g_endKey{};
constinit bool g_endKeyMade = false;

[[gnu::constructor(101)]] void makeEndKey() noexcept {
    g_endKeyMade = pthread_key_create(&g_endKey, [](void*) { announceEnd(t_record); }) == 0;
}

// No thread that still runs uses the library after this.
[[gnu::destructor(101)]] void deleteEndKey() noexcept {
    if (g_endKeyMade) pthread_key_delete(g_endKey);
    deleteProcessMemory();
}

}  // namespace

bool onThreadEnd(ThreadRecord& self) noexcept {
    return g_endKeyMade && pthread_setspecific(g_endKey, &self) == 0;
}

unsigned currentProcessor() noexcept {
    return static_cast<unsigned>(sched_getcpu());
}

std::uint32_t systemThreadId() noexcept {
    // The kernel's number of the clock of a thread has the id in its upper bits, inverted. The C library knows it
    // without a system call.
    clockid_t clock{};
    if (pthread_getcpuclockid(pthread_self(), &clock) != 0) return static_cast<std::uint32_t>(syscall(SYS_gettid));
    return static_cast<std::uint32_t>(~(clock >> 3));
}

}  // namespace KestSupport::platform
