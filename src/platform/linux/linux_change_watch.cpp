#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "platform/emulated/change_watch.h"
#include "platform/fork.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

constexpr std::int64_t kValidTime = 1000;  // milliseconds
constexpr int kRarely = 64;                // a user may have 128 of these descriptors
constexpr int kLowestNumber = 512;         // of the descriptor; an opened file gets the lowest free number

constexpr std::uint32_t kChanges =
    IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;

std::int64_t now() noexcept {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

// Returns 0 for a descriptor that is not open.
std::uint64_t inodeOf(int descriptor) noexcept {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

// The number of waiting bytes is 0 until an event comes. Nothing is read, so the call changes nothing even if the
// program has closed the descriptor and opened another file under its number.
bool ChangeWatch::sawNoChange(const std::string& path) noexcept {
    int pending = 0;
    return m_descriptor >= 0 && now() - m_started < kValidTime && m_forks == forkCount() && path == m_path &&
           ::ioctl(m_descriptor, FIONREAD, &pending) == 0 && pending == 0;
}

void ChangeWatch::start(const std::string& path) {
    stop();
    if (m_asked < kRarely) {
        ++m_asked;
        return;
    }
    if (now() - m_started < kValidTime && m_path == path) return;
    m_path = path;
    m_started = now();
    Descriptor low(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    m_descriptor = ::fcntl(low.get(), F_DUPFD_CLOEXEC, kLowestNumber);
    if (m_descriptor < 0) m_descriptor = low.release();  // the process may not have as many
    if (m_descriptor < 0) return;
    m_inode = inodeOf(m_descriptor);
    m_forks = forkCount();
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    // The folder first: a file that replaces the watched one later changes the folder.
    if (::inotify_add_watch(m_descriptor, folder.c_str(), kChanges | IN_ONLYDIR) < 0 ||
        ::inotify_add_watch(m_descriptor, path.c_str(), kChanges) < 0)
        stop();
}

// A program may have closed the descriptor, for example every descriptor at its start. Then its number is not closed
// again. Several kinds of descriptors share an inode, but only this kind counts waiting bytes. The program's own ones
// of this kind have lower numbers.
void ChangeWatch::stop() noexcept {
    const int descriptor = std::exchange(m_descriptor, -1);
    int pending = 0;
    if (descriptor >= 0 && inodeOf(descriptor) == m_inode && ::ioctl(descriptor, FIONREAD, &pending) == 0)
        ::close(descriptor);
}

}  // namespace KestSupport::platform
