// Folders by descriptors. The entries of an open folder are reached from its descriptor and not by their paths. So if
// another process replaces a folder by a link, the link is not followed.
#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

constexpr mode_t kAllPermissions = 0777;
constexpr std::size_t kBlockSize = 65536;
// The open folders of a walk. The others are opened again from their children.
constexpr std::size_t kOpenFolders = 16;

std::string systemPath(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

int resultOf(int result) noexcept {
    return result == 0 ? 0 : errno;
}

Descriptor openFolder(int parent, const char* name, int flags) noexcept {
    return Descriptor(systemCall("openDirectory",
                                 [&] { return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags); }));
}

// Reads the entries of an open folder in large blocks.
class EntryReader {
  public:
    /// Returns the next entry, or null at the end of the folder or if the rest cannot be read. After null the reader
    /// may read another folder.
    const dirent64* next(int folder) noexcept {
        if (m_position == m_size && !fill(folder)) return nullptr;
        const auto* const entry = reinterpret_cast<const dirent64*>(m_block.data() + m_position);
        m_position += entry->d_reclen;
        return entry;
    }

    /// Why next returned null; 0 at the end of the folder.
    int error() const noexcept { return m_error; }

  private:
    bool fill(int folder) noexcept {
        const long size = systemCall("readDirectory",
                                     [&] { return ::syscall(SYS_getdents64, folder, m_block.data(), m_block.size()); });
        m_error = size < 0 ? errno : 0;
        m_position = 0;
        m_size = size > 0 ? static_cast<std::size_t>(size) : 0;
        return m_size != 0;
    }

    // The memory is aligned for an entry, and the kernel aligns the entries within the block.
    std::vector<char> m_block = std::vector<char>(kBlockSize);
    std::size_t m_position = 0;
    std::size_t m_size = 0;
    int m_error = 0;
};

bool isFolder(int parent, const dirent64& entry) noexcept {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status {};
    return systemCall("entryKind", [&] { return ::fstatat(parent, entry.d_name, &status, AT_SYMLINK_NOFOLLOW); }) ==
               0 &&
           S_ISDIR(status.st_mode);
}

// Returns the length of the first character: a sequence of UTF-8, or a single byte.
std::size_t characterLength(std::string_view text) noexcept {
    const auto isPart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
    const std::string_view parts = text.substr(1, length - 1);
    return parts.size() == length - 1 && std::all_of(parts.begin(), parts.end(), isPart) ? length : 1;
}

// Returns whether the pattern matches the whole name. Only the last '*' needs another try: a longer match of an earlier
// '*' cannot succeed if that of the last one fails.
bool matches(std::string_view pattern, std::string_view name) noexcept {
    constexpr std::size_t kNone = std::string_view::npos;
    std::size_t at = 0;
    std::size_t afterStar = kNone;
    std::string_view afterMatch;  // the name after the text that the star matches
    while (!name.empty()) {
        if (at < pattern.size() && pattern[at] == '*') {
            afterStar = ++at;
            afterMatch = name;
        } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == name.front())) {
            name.remove_prefix(pattern[at] == '?' ? characterLength(name) : 1);
            ++at;
        } else if (afterStar != kNone) {
            afterMatch.remove_prefix(1);
            name = afterMatch;
            at = afterStar;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == kNone;
}

}  // namespace

const char kNameSeparator = '/';

std::size_t findSeparator(std::string_view path, std::size_t from) noexcept {
    return path.find_first_of("\\/", from);
}

int makeDirectory(const std::string& path) {
    const std::string name = systemPath(path);
    return resultOf(systemCall("makeDirectory", [&] { return ::mkdir(name.c_str(), kAllPermissions); }));
}

int removeDirectory(const std::string& path) {
    const std::string name = systemPath(path);
    return resultOf(systemCall("removeDirectory", [&] { return ::rmdir(name.c_str()); }));
}

bool pathExists(const std::string& path) {
    const std::string name = systemPath(path);
    return systemCall("pathExists", [&] { return ::access(name.c_str(), F_OK); }) == 0;
}

