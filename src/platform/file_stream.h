// Files as streams of the C runtime that child processes do not inherit, and transfers of whole blocks.
//
// The owner of a stream closes it once. A stream has no buffer: callers transfer large blocks. One thread at a time may
// use a stream. Other openers may read and write the file concurrently.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace KestSupport::platform {

enum class StreamMode {
    readBinary,
    writeText,    ///< created or truncated; a line feed becomes the platform's line end
    writeBinary,  ///< created or truncated; bytes are not changed
};

struct StreamCloser {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// Returns null and sets errno if the file cannot be opened. A folder cannot.
Stream openStream(const char* name, StreamMode mode) noexcept;

/// Reads until the block is full or the file ends, and returns the number of bytes. Sets `failed` to true if a read
/// failed, and else does not write it. A signal interrupts neither this function nor writeStream.
std::size_t readStream(std::FILE* stream, char* block, std::size_t size, bool& failed) noexcept;

/// Returns whether the system took the whole block.
bool writeStream(std::FILE* stream, const char* block, std::size_t size) noexcept;

/// Closes the stream. Returns false if written bytes are lost.
bool closeStream(Stream stream) noexcept;

}  // namespace KestSupport::platform
