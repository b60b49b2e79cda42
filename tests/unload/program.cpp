// Loads and unloads the support library with another one that uses it, and links nothing of it. An unload takes it out
// of the process, with its threads; a thread that has used it lives on; and it can be loaded again. Run with the path
// of that other library. Says what is wrong and returns 1, or waits in vain for the end of a thread.
#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <latch>
#include <thread>

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

}  // namespace

int main(int, char** arguments) {
    require(!isLoaded(), "is loaded by the program itself");
    std::thread([] {}).join();  // a sanitizer adds a thread of its own to the first one
    const auto threadsBefore = threadCount();
    for (int round = 0; round < 50; ++round) {
        void* const library = dlopen(arguments[1], RTLD_NOW);
        require(library != nullptr && isLoaded(), "cannot be loaded");
        const auto use = reinterpret_cast<bool (*)()>(dlsym(library, "useLibrary"));
        std::latch used(1), mayEnd(1);
        std::thread user([&] {
            require(use(), "does not work in another thread");
            used.count_down();
            mayEnd.wait();
        });
        require(use(), "does not work");
        used.wait();
        dlclose(library);
        require(!isLoaded(), "is still loaded after the unload");
        // A thread that has left all code is still listed for a moment.
        while (threadCount() != threadsBefore + 1)
            std::this_thread::yield();
        mayEnd.count_down();
        user.join();
    }
    return 0;
}
