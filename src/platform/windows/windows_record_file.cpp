#include "platform/record_file.h"

#include <io.h>

#include <algorithm>
#include <array>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

HANDLE systemHandle(std::intptr_t handle) noexcept {
    return reinterpret_cast<HANDLE>(handle);
}

// Returns whether all of the bytes were taken.
bool writeBytes(HANDLE file, const char* bytes, std::size_t size) noexcept {
    while (size > 0) {
        DWORD taken = 0;
        const auto most = static_cast<DWORD>(std::min<std::size_t>(size, 1u << 30));
        if (injectedFault("writeRecords") != 0 || !WriteFile(file, bytes, most, &taken, nullptr) || taken == 0)
            return false;
        bytes += taken;
        size -= taken;
    }
    return true;
}

// Writes a line feed as the system's line end. A record that fits into the block is one write.
std::size_t writeAsText(HANDLE file, std::string_view text) noexcept {
    std::array<char, 65536> block;
    std::size_t done = 0;
    while (done < text.size()) {
        std::size_t used = 0;
        std::size_t next = done;
        for (; next < text.size() && used + 2 <= block.size(); ++next) {
            if (text[next] == '\n') block[used++] = '\r';
            block[used++] = text[next];
        }
        if (!writeBytes(file, block.data(), used)) break;
        done = next;
    }
    return done;
}

}  // namespace

// Appending alone is asked for, so each write goes to the end of the file in one step.
bool RecordFile::open(const char* name) noexcept {
    if (const int error = injectedFault("openRecordFile"); error != 0) {
        errno = error;
        return false;
    }
    try {
        const std::wstring path = systemPath(name);
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            errno = ELOOP;
            return false;
        }
        SystemHandle created(CreateFileW(path.c_str(), FILE_APPEND_DATA | GENERIC_WRITE,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!created.isOpen()) {
            errno = errnoFromError(GetLastError());
            return false;
        }
        created.close();
        const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            errno = errnoFromError(GetLastError());
            return false;
        }
        m_handle = reinterpret_cast<std::intptr_t>(file);
        return true;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

void RecordFile::close() noexcept {
    if (isOpen()) CloseHandle(systemHandle(m_handle));
    m_handle = -1;
}

std::size_t RecordFile::write(std::string_view text) noexcept {
    return writeAsText(systemHandle(m_handle), text);
}

// Past the runtime's streams, whose lock a killed thread would keep.
std::size_t writeAfter(std::FILE* stream, std::string_view text) noexcept {
    if (std::fflush(stream) != 0) std::clearerr(stream);
    const int descriptor = _fileno(stream);
    const std::intptr_t handle = descriptor < 0 ? -1 : _get_osfhandle(descriptor);
    if (handle > 0) return writeAsText(systemHandle(handle), text);
    const std::size_t taken = std::fwrite(text.data(), 1, text.size(), stream);
    return std::fflush(stream) == 0 ? taken : 0;
}

}  // namespace KestSupport::platform
