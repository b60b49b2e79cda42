#include "faults/failing_allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace faults {

void* FailingAllocations::allocate(std::size_t size, std::size_t alignment) noexcept {
    if (const std::int64_t first = s_first; first != 0) {
        const std::int64_t number = ++s_seen;
        if (number == first || (s_fromThenOn && number > first)) return nullptr;
    }
    const std::size_t whole = (size + alignment - 1) / alignment * alignment;
    void* const memory = alignment <= alignof(std::max_align_t) ? std::malloc(size == 0 ? 1 : size)
                                                                : std::aligned_alloc(alignment, whole);
    if (memory != nullptr) ++s_alive;
    return memory;
}

void FailingAllocations::release(void* memory) noexcept {
    if (memory != nullptr) --s_alive;
    std::free(memory);
}

namespace {

void* allocateOrThrow(std::size_t size, std::size_t alignment = 1) {
    void* const memory = FailingAllocations::allocate(size, alignment);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace
}  // namespace faults

using faults::FailingAllocations;

// The forms for arrays and the sized forms of the standard library call these.
void* operator new(std::size_t size) {
    return faults::allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return FailingAllocations::allocate(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return faults::allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return FailingAllocations::allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    FailingAllocations::release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    FailingAllocations::release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    FailingAllocations::release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    FailingAllocations::release(memory);
}
