// What the embedded service manager asks of the system: files, folders, byte-range locks and processes here, messages
// in channel.h. The folder of the system's back end implements both; src/platform/services makes no other system call.
//
//   SystemHandle    a resource of the system, with an owner
//   File            reads, writes, and locks of single bytes
//   Folder          its entries, reached without following a symbolic link
//   endProgram      and other calls for processes
//
// A name has no separator. A name that leads to something of another kind than the call expects, such as a symbolic
// link or a folder in place of a file, gives errorInvalidData. Error numbers are those of platform/error.h.
//
// Handles are not inherited by child programs; a process made by fork has copies of them.
//
// Threads: const calls may run concurrently; the others need the object to themselves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace KestSupport::platform {

/// Closes the resource when it is destroyed.
class SystemHandle {
  public:
    SystemHandle() noexcept = default;
    explicit SystemHandle(std::intptr_t native) noexcept : m_native(native) {}
    SystemHandle(SystemHandle&& other) noexcept : m_native(std::exchange(other.m_native, kNone)) {}
    SystemHandle& operator=(SystemHandle&& other) noexcept {
        std::swap(m_native, other.m_native);
        return *this;
    }
    ~SystemHandle() { close(); }

    /// The system's own handle, for ProcessRequest and the back end.
    std::intptr_t native() const noexcept { return m_native; }
    bool isOpen() const noexcept { return m_native != kNone; }
    void close() noexcept;
    /// Leaves the resource to the caller.
    std::intptr_t release() noexcept { return std::exchange(m_native, kNone); }

  private:
    static constexpr std::intptr_t kNone = -1;
    std::intptr_t m_native = kNone;
};

enum class FileUse {
    read,
    readAndWrite,
    create,   ///< reads and writes; makes the file when it is missing
    replace,  ///< writes to an empty file; makes it when it is missing
    append,   ///< each write goes to the end; makes the file when it is missing
};

struct FileFacts {
    std::uint64_t device;
    std::uint64_t number;  ///< on the device
    std::uint64_t size;    ///< bytes
    bool isRegular;        ///< not a pipe or a device
    bool isNamed;          ///< a folder has it

    bool isSameFile(const FileFacts& other) const noexcept { return device == other.device && number == other.number; }
};

/// The locks belong to the handle, to its copies in forked processes and to those that a message delivers, not to a
/// process. A lock disappears when its last handle is closed, however the processes end.
class File : public SystemHandle {
  public:
    using SystemHandle::SystemHandle;

    /// Reads from the current position to the end. Stops after more than `limit` bytes.
    Result<std::string> readAll(std::size_t limit) const;
    /// Reads the beginning of the file, up to the size of `bytes`. Returns the number of bytes.
    Result<std::size_t> readStart(std::span<char> bytes) const noexcept;
    /// Writes all bytes at the current position.
    ErrorCode write(std::string_view bytes) const noexcept;
    /// Replaces the first bytes in one step; errorDiskFull when not all fit.
    ErrorCode writeStart(std::string_view bytes) const noexcept;

    Result<FileFacts> facts() const noexcept;

    /// errorBusy when another handle has the lock. Does not wait.
    ErrorCode lockByte(std::int64_t offset) const noexcept;
    /// Locks a byte that no other handle locks. Makes one system call and nothing else, for a process between fork and
    /// the execution of a program.
    void markByte(std::int64_t offset) const noexcept;
    /// Up to the end when the length is 0.
    void unlock(std::int64_t offset, std::int64_t length) const noexcept;
    /// The offset of a byte that another handle has locked, among `length` bytes or, when that is 0, up to the end.
    /// Of several locks any one may be found.
    Result<std::optional<std::int64_t>> findLock(std::int64_t offset, std::int64_t length) const noexcept;
};

using UserId = std::uint32_t;
inline constexpr UserId kAdministrator = 0;

struct FolderAccess {
    UserId owner;
    bool othersMayWrite;  ///< users other than the owner and the administrator
};

class Folder : public SystemHandle {
  public:
    using SystemHandle::SystemHandle;

    /// The path may have symbolic links.
    static Result<Folder> open(const std::string& path);

    Result<Folder> openParent() const;
    Result<Folder> openFolder(const std::string& name) const;
    Result<File> openFile(const char* name, FileUse use) const;
    /// Opens a file of one of the folders for reading; errorFileNotFound also when there is no such folder.
    Result<File> openFile(const std::string& folder, const char* name) const;
    /// The names of the folders in it, in any order.
    Result<std::vector<std::string>> folders() const;
    Result<FolderAccess> access() const noexcept;

    /// Makes a folder for this user alone, unless the name exists.
    ErrorCode makeFolder(const char* name) const noexcept;
    /// Gives a file other contents, through a second file `next`. Whenever the system stops, the file on the disk has
    /// either the old contents or the new ones.
    ErrorCode replaceFile(const char* name, const char* next, std::string_view bytes) const;
    /// Replaces a file of the second name.
    ErrorCode renameFile(const char* from, const char* to) const noexcept;
    /// 0 also when nothing has the name.
    ErrorCode removeFile(const char* name) const noexcept;
    ErrorCode removeFolder(const char* name) const noexcept;
    /// Waits until the folder's entries are on the disk.
    ErrorCode flush() const noexcept;

    /// Takes the folder's only lock, which closing the result releases. errorBusy when another handle has it; does not
    /// wait.
    Result<SystemHandle> lock() const;
};

/// A device that reads as empty and takes any output. Not open when the system refuses.
SystemHandle openNullDevice() noexcept;

/// Whether the file is the standard output or error of this process.
bool isStandardOutput(const File& file) noexcept;
/// Standard output and error, where they are the file `from`, become the file `to`, between two writes of this process.
void redirectStandardOutput(const File& from, const File& to) noexcept;

UserId currentUser() noexcept;
std::uint32_t currentProcess() noexcept;

/// Whether the process was started as a detached program (ProcessRequest). Fails when there is no such process.
Result<bool> isDetached(std::uint32_t process) noexcept;

enum class EndMode {
    request,  ///< as a supervisor asks a program to end
    kill,
};

/// Ends the process and its group: the processes that it has started and that have not left the group. They can outlive
/// it. A process of this process's own group ends alone. 0 also when there is no such process.
ErrorCode endProgram(std::uint32_t process, EndMode mode) noexcept;

/// Installs functions that run around each fork of this process until it ends: before it, and after it in the parent
/// and in the child.
ErrorCode installForkHandlers(void (*before)(), void (*inParent)(), void (*inChild)()) noexcept;

}  // namespace KestSupport::platform