struct FileSearch::State {
    std::string pattern;
    Descriptor folder;
    EntryReader reader;
};

FileSearch::FileSearch() = default;
FileSearch::~FileSearch() = default;

int FileSearch::start(const std::string& pattern) {
    m_state = std::make_unique<State>();
    const std::string path = systemPath(pattern);
    const std::size_t name = path.rfind('/') + 1;
    m_state->pattern = path.substr(name);
    m_state->folder = openFolder(AT_FDCWD, name == 0 ? "." : path.substr(0, name).c_str(), 0);
    return m_state->folder.isOpen() ? 0 : errno;
}

bool FileSearch::next(std::string& name) {
    if (m_state == nullptr) return false;
    while (const dirent64* const entry = m_state->reader.next(m_state->folder.get())) {
        if (!matches(m_state->pattern, entry->d_name)) continue;
        name = entry->d_name;
        return true;
    }
    return false;
}

int FileSearch::error() const noexcept {
    return m_state == nullptr ? 0 : m_state->reader.error();
}

struct TreeWalk::State {
    struct Folder {
        Descriptor descriptor;
        dev_t device = 0;  // with the number: identifies a closed folder
        ino_t number = 0;
    };

    static bool identify(int descriptor, dev_t& device, ino_t& number) noexcept {
        struct stat status {};
        if (systemCall("identifyDirectory", [&] { return ::fstat(descriptor, &status); }) != 0) return false;
        device = status.st_dev;
        number = status.st_ino;
        return true;
    }

    int current() const noexcept { return folders.back().descriptor.get(); }

    // Closes the folder that is too far above, unless it cannot be identified.
    void closeFarFolder() noexcept {
        if (folders.size() <= kOpenFolders) return;
        Folder& far = folders[folders.size() - 1 - kOpenFolders];
        if (!far.descriptor.isOpen() || !identify(far.descriptor.get(), far.device, far.number)) return;
        const Descriptor closed = std::move(far.descriptor);
    }

    std::vector<Folder> folders;
    EntryReader reader;
};

TreeWalk::TreeWalk() = default;
TreeWalk::~TreeWalk() = default;

int TreeWalk::start(const std::string& path) {
    m_state = std::make_unique<State>();
    std::string name = systemPath(path);
    // A separator at the end would make the system follow a link.
    while (name.size() > 1 && name.back() == '/')
        name.pop_back();
    Descriptor folder = openFolder(AT_FDCWD, name.c_str(), O_NOFOLLOW);
    if (!folder.isOpen()) return errno;
    m_state->folders.push_back({std::move(folder)});
    return 0;
}

bool TreeWalk::next(Entry& entry) {
    while (const dirent64* const found = m_state->reader.next(m_state->current())) {
        const std::string_view name = found->d_name;
        if (name == "." || name == "..") continue;
        entry = {found->d_name, isFolder(m_state->current(), *found)};
        return true;
    }
    return false;
}

bool TreeWalk::descend(const char* name) {
    Descriptor folder = openFolder(m_state->current(), name, O_NOFOLLOW);
    if (!folder.isOpen()) return false;
    m_state->folders.push_back({std::move(folder)});
    m_state->closeFarFolder();
    return true;
}

bool TreeWalk::ascend() {
    const State::Folder left = std::move(m_state->folders.back());
    m_state->folders.pop_back();
    State::Folder& parent = m_state->folders.back();
    if (parent.descriptor.isOpen()) return true;
    parent.descriptor = openFolder(left.descriptor.get(), "..", O_NOFOLLOW);
    dev_t device = 0;
    ino_t number = 0;
    return parent.descriptor.isOpen() && State::identify(parent.descriptor.get(), device, number) &&
           device == parent.device && number == parent.number;
}

int TreeWalk::removeFile(const char* name) noexcept {
    return resultOf(systemCall("removeEntry", [&] { return ::unlinkat(m_state->current(), name, 0); }));
}

int TreeWalk::removeFolder(const char* name) noexcept {
    return resultOf(systemCall("removeEntry", [&] { return ::unlinkat(m_state->current(), name, AT_REMOVEDIR); }));
}

}  // namespace KestSupport::platform
