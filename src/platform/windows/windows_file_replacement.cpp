#include "platform/file_replacement.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <atomic>
#include <new>
#include <vector>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr DWORD kAnySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool failWith(int error) noexcept {
    errno = error;
    return false;
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
    std::vector<wchar_t> target(32768);
    const DWORD size = static_cast<DWORD>(target.size());
    const DWORD length = GetFinalPathNameByHandleW(file.get(), target.data(), size, FILE_NAME_NORMALIZED);
    if (length == 0 || length >= size) return failWith(EIO);
    path.assign(target.data(), length);
    return true;
}

// Creates a file with a name that no other file has, and returns its descriptor of the C runtime, or -1.
int createBeside(const std::wstring& path, int flags, std::wstring& name) {
    static std::atomic<unsigned> s_number{0};
    constexpr int kMostTries = 1000;  // against files that killed processes have left
    const std::wstring start =
        path.substr(0, path.find_last_of(L"/\\") + 1) + L".kest-" + std::to_wstring(GetCurrentProcessId()) + L"-";
    int file = -1;
    for (int i = 0; i < kMostTries && file < 0; ++i) {
        name = start + std::to_wstring(s_number++);
        if (const int error = injectedFault("openReplacement"); error != 0) {
            errno = error;
            return -1;
        }
        file = _wopen(name.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_NOINHERIT | flags, _S_IREAD | _S_IWRITE);
        if (file < 0 && errno != EEXIST) break;
    }
    return file;
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
        m_state->path = systemPath(name);
        if (!followLinks(m_state->path, m_state->exists)) return nullptr;
        const bool isText = mode == StreamMode::writeText;
        std::wstring newPath;
        const int file = createBeside(m_state->path, isText ? _O_TEXT : _O_BINARY, newPath);
        if (file < 0) return nullptr;
        m_state->newPath.swap(newPath);
        Stream stream(_wfdopen(file, isText ? L"wt" : L"wb"));
        if (stream == nullptr) {
            _close(file);
            return nullptr;
        }
        std::setvbuf(stream.get(), nullptr, _IONBF, 0);
        return stream;
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
    const auto replace = [&] {
        if (state.exists) return ReplaceFileW(to, from, nullptr, 0, nullptr, nullptr) != 0;
        return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    };
    if (!succeeds("flushReplacement", flush) || !succeeds("replaceFile", replace)) return false;
    state.newPath.clear();
    return true;
}

}  // namespace KestSupport::platform
