#include <cerrno>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "support/exceptions.h"
#include "support/utilities.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr internal::LogLevel kLogTrace = internal::LogLevel::trace;
constexpr internal::LogLevel kLogUnreadable = internal::LogLevel::failure;
using platform::kNameSeparator;

constexpr char kNoDirectory[] = "KestRemoveDirectory: Could not remove the directory ";
constexpr char kNoFile[] = "KestRemoveDirectory: Could not remove the file ";

// Removes the contents of a folder. A list holds the folders from the start to the current one, instead of recursion,
// so the depth of the tree is not limited.
class TreeRemoval {
  public:
    /// The walk has started at the path and has not moved.
    TreeRemoval(platform::TreeWalk& walk, const std::string& path) : m_walk(walk), m_path(path) {}

    /// Returns false with a text when a file of the folder itself cannot be removed. Throws for a failure in a
    /// subfolder. A subfolder that cannot be read or whose name begins with '.' stays.
    bool run(std::string& errorText) {
        m_folders.emplace_back(m_path.size());
        if (!removeFiles(errorText)) return false;
        while (!m_folders.empty()) {
            Folder& current = m_folders.back();
            if (current.next < current.subfolders.size()) {
                removeSubfolder(current.subfolders[current.next++]);
            } else {
                leave();
            }
        }
        return true;
    }

  private:
    struct Folder {
        explicit Folder(std::size_t length) : pathLength(length) {}
        std::size_t pathLength;
        std::vector<std::string> subfolders;
        std::size_t next = 0;
    };

    // Removes the files of the current folder and collects its subfolders.
    bool removeFiles(std::string& errorText) {
        platform::TreeWalk::Entry entry;
        while (m_walk.next(entry)) {
            if (entry.isDirectory) {
                if (entry.name[0] != '.') m_folders.back().subfolders.emplace_back(entry.name);
                continue;
            }
            if (internal::isLogged(kLogTrace)) {
                internal::logRecord(kLogTrace, "KestRemoveDirectory: Delete file ",
                                    m_path + kNameSeparator + entry.name);
            }
            if (m_walk.removeFile(entry.name) == 0) continue;
            errorText = kNoFile + m_path + kNameSeparator + entry.name;
            return false;
        }
        return true;
    }

    void removeSubfolder(const std::string& name) {
        const std::size_t pathLength = m_path.size();
        m_path.append(1, kNameSeparator).append(name);
        internal::logRecord(kLogTrace, "KestRemoveDirectory: Remove directoryImpl ", m_path);
        const int error = m_walk.removeFolder(name.c_str());
        if (error != 0 && error != ENOTEMPTY) throw KestException(kNoDirectory + m_path, error);
        // An unreadable folder stays; the removal of its parent reports that.
        if (error == 0 || !m_walk.descend(name.c_str())) {
            m_path.resize(pathLength);
            return;
        }
        m_folders.emplace_back(pathLength);
        std::string errorText;
        if (!removeFiles(errorText)) throw KestException(errorText, 0);
    }

    // Returns to the parent and removes the current folder, except the first one.
    void leave() {
        const std::size_t parentLength = m_folders.back().pathLength;
        m_folders.pop_back();
        if (m_folders.empty()) return;
        const std::string name = m_path.substr(parentLength + 1);
        if (!m_walk.ascend() || m_walk.removeFolder(name.c_str()) != 0) throw KestException(kNoDirectory + m_path, 0);
        m_path.resize(parentLength);
    }

    platform::TreeWalk& m_walk;
    std::string m_path;  // of the current folder
    std::vector<Folder> m_folders;
};

}  // namespace

bool KestCreateDirectory(const std::string& path) {
    internal::logRecord(kLogTrace, "KestCreateDirectory: ", path);
    int error = platform::makeDirectory(path);
    if (error == 0) return true;
    if (error != ENOENT) return error == EEXIST || platform::pathExists(path);
    std::string copy = path;
    for (std::size_t end = 0; end != std::string::npos;) {
        end = platform::findSeparator(copy, end + 1);
        const std::string prefix = copy.substr(0, end);
        error = platform::makeDirectory(prefix);
        if (error != 0 && error != EEXIST && !platform::pathExists(prefix)) {
            internal::logRecord(kLogTrace, "KestCreateDirectory: couldn't create ", prefix, " (", error, ")");
            return false;
        }
        if (end != std::string::npos) copy[end] = '/';
    }
    return true;
}

bool KestRemoveDirectoryImpl(const std::string& path, bool recursive, std::string& errorText, int& errorCode) {
    internal::logRecord(kLogTrace, "KestRemoveDirectory: Remove directoryImpl ", path);
    const int error = platform::removeDirectory(path);
    if (error == 0) return true;
    if (error != ENOTEMPTY || !recursive) {
        errorText = kNoDirectory + path;
        errorCode = error;
        return false;
    }
    {
        platform::TreeWalk walk;
        if (const int unreadable = walk.start(path); unreadable != 0) {
            internal::logRecord(kLogUnreadable, "KestRemoveDirectory: Could not read the directory ", path, " (",
                                unreadable, ")");
            return true;
        }
        if (!TreeRemoval(walk, path).run(errorText)) return false;
    }
    if (platform::removeDirectory(path) == 0) return true;
    errorText = kNoDirectory + path;
    return false;
}

void KestRemoveDirectory(const std::string& path, bool recursive) {
    std::string errorText;
    int errorCode = 0;
    if (!KestRemoveDirectoryImpl(path, recursive, errorText, errorCode)) throw KestException(errorText, errorCode);
}

}  // namespace KestSupport
