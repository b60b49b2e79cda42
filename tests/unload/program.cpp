// Loads and unloads the support library with another one that uses it, and links nothing of it. An unload takes it out
// of the process, with its threads and its memory; a thread that has used it lives on; and it can be loaded again. Run
// with the path of that other library. Prints what is wrong and returns 1, or waits in vain for the end of a thread.
#include <dlfcn.h>
#include <link.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <latch>
#include <thread>

// Defined in a program that a sanitizer checks.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    std::printf("%s\n", what);
    std::exit(1);
}

bool isLoaded() {
    const auto isOurs = [](dl_phdr_info* info, std::size_t, void*) {
        return std::strstr(info->dlpi_name, "libkestsupport") != nullptr ? 1 : 0;
    };
    return dl_iterate_phdr(isOurs, nullptr) != 0;
}

auto threadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}
decltype(threadCount()) threadsBefore;

// AddressSanitizer keeps memory of its own for each load; there its check for leaks looks instead.
std::size_t memoryInUse() {
    if (&__sanitizer_get_current_allocated_bytes != nullptr) return 0;
    const auto information = mallinfo2();
    return information.uordblks + information.hblkhd;
}

// One life of the library, used by this thread and, if that is wanted, by another one, which outlives the unload.
void loadAndUnload(const char* path, bool withThread) {
    void* const library = dlopen(path, RTLD_NOW);
    require(library != nullptr && isLoaded(), "cannot be loaded");
    const auto use = reinterpret_cast<bool (*)()>(dlsym(library, "useLibrary"));
    std::latch used(withThread ? 1 : 0), mayEnd(1);
    std::thread user;
    if (withThread) {
        user = std::thread([&] {
            require(use(), "does not work in another thread");
            used.count_down();
            mayEnd.wait();
        });
    }
    require(use(), "does not work");
    used.wait();
    dlclose(library);
    require(!isLoaded(), "is still loaded after the unload");
    // A thread that has left all code is still listed for a moment.
    while (threadCount() != threadsBefore + withThread)
        std::this_thread::yield();
    mayEnd.count_down();
    if (withThread) user.join();
}

}  // namespace

int main(int, char** arguments) {
    require(!isLoaded(), "is loaded by the program itself");
    std::thread([] {}).join();  // a sanitizer adds a thread of its own to the first one
    threadsBefore = threadCount();
    for (const bool withThread : {false, true}) {
        constexpr std::size_t kFirst = 20, kMeasured = 400;
        for (std::size_t round = 0; round < kFirst; ++round)
            loadAndUnload(arguments[1], withThread);
        const std::size_t before = memoryInUse();
        for (std::size_t round = 0; round < kMeasured; ++round)
            loadAndUnload(arguments[1], withThread);
        // The smallest block takes 32 bytes. What the C runtime keeps for the next thread varies a little.
        const std::size_t after = memoryInUse();
        std::printf("%zu bytes before, %zu after\n", before, after);
        require(after < before + 16 * kMeasured, "leaves memory at each unload");
    }
    return 0;
}
