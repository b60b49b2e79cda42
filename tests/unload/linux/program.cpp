// Loads and unloads a plug-in, and with it the support library, which this program does not link. Tests that the unload
// removes the library from the process, with its threads and memory, that a thread that has used it can continue, and
// that it can be loaded again. Run with the plug-in's path. Prints a failure and returns 1, or waits for a thread that
// does not end.
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

// Only a sanitizer defines it.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    std::printf("%s\n", what);
    std::exit(1);
}

// The plug-in with the static library is itself what has the library.
bool isLoaded() {
    const auto isOurs = [](dl_phdr_info* info, std::size_t, void*) {
        const char* const name = info->dlpi_name;
        return std::strstr(name, "libkestsupport") != nullptr || std::strstr(name, "static_plugin") != nullptr ? 1 : 0;
    };
    return dl_iterate_phdr(isOurs, nullptr) != 0;
}

auto threadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}
decltype(threadCount()) threadsBefore;

// AddressSanitizer itself keeps memory for each load. With it, its leak check finds what the library leaves.
std::size_t memoryInUse() {
    if (&__sanitizer_get_current_allocated_bytes != nullptr) return 0;
    const auto information = mallinfo2();
    return information.uordblks + information.hblkhd;
}

// Loads, uses and unloads the library. Optionally another thread uses it too and ends after the unload.
void loadAndUnload(const char* path, bool withThread) {
    void* const library = dlopen(path, RTLD_NOW);
    require(library != nullptr && isLoaded(), "the library cannot be loaded");
    const auto use = reinterpret_cast<bool (*)()>(dlsym(library, "useLibrary"));
    std::latch used(withThread ? 1 : 0), mayEnd(1);
    std::thread user;
    if (withThread) {
        user = std::thread([&] {
            require(use(), "the library does not work on another thread");
            used.count_down();
            mayEnd.wait();
        });
    }
    require(use(), "the library does not work");
    used.wait();
    dlclose(library);
    require(!isLoaded(), "the library is still loaded after the unload");
    // The system lists a thread until shortly after its end.
    while (threadCount() != threadsBefore + withThread)
        std::this_thread::yield();
    mayEnd.count_down();
    if (withThread) user.join();
}

}  // namespace

int main(int, char** arguments) {
    require(!isLoaded(), "the program itself loads the library");
    std::thread([] {}).join();  // with the first thread a sanitizer starts another one
    threadsBefore = threadCount();
    for (const bool withThread : {false, true}) {
        constexpr std::size_t kFirst = 20, kMeasured = 400;
        for (std::size_t round = 0; round < kFirst; ++round)
            loadAndUnload(arguments[1], withThread);
        const std::size_t before = memoryInUse();
        for (std::size_t round = 0; round < kMeasured; ++round)
            loadAndUnload(arguments[1], withThread);
        // The smallest block takes 32 bytes, so a leak in each round exceeds this limit. What the C runtime keeps for
        // the next thread varies.
        const std::size_t after = memoryInUse();
        std::printf("%zu bytes before, %zu after\n", before, after);
        require(after < before + 16 * kMeasured, "each unload leaves memory");
    }
    return 0;
}
