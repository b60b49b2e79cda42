#include "platform/output_capture.h"

#include <algorithm>
#include <array>

#include "platform/common/new_file_name.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

OutputCapture::~OutputCapture() {
    if (m_handle != kInheritHandle) CloseHandle(systemHandle(m_handle));
}

// The system deletes the file after its last handle was closed. A program of an ended process with the number of this
// one may still have such a handle; then access to the name is denied.
ErrorCode OutputCapture::open() {
    std::array<wchar_t, MAX_PATH + 1> folder{};
    SystemHandle file;
    const auto create = [&](const std::wstring& path) {
        file = SystemHandle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, kAnySharing, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        const DWORD refusal = GetLastError();
        errno = refusal == ERROR_ACCESS_DENIED ? EEXIST : errnoFromError(refusal);
        return file.isOpen();
    };
    const ErrorCode error = errorCall("openCapture", [&] {
        return GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()) != 0 &&
               !createWithNewName(std::wstring(folder.data()), GetCurrentProcessId(), create).empty();
    });
    if (error == errorSuccess) m_handle = reinterpret_cast<std::intptr_t>(file.release());
    return error;
}

std::uint64_t OutputCapture::size() const noexcept {
    LARGE_INTEGER size{};
    return GetFileSizeEx(systemHandle(m_handle), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

// A handle of its own has a position of its own, so the read does not move the position at which the programs write.
std::size_t OutputCapture::read(std::uint64_t position, char* block, std::size_t size) const noexcept {
    const SystemHandle file(ReOpenFile(systemHandle(m_handle), GENERIC_READ, kAnySharing, 0));
    OVERLAPPED from{};
    from.Offset = static_cast<DWORD>(position);
    from.OffsetHigh = static_cast<DWORD>(position >> 32);
    DWORD count = 0;
    ReadFile(file.get(), block, static_cast<DWORD>(std::min(size, kMostAtOnce)), &count, &from);
    return count;
}

}  // namespace KestSupport::platform
