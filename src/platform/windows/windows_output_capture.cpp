#include "platform/output_capture.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr DWORD kAnySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

}  // namespace

OutputCapture::~OutputCapture() {
    if (m_handle != kInheritHandle) CloseHandle(systemHandle(m_handle));
}

// The system deletes the file after its last handle was closed.
ErrorCode OutputCapture::open() {
    static std::atomic<unsigned> s_number{0};
    std::array<wchar_t, MAX_PATH + 1> folder{};
    SystemHandle file;
    const ErrorCode error = errorCall("openCapture", [&] {
        if (GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()) == 0) return false;
        const std::wstring name = std::wstring(folder.data()) + L"kest-" + std::to_wstring(GetCurrentProcessId()) +
                                  L"-" + std::to_wstring(s_number++);
        file = SystemHandle(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, kAnySharing, nullptr,
                                        CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        return file.isOpen();
    });
    if (error == errorSuccess) m_handle = reinterpret_cast<std::intptr_t>(file.release());
    return error;
}

std::uint64_t OutputCapture::size() const noexcept {
    LARGE_INTEGER size{};
    return GetFileSizeEx(systemHandle(m_handle), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

// A handle of its own has a position of its own, so the read does not move the position at which the programs write.
std::string OutputCapture::text(std::size_t most) const {
    const SystemHandle file(ReOpenFile(systemHandle(m_handle), GENERIC_READ, kAnySharing, 0));
    if (!file.isOpen()) return {};
    std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(size(), most)), '\0');
    std::size_t done = 0;
    while (done < text.size()) {
        constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(text.size() - done, kMostAtOnce));
        if (!ReadFile(file.get(), text.data() + done, wanted, &count, nullptr) || count == 0) break;
        done += count;
    }
    text.resize(done);
    return text;
}

}  // namespace KestSupport::platform
