// A program that does nothing, to measure the start of a process: once with the C++ runtime alone, once linked with the
// library. With the name of a library as its argument it loads that library and prints the nanoseconds of the load.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>

#ifdef KEST_LINKED
#include "support/utilities.h"

// Uses the library, so that the program needs it.
const auto kUsed = &KestSupport::KestExecuteProgram;
#endif

int main(int argc, char** argv) {
    if (argc < 2) return 0;
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    if (dlopen(argv[1], RTLD_NOW) == nullptr) return 1;
    const std::chrono::nanoseconds elapsed = Clock::now() - begin;
    std::printf("%lld\n", static_cast<long long>(elapsed.count()));
    return 0;
}
