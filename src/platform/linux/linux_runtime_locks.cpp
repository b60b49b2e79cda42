// A thread in the code of the C or C++ runtime may hold a lock of the allocator. A thread that waits in a system call
// does not, since the system calls of the allocator do not wait.
#include "platform/linux/linux_runtime_locks.h"

#include <link.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "platform/linux/linux_sanitizers.h"

namespace KestSupport::platform {
namespace {

// The code of the C and C++ runtimes, which hold locks that every thread needs.
class RuntimeCode {
  public:
    void find() noexcept { dl_iterate_phdr(&RuntimeCode::visit, this); }

    bool contains(std::uintptr_t address) const noexcept {
        return std::any_of(m_ranges.begin(), m_ranges.begin() + static_cast<std::ptrdiff_t>(m_count),
                           [=](const Range& range) { return address - range.begin < range.size; });
    }

  private:
    struct Range {
        std::uintptr_t begin;
        std::size_t size;
    };

    static int visit(dl_phdr_info* info, std::size_t, void* self) {
        const std::string_view name = info->dlpi_name == nullptr ? "" : info->dlpi_name;
        constexpr std::array<std::string_view, 7> kRuntimes{"/libc.so",   "/ld-linux",  "/libstdc++", "/libgcc_s",
                                                            "/libc++.so", "/libc++abi", "/libasan"};
        if (std::none_of(kRuntimes.begin(), kRuntimes.end(),
                         [&](std::string_view part) { return name.find(part) != std::string_view::npos; })) {
            return 0;
        }
        auto& code = *static_cast<RuntimeCode*>(self);
        for (int i = 0; i < info->dlpi_phnum && code.m_count < code.m_ranges.size(); ++i) {
            const auto& header = info->dlpi_phdr[i];
            if (header.p_type != PT_LOAD || (header.p_flags & PF_X) == 0) continue;
            code.m_ranges[code.m_count++] = {info->dlpi_addr + header.p_vaddr, header.p_memsz};
        }
        return 0;
    }

    std::array<Range, 16> m_ranges{};
    std::size_t m_count = 0;
};

constinit RuntimeCode g_runtimeCode;

// The lock of a stream in the C library. Its header does not define the type.
struct StreamLock {
    int state;
    int levels;
    void* owner;
};

struct LockedStream {
    FILE* stream = nullptr;
    const volatile StreamLock* lock = nullptr;  // null if the lock of the C library has another form

    bool isHeldByCaller() const noexcept {
        return lock != nullptr && lock->owner == reinterpret_cast<void*>(pthread_self());
    }
};

enum StreamIndex : std::size_t { output, errors, input };
constinit std::array<LockedStream, 3> g_streams{};  // written when the library is loaded

// Runs when the library is loaded, since no thread may be terminated during the search while it holds a lock.
[[gnu::constructor(101)]] void findRuntimeLocks() noexcept {
    g_runtimeCode.find();
#if defined(__GLIBC__)
    const std::array<FILE*, 3> streams{stdout, stderr, stdin};
    for (std::size_t i = 0; i < streams.size(); ++i) {
        if (streams[i] == nullptr || ftrylockfile(streams[i]) != 0) continue;
        const LockedStream candidate{streams[i], static_cast<const StreamLock*>(streams[i]->_lock)};
        if (candidate.isHeldByCaller() && candidate.lock->levels == 1) g_streams[i] = candidate;
        funlockfile(streams[i]);
    }
#endif
}

}  // namespace

bool mayHoldRuntimeLock(const void* context) noexcept {
    if (g_streams[output].isHeldByCaller() || g_streams[errors].isHeldByCaller()) return true;
#if defined(__x86_64__)
    // ThreadSanitizer delivers signals at safe places only.
    if (kSanitizerDefersSignals) return false;
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    const auto address = static_cast<std::uintptr_t>(registers[REG_RIP]);
    if (!g_runtimeCode.contains(address)) return false;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the register holds the address of code
    const auto* const code = reinterpret_cast<const unsigned char*>(address);
    const auto isSystemCall = [](const unsigned char* instruction) {
        return instruction[0] == 0x0F && instruction[1] == 0x05;
    };
    if (isSystemCall(code - 2) && registers[REG_RAX] == -EINTR) return false;
    if (!isSystemCall(code)) return true;
    constexpr std::array<long long, 6> kAllocatorCalls{SYS_mmap,    SYS_munmap, SYS_mremap,
                                                       SYS_madvise, SYS_brk,    SYS_mprotect};
    return std::find(kAllocatorCalls.begin(), kAllocatorCalls.end(), registers[REG_RAX]) != kAllocatorCalls.end();
#else
    // The place is unknown on this processor.
    static_cast<void>(context);
    return false;
#endif
}

void releaseStandardStreams() noexcept {
    for (const LockedStream& standard : g_streams) {
        if (!standard.isHeldByCaller()) continue;
        for (int levels = standard.lock->levels; levels > 0; --levels)
            funlockfile(standard.stream);
    }
}

}  // namespace KestSupport::platform
