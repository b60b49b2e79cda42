#include "kit/allocations.h"

#include <cstdlib>
#include <new>

namespace {

void* allocate(std::size_t size, std::size_t alignment = 1) {
    if (!kit::AllocationHook::accepts(size)) return nullptr;
    const std::size_t whole = (size + alignment - 1) / alignment * alignment;
    void* const memory = alignment <= alignof(std::max_align_t) ? std::malloc(size == 0 ? 1 : size)
                                                                : std::aligned_alloc(alignment, whole);
    if (memory != nullptr) ++kit::g_liveAllocations;
    return memory;
}

void* throwUnless(void* memory) {
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void release(void* memory) noexcept {
    if (memory != nullptr) --kit::g_liveAllocations;
    std::free(memory);
}

}  // namespace

// The forms for arrays too, because a sanitizer has its own.
void* operator new(std::size_t size) {
    return throwUnless(allocate(size));
}
void* operator new[](std::size_t size) {
    return throwUnless(allocate(size));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return throwUnless(allocate(size, static_cast<std::size_t>(alignment)));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    release(memory);
}
