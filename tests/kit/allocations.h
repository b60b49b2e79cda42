// Lets a test watch the allocations of its program, stop a thread in one, or make one fail. A program that links
// kit/allocations.cc has operator new and delete from there.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kit {

/// Calls a function before each allocation while the object lives. False makes the allocation fail; a null function
/// accepts all. The newest object counts, and its end restores the one before.
class AllocationHook {
  public:
    using Function = bool (*)(std::size_t size);

    explicit AllocationHook(Function function) noexcept : m_former(s_function.exchange(function)) {}
    AllocationHook(const AllocationHook&) = delete;
    AllocationHook& operator=(const AllocationHook&) = delete;
    ~AllocationHook() { s_function = m_former; }

    static bool accepts(std::size_t size) {
        const Function function = s_function;
        return function == nullptr || function(size);
    }

  private:
    inline static std::atomic<Function> s_function{nullptr};
    const Function m_former;
};

/// The number of allocations of the whole program that are not released.
inline std::atomic<std::int64_t> g_liveAllocations{0};

}  // namespace kit
