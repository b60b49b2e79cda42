// Files as streams of the C runtime: opening them so that child processes do not inherit them, and moving whole blocks.
//
// A stream is closed by its owner, once. It has no buffer of its own; callers move large blocks. One stream is for one
// thread at a time. Other openers may read and write the file meanwhile.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace KestSupport::platform {

enum class StreamMode {
    kReadBinary,
    kWriteText,    ///< created or truncated; a line feed becomes the platform's line end
    kWriteBinary,  ///< created or truncated; bytes are written as they are
};

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// Null, with errno set, when the file cannot be opened; a folder cannot.
Stream openStream(const char* name, StreamMode mode) noexcept;

/// Reads until the block is full or the file ends, and returns the number of bytes. `failed` becomes true when the
/// medium ended the reading; else it is left alone. A signal does not end it, nor a write.
std::size_t readStream(std::FILE* stream, char* block, std::size_t size, bool& failed) noexcept;

/// Whether all of the block was handed to the system.
bool writeStream(std::FILE* stream, const char* block, std::size_t size) noexcept;

/// Closes the stream; false when what was written is lost.
bool closeStream(Stream stream) noexcept;

}  // namespace KestSupport::platform
