// Hearing of the end of a thread, through a thread-specific value. The system destroys it after the thread's C++
// thread-local objects. (A thread-local object of the library would keep the library loaded until the last thread that
// has one ends. A key is simply deleted, and threads that run on are forgotten.)
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/emulated/thread_record.h"
#include "platform/linux/linux_thread_object.h"
#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

// Made before the library's static objects and deleted after them.
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

bool hearThreadEnd(ThreadRecord& self) noexcept {
    return g_endKeyMade && pthread_setspecific(g_endKey, &self) == 0;
}

std::uint32_t systemThreadId() noexcept {
    return static_cast<std::uint32_t>(syscall(SYS_gettid));
}

}  // namespace KestSupport::platform
