#include "platform/file_stream.h"

#include <cerrno>

#include "platform/common/fault_seam.h"

namespace KestSupport::platform {
namespace {

// Repeats a transfer that a signal interrupts, until all bytes are transferred or it fails. The stream has no buffer,
// so its counts are exact.
template <typename Move>
std::size_t transferWhole(std::FILE* stream, std::size_t size, Move&& move) noexcept {
    for (std::size_t done = 0;;) {
        errno = 0;
        done += move(done);
        if (done == size || std::ferror(stream) == 0 || errno != EINTR) return done;
        std::clearerr(stream);
    }
}

}  // namespace

std::size_t readStream(std::FILE* stream, char* block, std::size_t size, bool& failed) noexcept {
    if (injectedFault("readStream") != 0) {
        failed = true;
        return 0;
    }
    const std::size_t count =
        transferWhole(stream, size, [&](std::size_t done) { return std::fread(block + done, 1, size - done, stream); });
    if (count < size && std::ferror(stream) != 0) failed = true;
    return count;
}

bool writeStream(std::FILE* stream, const char* block, std::size_t size) noexcept {
    if (injectedFault("writeStream") != 0) return false;
    return transferWhole(stream, size,
                         [&](std::size_t done) { return std::fwrite(block + done, 1, size - done, stream); }) == size;
}

bool closeStream(Stream stream) noexcept {
    const bool closed = std::fclose(stream.release()) == 0;
    return closed && injectedFault("closeStream") == 0;
}

}  // namespace KestSupport::platform
