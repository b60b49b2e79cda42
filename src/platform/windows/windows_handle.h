// Handles of the system: one that closes itself, and their forms in the contracts.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/wait.h"

namespace KestSupport::platform {

/// A handle of the system with an owner. Null and INVALID_HANDLE_VALUE mean that there is none.
class SystemHandle {
  public:
    SystemHandle() noexcept = default;
    explicit SystemHandle(HANDLE handle) noexcept : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    SystemHandle(SystemHandle&& other) noexcept : m_handle(other.release()) {}
    SystemHandle& operator=(SystemHandle&& other) noexcept {
        if (this != &other) {
            close();
            m_handle = other.release();
        }
        return *this;
    }
    ~SystemHandle() { close(); }

    bool isOpen() const noexcept { return m_handle != nullptr; }
    HANDLE get() const noexcept { return m_handle; }
    HANDLE release() noexcept { return std::exchange(m_handle, nullptr); }
    void close() noexcept {
        if (m_handle != nullptr) CloseHandle(release());
    }

  private:
    HANDLE m_handle = nullptr;
};

struct LocalFreer {
    void operator()(void* memory) const noexcept { LocalFree(memory); }
};
/// Memory that the system has allocated for its caller.
template <typename T>
using LocalMemory = std::unique_ptr<T, LocalFreer>;

/// The contracts keep handles as wait handles or as numbers.
inline HANDLE systemHandle(WaitHandle handle) noexcept {
    return static_cast<HANDLE>(static_cast<void*>(handle));
}
inline HANDLE systemHandle(std::intptr_t handle) noexcept {
    return reinterpret_cast<HANDLE>(handle);
}

/// Of this process: 0 is input, 1 output, 2 error. Null or INVALID_HANDLE_VALUE if there is none.
inline HANDLE standardHandle(std::size_t index) noexcept {
    constexpr DWORD numbers[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    return GetStdHandle(numbers[index]);
}

/// Another handle of the same object; not open if the system refuses.
inline SystemHandle duplicateOf(HANDLE handle, bool isInheritable = false) noexcept {
    const HANDLE process = GetCurrentProcess();
    HANDLE duplicate = nullptr;
    DuplicateHandle(process, handle, process, &duplicate, 0, isInheritable, DUPLICATE_SAME_ACCESS);
    return SystemHandle(duplicate);
}

}  // namespace KestSupport::platform
