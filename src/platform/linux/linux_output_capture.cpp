#include "platform/output_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

// Since Linux 6.3. A system may refuse memory files without it.
constexpr unsigned int kNeverExecuted = 8;

// Older systems do not know the flag.
int createFile() noexcept {
    const int file = ::memfd_create("kest-output", MFD_CLOEXEC | kNeverExecuted);
    return file >= 0 || errno != EINVAL ? file : ::memfd_create("kest-output", MFD_CLOEXEC);
}

}  // namespace

OutputCapture::~OutputCapture() {
    if (m_handle >= 0) ::close(static_cast<int>(m_handle));
}

// A program may open its output again, which then has a position of its own. With O_APPEND it overwrites nothing.
ErrorCode OutputCapture::open() {
    Descriptor file(systemCall("openCapture", createFile));
    if (!file.isOpen() || ::fcntl(file.get(), F_SETFL, O_APPEND) != 0) return systemFailure();
    m_handle = file.release();
    return errorSuccess;
}

std::uint64_t OutputCapture::size() const noexcept {
    struct stat status {};
    return ::fstat(static_cast<int>(m_handle), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::size_t OutputCapture::read(std::uint64_t position, char* block, std::size_t size) const noexcept {
    const ssize_t count =
        uninterrupted([&] { return ::pread(static_cast<int>(m_handle), block, size, static_cast<off_t>(position)); });
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace KestSupport::platform
