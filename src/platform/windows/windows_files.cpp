// Folders by handles: each folder on the way of a walk is held open without the permission to rename or delete it, so
// no part of the path can be replaced until the walk has left it.
#include "platform/files.h"

#include <new>
#include <vector>

#include "platform/text.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr DWORD kLinkOrFolder = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

constexpr char kMark = '?';

struct FindCloser {
    void operator()(void* search) const noexcept { FindClose(search); }
};

// The entries of a folder that match a pattern, which is the last name of the path.
class EntryReader {
  public:
    /// Returns false for a folder that cannot be read.
    bool start(const std::wstring& pattern, const char* step = "openDirectory") noexcept {
        m_search.reset();
        m_hasFirst = false;
        m_error = errnoCall(step, [&] {
            const HANDLE search = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &m_entry, FindExSearchNameMatch,
                                                   nullptr, FIND_FIRST_EX_LARGE_FETCH);
            if (search == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
            m_search.reset(search);
            m_hasFirst = true;
            return true;
        });
        return m_error == 0;
    }

    /// Null at the end, or when the folder cannot be read any further.
    const WIN32_FIND_DATAW* next() noexcept {
        if (m_search == nullptr) return nullptr;
        if (!m_hasFirst) {
            bool isEnd = false;
            m_error = errnoCall("readDirectory", [&] {
                if (FindNextFileW(m_search.get(), &m_entry)) return true;
                isEnd = GetLastError() == ERROR_NO_MORE_FILES;
                return isEnd;
            });
            if (isEnd || m_error != 0) return nullptr;
        }
        m_hasFirst = false;
        return &m_entry;
    }

    int error() const noexcept { return m_error; }

  private:
    std::unique_ptr<void, FindCloser> m_search;
    WIN32_FIND_DATAW m_entry{};
    bool m_hasFirst = false;
    int m_error = 0;
};

bool isLink(const std::wstring& path) noexcept {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

}  // namespace

const char kNameSeparator = '\\';

std::size_t findSeparator(std::string_view path, std::size_t from) noexcept {
    const CodePage codePage = ansiCodePage();
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (i >= from && (path[i] == '\\' || path[i] == '/')) return i;
        if (IsDBCSLeadByteEx(codePage, static_cast<BYTE>(path[i]))) ++i;
    }
    return std::string_view::npos;
}

int makeDirectory(const std::string& path) {
    const std::wstring name = systemPath(path);
    return errnoCall("makeDirectory", [&] { return CreateDirectoryW(name.c_str(), nullptr) != 0; });
}

int removeDirectory(const std::string& path) {
    const std::wstring name = systemPath(path);
    if (isLink(name)) return ENOTDIR;
    return errnoCall("removeDirectory", [&] { return RemoveDirectoryW(name.c_str()) != 0; });
}

// Links are followed, which the query of attributes does not do.
bool pathExists(const std::string& path) {
    const std::wstring name = systemPath(path);
    return errorCall("pathExists", [&] {
               const DWORD attributes = GetFileAttributesW(name.c_str());
               if (attributes == INVALID_FILE_ATTRIBUTES) return false;
               if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return true;
               return SystemHandle(CreateFileW(name.c_str(), 0, kAnySharing, nullptr, OPEN_EXISTING,
                                               FILE_FLAG_BACKUP_SEMANTICS, nullptr))
                   .isOpen();
           }) == errorSuccess;
}

struct FileSearch::State {
    EntryReader reader;
};

FileSearch::FileSearch() = default;
FileSearch::~FileSearch() = default;

int FileSearch::start(const std::string& pattern) {
    m_state = std::make_unique<State>();
    m_state->reader.start(systemPath(pattern));
    return m_state->reader.error();
}

bool FileSearch::next(std::string& name) {
    const WIN32_FIND_DATAW* const entry = m_state == nullptr ? nullptr : m_state->reader.next();
    if (entry == nullptr) return false;
    name = ansiText(entry->cFileName);
    return true;
}

int FileSearch::error() const noexcept {
    return m_state == nullptr ? 0 : m_state->reader.error();
}

struct TreeWalk::State {
    struct Folder {
        std::wstring path;  // with its separator at the end
        SystemHandle held;
    };

    // The name of an entry in the ANSI code page. For one that the code page lacks, it ends with a mark that no name of
    // a file contains, and a number.
    std::string entryName(const wchar_t* name) {
        std::string shown = ansiText(name);
        if (wideText(shown) == name) return shown;
        shown.append(1, kMark).append(std::to_string(otherNames.size()));
        otherNames.emplace_back(name);
        return shown;
    }

    std::wstring pathOf(std::string_view entry) const {
        const std::size_t mark = entry.rfind(kMark);
        const std::wstring& path = folders.back().path;
        if (mark == std::string_view::npos) return path + wideText(entry);
        return path + otherNames[std::stoul(std::string(entry.substr(mark + 1)))];
    }

    int enter(std::wstring path) {
        SystemHandle held;
        const int error = errnoCall("openDirectory", [&] {
            held = SystemHandle(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                            nullptr, OPEN_EXISTING, kLinkOrFolder, nullptr));
            return held.isOpen();
        });
        if (error != 0) return error;
        BY_HANDLE_FILE_INFORMATION information;
        if (!GetFileInformationByHandle(held.get(), &information)) return EIO;
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return ELOOP;
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return ENOTDIR;
        // The root of a drive has a separator. In a path without the limit, two are no path.
        if (path.back() != L'\\') path += L'\\';
        if (!reader.start(path + L'*', "readDirectory")) return reader.error();
        folders.push_back({std::move(path), std::move(held)});
        return 0;
    }

    std::vector<Folder> folders;
    EntryReader reader;
    std::string latest;                    // name of the latest entry
    std::vector<std::wstring> otherNames;  // that the ANSI code page lacks
};

TreeWalk::TreeWalk() = default;
TreeWalk::~TreeWalk() = default;

int TreeWalk::start(const std::string& path) {
    m_state = std::make_unique<State>();
    return m_state->enter(folderPath(path));
}

bool TreeWalk::next(Entry& entry) {
    while (const WIN32_FIND_DATAW* const found = m_state->reader.next()) {
        const std::wstring_view name = found->cFileName;
        if (name == L"." || name == L"..") continue;
        m_state->latest = m_state->entryName(found->cFileName);
        constexpr DWORD linkedFolder = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
        entry = {m_state->latest.c_str(), (found->dwFileAttributes & linkedFolder) == FILE_ATTRIBUTE_DIRECTORY};
        return true;
    }
    return false;
}

bool TreeWalk::descend(const char* name) {
    return m_state->enter(m_state->pathOf(name)) == 0;
}

bool TreeWalk::ascend() {
    m_state->folders.pop_back();
    m_state->reader = EntryReader();
    return !m_state->folders.empty();
}

// A link to a folder counts as a file, but only the call for folders removes it.
int TreeWalk::removeFile(const char* name) noexcept try {
    const std::wstring path = m_state->pathOf(name);
    return errnoCall("removeEntry", [&] {
        const DWORD attributes = GetFileAttributesW(path.c_str());
        const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        return (isFolder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str())) != 0;
    });
} catch (const std::bad_alloc&) {
    return ENOMEM;
}

int TreeWalk::removeFolder(const char* name) noexcept try {
    const std::wstring path = m_state->pathOf(name);
    return errnoCall("removeEntry", [&] { return RemoveDirectoryW(path.c_str()) != 0; });
} catch (const std::bad_alloc&) {
    return ENOMEM;
}

}  // namespace KestSupport::platform
