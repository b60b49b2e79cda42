#include "kit/allocations.h"

#include <cstdlib>
#include <new>

namespace {

void* allocate(std::size_t size) {
    if (!kit::AllocationHook::accepts(size)) return nullptr;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) ++kit::g_liveAllocations;
    return memory;
}

// The address of the block is stored before the aligned memory.
void* allocate(std::size_t size, std::align_val_t alignment) {
    const auto step = static_cast<std::size_t>(alignment);
    char* const block = static_cast<char*>(allocate(size + step + sizeof(void*)));
    if (block == nullptr) return nullptr;
    const auto first = reinterpret_cast<std::uintptr_t>(block) + sizeof(void*);
    char* const memory = block + sizeof(void*) + (step - first % step) % step;
    reinterpret_cast<void**>(memory)[-1] = block;
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
    return throwUnless(allocate(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, alignment);
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
    if (memory != nullptr) release(static_cast<void**>(memory)[-1]);
}
void operator delete(void* memory, std::size_t, std::align_val_t alignment) noexcept {
    operator delete(memory, alignment);
}
