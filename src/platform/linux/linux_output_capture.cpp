#include "platform/output_capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

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

std::string OutputCapture::text(std::size_t most) const {
    std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(size(), most)), '\0');
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = uninterrupted([&] {
            return ::pread(static_cast<int>(m_handle), text.data() + done, text.size() - done,
                           static_cast<off_t>(done));
        });
        if (count <= 0) break;  // a program has made the file shorter
        done += static_cast<std::size_t>(count);
    }
    text.resize(done);
    return text;
}

}  // namespace KestSupport::platform
