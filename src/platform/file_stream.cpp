#include "platform/file_stream.h"

#include "platform/fault_seam.h"

namespace KestSupport::platform {

std::size_t readStream(std::FILE* stream, char* block, std::size_t size, bool& failed) noexcept {
    if (injectedFault("fread") != 0) {
        failed = true;
        return 0;
    }
    const std::size_t count = std::fread(block, 1, size, stream);
    if (count < size && std::ferror(stream) != 0) failed = true;
    return count;
}

bool writeStream(std::FILE* stream, const char* block, std::size_t size) noexcept {
    if (injectedFault("fwrite") != 0) return false;
    return std::fwrite(block, 1, size, stream) == size;
}

bool closeStream(Stream stream) noexcept {
    const bool closed = std::fclose(stream.release()) == 0;
    return closed && injectedFault("fclose") == 0;
}

}  // namespace KestSupport::platform
