// Replaces a file by a new one in one step, so that every reader, also after a power failure, finds all of the old or
// all of the new content:
//
//     FileReplacement replacement;
//     Stream stream = replacement.open(name, StreamMode::writeBinary);
//     ... writeStream, closeStream ...
//     replacement.commit();
//
// Threads: one thread at a time may use an object. Several processes may replace one file; the last one wins.
#pragma once

#include <memory>

#include "platform/file_stream.h"

namespace KestSupport::platform {

class FileReplacement {
  public:
    FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    /// Removes the new file if it has not replaced the old one.
    ~FileReplacement();

    /// Creates the new file in the folder of the file to replace, and returns a stream to write it. If the name is a
    /// link, the file to which it leads is replaced; except on Windows it need not exist. Returns null and sets errno
    /// on failure: EACCES if the old file is not writable, EINVAL if it is neither a file nor a folder, EISDIR for a
    /// folder. May be called once. `mode` is one of those that write.
    ///
    /// The new file gets the owner, the group and the permissions of the old one, or fails; on Windows commit gives it
    /// the attributes and the access list.
    Stream open(const char* name, StreamMode mode) noexcept;

    /// Called once after the stream was closed. Flushes the new file to the disk, gives it the name of the old one, and
    /// flushes the folder where the system can do so. On failure returns false and sets errno. Then the old file is
    /// unchanged, except after a failure to flush the folder.
    bool commit() noexcept;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace KestSupport::platform
