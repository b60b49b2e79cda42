#include "platform/file_replacement.h"

#include <new>
#include <vector>

#include "platform/common/new_file_name.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_file_stream.h"

namespace KestSupport::platform {
namespace {

// Returns the path up to and with its last separator; "" for a bare name.
std::wstring folderOf(const std::wstring& path) {
    return path.substr(0, path.find_last_of(L"/\\:") + 1);
}

template <typename Call>
bool succeeds(const char* step, Call&& call) {
    const int error = errnoCall(step, call);
    return error == 0 || failWith(error);
}

// Replaces the path by that of the file to which it leads. Returns false if it leads to no file that can be written.
bool followLinks(std::wstring& path, bool& exists) {
    if (path.empty()) return failWith(ENOENT);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (!exists) return true;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return failWith(EISDIR);
    SystemHandle file;
    const auto openToWrite = [&] {
        file = SystemHandle(CreateFileW(path.c_str(), GENERIC_WRITE, kAnySharing, nullptr, OPEN_EXISTING, 0, nullptr));
        return file.isOpen();
    };
    if (!succeeds("openReplacement", openToWrite)) return false;
    if (GetFileType(file.get()) != FILE_TYPE_DISK) return failWith(EINVAL);
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return true;
    std::vector<wchar_t> target(kLongestPath);
    const DWORD size = static_cast<DWORD>(target.size());
    const DWORD length = GetFinalPathNameByHandleW(file.get(), target.data(), size, FILE_NAME_NORMALIZED);
    if (length == 0 || length >= size) return failWith(EIO);
    path.assign(target.data(), length);
    return true;
}

SystemHandle createNewFile(const std::wstring& path) noexcept {
    SystemHandle file;
    succeeds("openReplacement", [&] {
        file = SystemHandle(
            CreateFileW(path.c_str(), GENERIC_WRITE, kAnySharing, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        return file.isOpen();
    });
    return file;
}

// Returns whether the new file takes no other file's place any more: the old one was removed, or the system has moved
// it away and then failed.
bool isOldGone(DWORD error) noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_UNABLE_TO_MOVE_REPLACEMENT ||
           error == ERROR_UNABLE_TO_MOVE_REPLACEMENT_2;
}

}  // namespace

struct FileReplacement::State {
    std::wstring path;     // of the file to replace
    std::wstring newPath;  // empty: there is no new file to remove
    bool exists = false;   // the file to replace
};

FileReplacement::FileReplacement() = default;

FileReplacement::~FileReplacement() {
    if (m_state != nullptr && !m_state->newPath.empty()) DeleteFileW(m_state->newPath.c_str());
}

Stream FileReplacement::open(const char* name, StreamMode mode) noexcept {
    try {
        m_state = std::make_unique<State>();
        m_state->path = lastingPath(name);  // for Wine too: its ReplaceFile refuses a relative path
        if (!followLinks(m_state->path, m_state->exists)) return nullptr;
        SystemHandle file;
        const auto create = [&](const std::wstring& newPath) {
            file = createNewFile(newPath);
            return file.isOpen();
        };
        m_state->newPath = createWithNewName(folderOf(m_state->path), GetCurrentProcessId(), create);
        return streamOf(std::move(file), mode);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

// The system flushes the bytes of a file through any handle, and reports what it could not write.
bool FileReplacement::commit() noexcept {
    State& state = *m_state;
    const wchar_t* const from = state.newPath.c_str();
    const wchar_t* const to = state.path.c_str();
    const auto flush = [&] {
        const SystemHandle file(CreateFileW(from, GENERIC_WRITE, kAnySharing, nullptr, OPEN_EXISTING, 0, nullptr));
        return file.isOpen() && FlushFileBuffers(file.get());
    };
    // Then the new file may be the only one that is left, so it stays.
    bool isOnlyCopy = false;
    const auto replace = [&] {
        if (state.exists && ReplaceFileW(to, from, nullptr, 0, nullptr, nullptr)) return true;
        isOnlyCopy = state.exists && isOldGone(GetLastError());
        if (state.exists && !isOnlyCopy) return false;
        return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    };
    const bool isDone = succeeds("flushReplacement", flush) && succeeds("replaceFile", replace);
    if (isDone || isOnlyCopy) state.newPath.clear();
    return isDone;
}

}  // namespace KestSupport::platform
