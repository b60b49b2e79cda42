// Folders: creating and removing them, searching for names in them, and walking through a tree to remove it.
//
// Both '\' and '/' separate the names of a path. The name of an entry, which comes from the system, may contain any
// character that the system allows; it is never read as a path.
//
// Threads: one thread at a time may use an object. Any thread may call the functions. Failures are values of the C
// runtime's errno; 0 is success.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace KestSupport::platform {

/// Back end: stands between the names in the texts about removed folders.
extern const char kNameSeparator;

/// Back end: returns the position of the first separator of names at or after `from`, or npos. In a code page of the
/// system, the second byte of a character may be that of '\', which is then no separator.
std::size_t findSeparator(std::string_view path, std::size_t from) noexcept;

/// Creates one folder. ENOENT if its parent does not exist.
int makeDirectory(const std::string& path);

/// Removes an empty folder; ENOTEMPTY for another. Does not follow a link.
int removeDirectory(const std::string& path);

/// Returns whether the path exists. Follows links.
bool pathExists(const std::string& path);

/// A search for the names in one folder that match a pattern: '*' matches any characters, '?' one character. Only the
/// last name of the path is a pattern. "." and ".." are found like other names. Upper and lower case differ if they do
/// in the system's file names. Windows searches by its own rules, by which a pattern may also match a file's short
/// name, and '?' at the end of a name no character.
class FileSearch {
  public:
    FileSearch();
    FileSearch(const FileSearch&) = delete;
    FileSearch& operator=(const FileSearch&) = delete;
    ~FileSearch();

    /// Begins the search. May be called once.
    int start(const std::string& pattern);
    /// Stores the next name, in the system's order. Returns false if there is none, or if the rest of the folder cannot
    /// be read.
    bool next(std::string& name);
    /// Why next returned false; 0 at the end of the folder.
    int error() const noexcept;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// A walk through a tree to remove it. The walk has a current folder, whose entries it reads and removes. It never
/// leaves the tree, even if another process replaces a folder by a link. It needs few system resources at any depth.
class TreeWalk {
  public:
    struct Entry {
        const char* name = nullptr;  ///< valid until the next call
        bool isDirectory = false;    ///< false for a link
    };

    TreeWalk();
    TreeWalk(const TreeWalk&) = delete;
    TreeWalk& operator=(const TreeWalk&) = delete;
    ~TreeWalk();

    /// Makes the path the current folder; ELOOP or ENOTDIR if it is a link. May be called once.
    int start(const std::string& path);
    /// Stores the next entry of the current folder, without "." and "..". Returns false if there is none, or if the
    /// rest of the folder cannot be read. The caller may remove entries between two calls.
    bool next(Entry& entry);
    /// Makes an entry the current folder. Requires that next has reported the end of the present one. Returns false,
    /// and changes nothing, if the entry is a link or cannot be read.
    bool descend(const char* name);
    /// Makes the parent the current folder again; its entries have been read. Returns false if the parent has
    /// disappeared, which ends the walk.
    bool ascend();

    /// Removes an entry of the current folder. Where the system protects read-only files, they stay (EACCES).
    int removeFile(const char* name) noexcept;
    int removeFolder(const char* name) noexcept;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace KestSupport::platform
