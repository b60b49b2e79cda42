#include "platform/processor.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <cpuid.h>
#endif

namespace KestSupport::platform {
namespace {

#if defined(__x86_64__) && defined(__GNUC__)
bool supportsWideVectors() noexcept {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0) return false;
    // The system must save the registers of 16 and of 32 bytes when it switches threads.
    constexpr unsigned kSaved = 2 | 4;
    asm volatile("xgetbv" : "=a"(a), "=d"(d) : "c"(0));
    if ((a & kSaved) != kSaved) return false;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
}
#else
bool supportsWideVectors() noexcept {
    return false;
}
#endif

}  // namespace

constinit std::atomic<Answer> g_wideVectors{Answer::unknown};

bool askForWideVectors() noexcept {
    const bool wide = supportsWideVectors();
    g_wideVectors.store(wide ? Answer::yes : Answer::no, std::memory_order_relaxed);
    return wide;
}

}  // namespace KestSupport::platform
