// Folders: making and removing them, looking for names in them, and walking through a tree to remove it.
//
// Both '\' and '/' separate the names in a path that is given here. Names that come from the system, and those that are
// given back to it for an entry, may have any characters that the system allows; they are never taken for paths.
//
// Threads: each object is for one thread at a time; the rest may be called by any thread. Failures are told by the
// values of the C runtime's errno; 0 is success.
#pragma once

#include <memory>
#include <string>

namespace KestSupport::platform {

/// Makes one folder. Its parent exists, else ENOENT.
int makeDirectory(const std::string& path);

/// Removes an empty folder (ENOTEMPTY for another), never what a link leads to.
int removeDirectory(const std::string& path);

/// Whether the path leads to anything, links followed.
bool pathExists(const std::string& path);

/// A search for the names in one folder that match a pattern: '*' stands for any characters, '?' for one. Only the last
/// name of the pattern is one; what stands before it is a path. "." and ".." are found like others. Case counts as it
/// does in the system's file names.
class FileSearch {
  public:
    FileSearch();
    FileSearch(const FileSearch&) = delete;
    FileSearch& operator=(const FileSearch&) = delete;
    ~FileSearch();

    /// Begins a search. Once per object.
    int start(const std::string& pattern);
    /// The next name, in the system's order; false when there is none, or the folder cannot be read any further.
    bool next(std::string& name);
    /// Why next has returned false; 0 at the end of the folder.
    int error() const noexcept;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// A walk through a tree for its removal. It has a current folder, whose entries it reads and removes; nobody who
/// replaces a folder by a link meanwhile leads it out of the tree. It needs few system resources at any depth.
class TreeWalk {
  public:
    struct Entry {
        const char* name = nullptr;  ///< good until the next call
        bool isDirectory = false;    ///< a link is none, wherever it leads
    };

    TreeWalk();
    TreeWalk(const TreeWalk&) = delete;
    TreeWalk& operator=(const TreeWalk&) = delete;
    ~TreeWalk();

    /// Makes the path the current folder; ELOOP or ENOTDIR when it is a link. Once per object.
    int start(const std::string& path);
    /// The next entry of the current folder, without "." and ".."; false when there is none, or the folder cannot be
    /// read any further. Entries may be removed meanwhile.
    bool next(Entry& entry);
    /// Makes an entry the current folder, when next has told the end of the present one; false, and nothing changed,
    /// when it cannot be read, or is a link.
    bool descend(const char* name);
    /// Makes the parent the current folder again; its entries have been read. False when it is not there any more: the
    /// walk is over then.
    bool ascend();

    /// Removes an entry of the current folder.
    int removeFile(const char* name) noexcept;
    int removeFolder(const char* name) noexcept;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace KestSupport::platform
