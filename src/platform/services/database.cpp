#include "platform/services/database.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <new>

#include "platform/clock.h"
#include "platform/linux/linux_call.h"
#include "platform/services/messages.h"
#include "platform/state_directory.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr std::size_t kLongestFolderName = 200;  // leaves room below the 255 bytes of a file's name

std::uint64_t hashOf(const std::string& text) {
    std::uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (const char each : text)
        hash = (hash ^ static_cast<unsigned char>(each)) * 1099511628211U;
    return hash;
}

ErrorCode makeFolder(int parent, const char* name) {
    if (systemCall("mkdirat", [&] { return ::mkdirat(parent, name, kFolderMode); }) == 0 || errno == EEXIST) return 0;
    return errorFromErrno(errno);
}

ServiceStatus stoppedWith(ErrorCode exitCode) {
    ServiceStatus status;
    status.currentState = kServiceStopped;
    status.exitCode = exitCode;
    return status;
}

struct flock lockOn(short type, off_t start, off_t length) noexcept {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

// The bytes of a file, with one more than the limit when it has more.
ErrorCode readFile(int file, std::size_t limit, std::string& text) {
    char block[1024];
    ssize_t size = sizeof block;
    // A file that fills the block may be longer.
    while (size == static_cast<ssize_t>(sizeof block) && text.size() <= limit) {
        size = systemCall("read", [&] { return ::read(file, block, sizeof block); });
        if (size > 0) text.append(block, static_cast<std::size_t>(size));
    }
    if (size < 0) return errno == EISDIR ? errorInvalidData : errorFromErrno(errno);
    return 0;
}

struct FolderCloser {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

ErrorCode openFile(int folder, const std::string& path, int flags, Descriptor& file) {
    // Not to wait for the other end of what turns out to be a pipe.
    const int all = flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    file = Descriptor(systemCall("openat", [&] { return ::openat(folder, path.c_str(), all, S_IRUSR | S_IWUSR); }));
    if (file.isOpen()) return 0;
    for (const int notTheFile : {ELOOP, EISDIR, ENOTDIR, ENXIO}) {
        if (errno == notTheFile) return errorInvalidData;
    }
    return errorFromErrno(errno);
}

ErrorCode ServiceDatabase::open(std::shared_ptr<const ServiceDatabase>& database) {
    const auto opened = std::make_shared<ServiceDatabase>();
    std::string path;
    if (const ErrorCode error = createStateDirectory(path); error != 0) return error;
    std::error_code failure;
    opened->m_stateDirectory = std::filesystem::absolute(path, failure).string();
    if (failure) return errorFromErrno(failure.value());
    Descriptor state;
    const int folderFlags = O_RDONLY | O_DIRECTORY;
    state = Descriptor(
        systemCall("open", [&] { return ::open(opened->m_stateDirectory.c_str(), folderFlags | O_CLOEXEC); }));
    if (!state.isOpen()) return errorFromErrno(errno);

    struct stat status {};
    if (systemCall("fstat", [&] { return ::fstat(state.get(), &status); }) != 0) return errorFromErrno(errno);
    const uid_t user = ::geteuid();
    if (user != 0 && user != status.st_uid) return errorAccessDenied;
    opened->m_owner = status.st_uid;
    if (const ErrorCode error = makeFolder(state.get(), "services"); error != 0) return error;
    if (const ErrorCode error = openFile(state.get(), "services", folderFlags, opened->m_folder); error != 0) {
        return error;
    }
    if (systemCall("fstat", [&] { return ::fstat(opened->folder(), &status); }) != 0) return errorFromErrno(errno);
    // Who may write there decides what runs under the owner's account.
    const bool trusted =
        (status.st_uid == opened->m_owner || status.st_uid == user) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    if (!trusted) return errorAccessDenied;
    database = opened;
    return 0;
}

bool ServiceDatabase::isOurs() const noexcept {
    return ::geteuid() == m_owner;
}

ErrorCode ServiceDatabase::list(std::vector<std::string>& folders) const {
    Descriptor folder;
    if (const ErrorCode error = openFile(m_folder.get(), ".", O_RDONLY | O_DIRECTORY, folder); error != 0) return error;
    const std::unique_ptr<DIR, FolderCloser> entries(::fdopendir(folder.get()));
    if (entries == nullptr) return errorFromErrno(errno);
    static_cast<void>(folder.release());
    folders.clear();
    for (errno = 0; const dirent* entry = ::readdir(entries.get()); errno = 0) {
        const std::string name = entry->d_name;
        const bool mayBeFolder = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN;
        if (mayBeFolder && name != "." && name != "..") folders.push_back(name);
    }
    if (errno != 0) return errorFromErrno(errno);
    return 0;
}

ErrorCode DatabaseLock::take(int folder) {
    constexpr std::int64_t limit = 10'000'000'000;  // nanoseconds
    if (const ErrorCode error = openFile(folder, ".", O_RDONLY | O_DIRECTORY, m_folder); error != 0) return error;
    const std::int64_t begin = steadyTime();
    while (systemCall("flock", [&] { return ::flock(m_folder.get(), LOCK_EX | LOCK_NB); }) != 0) {
        if (errno != EWOULDBLOCK) return errorFromErrno(errno);
        if (steadyTime() - begin > limit) return errorServiceDatabaseLocked;
        sleepThread(1);
    }
    return 0;
}

ErrorCode RecordLock::take(int record, off_t which) {
    struct flock lock = lockOn(F_WRLCK, which, 1);
    if (systemCall("fcntl", [&] { return ::fcntl(record, F_OFD_SETLK, &lock); }) == 0) return 0;
    return errno == EAGAIN || errno == EACCES ? errorServiceAlreadyRunning : errorFromErrno(errno);
}

void RecordLock::release(int record, off_t which) noexcept {
    constexpr off_t toTheEnd = 0;
    struct flock lock = lockOn(F_UNLCK, which, which == kStarting ? toTheEnd : 1);
    ::fcntl(record, F_OFD_SETLK, &lock);
}

void RecordLock::setProgram(int record, std::uint32_t process) noexcept {
    struct flock lock = lockOn(F_WRLCK, kPrograms + process, 1);
    ::fcntl(record, F_OFD_SETLK, &lock);
}

std::uint32_t RecordLock::program(int record) noexcept {
    constexpr off_t toTheEnd = 0;
    struct flock lock = lockOn(F_WRLCK, kPrograms, toTheEnd);
    const int result = systemCall("fcntl", [&] { return ::fcntl(record, F_OFD_GETLK, &lock); });
    return result != 0 || lock.l_type == F_UNLCK ? 0 : static_cast<std::uint32_t>(lock.l_start - kPrograms);
}

ErrorCode RecordLock::holder(int record, Holder& holder) {
    holder = Holder::none;
    for (const off_t length : {2, 1}) {
        struct flock lock = lockOn(F_WRLCK, kRunning, length);
        if (systemCall("fcntl", [&] { return ::fcntl(record, F_OFD_GETLK, &lock); }) != 0) return errorFromErrno(errno);
        if (lock.l_type == F_UNLCK) return 0;
        holder = lock.l_start == kRunning ? Holder::process : Holder::starter;
        // A starter is told first while both locks are held.
        if (holder == Holder::process) return 0;
    }
    return 0;
}

std::string ServiceFiles::folderName(const std::string& name) {
    std::string folder;
    for (const char each : name) {
        if (each == '%') {
            folder += "%25";
        } else if (each == '.' && folder.empty()) {
            folder += "%2e";  // neither hidden nor the way up
        } else {
            folder += each;
        }
    }
    if (folder.size() <= kLongestFolderName) return folder;
    constexpr std::size_t hashDigits = 16;
    std::string hash;
    std::uint64_t rest = hashOf(name);
    for (std::size_t i = 0; i < hashDigits; ++i, rest >>= 4)
        hash.push_back("0123456789abcdef"[rest & 0xF]);
    return folder.substr(0, kLongestFolderName - hashDigits) + "%%" + hash;
}

std::string ServiceFiles::nameOf(const std::string& folder) {
    std::string name = folder;
    for (const auto& [code, character] : {std::pair{"%25", '%'}, {"%2e", '.'}}) {
        for (std::size_t at = name.find(code); at != std::string::npos; at = name.find(code, at + 1))
            name.replace(at, 3, 1, character);
    }
    return name;
}

ServiceFiles::ServiceFiles(const std::string& folder, int database) : m_database(database), m_folder(folder) {}

ErrorCode ServiceFiles::open(const char* file, int flags, Descriptor& opened) const {
    Descriptor folder;
    if (const ErrorCode error = openFolder(folder); error != 0) return error;
    return openFile(folder.get(), file, flags, opened);
}

ErrorCode ServiceFiles::openFolder(Descriptor& opened) const {
    return openFile(m_database, m_folder, O_RDONLY | O_DIRECTORY, opened);
}

ErrorCode ServiceFiles::openExisting(Descriptor& folder) const {
    const ErrorCode error = openFolder(folder);
    return error == errorFileNotFound ? errorServiceDoesNotExist : error;
}

ErrorCode ServiceFiles::read(StoredService& service) const {
    Descriptor folder;
    const ErrorCode error = openExisting(folder);
    return error != 0 ? error : readIn(folder.get(), service);
}

ErrorCode ServiceFiles::status(ServiceStatus& status) const {
    status = ServiceStatus{};
    Descriptor folder;
    const ErrorCode error = openExisting(folder);
    return error != 0 ? error : statusIn(folder.get(), status);
}

ErrorCode ServiceFiles::readWithStatus(StoredService& service, ServiceStatus& status) const {
    Descriptor folder;
    ErrorCode error = openExisting(folder);
    if (error == 0) error = readIn(folder.get(), service);
    return error != 0 ? error : statusIn(folder.get(), status);
}

ErrorCode ServiceFiles::readIn(int folder, StoredService& service) const {
    Descriptor file;
    if (const ErrorCode error = openFile(folder, kConfiguration, O_RDONLY, file); error != 0) {
        return error == errorFileNotFound ? errorServiceDoesNotExist : error;
    }
    std::string text;
    if (const ErrorCode error = readFile(file.get(), kConfigurationLimit, text); error != 0) return error;
    auto parsed = text.size() > kConfigurationLimit ? std::nullopt : parseConfiguration(text);
    if (!parsed || folderName(parsed->name) != m_folder) return errorInvalidData;
    if (parsed->deleted) {
        bool active = false;
        if (const ErrorCode error = isActive(active); error != 0) return error;
        if (!active) return errorServiceDoesNotExist;
    }
    service = std::move(*parsed);
    return 0;
}

ErrorCode ServiceFiles::replace(const StoredService& service) const {
    const std::string text = formatConfiguration(service);
    if (text.size() > kConfigurationLimit) return errorInvalidParameter;
    if (const ErrorCode error = makeFolder(m_database, m_folder.c_str()); error != 0) return error;
    Descriptor folder;
    if (const ErrorCode error = openFolder(folder); error != 0) return error;
    Descriptor file;
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    if (const ErrorCode error = openFile(folder.get(), kNextConfiguration, flags, file); error != 0) return error;
    if (const ErrorCode error = writeFile(file.get(), text); error != 0) return error;
    const auto keep = [](int descriptor) { return systemCall("fsync", [&] { return ::fsync(descriptor); }); };
    if (keep(file.get()) != 0) return errorFromErrno(errno);
    const int renamed = systemCall(
        "renameat", [&] { return ::renameat(folder.get(), kNextConfiguration, folder.get(), kConfiguration); });
    if (renamed != 0) return errorFromErrno(errno);
    return keep(folder.get()) == 0 && keep(m_database) == 0 ? 0 : errorFromErrno(errno);
}

ErrorCode ServiceFiles::remove() const {
    const auto unlink = [](int place, const char* name, int flags) {
        return systemCall("unlinkat", [&] { return ::unlinkat(place, name, flags); }) == 0 || errno == ENOENT;
    };
    Descriptor folder;
    const ErrorCode error = openFolder(folder);
    if (error == errorFileNotFound) return 0;
    if (error == errorInvalidData) {
        if (!unlink(m_database, m_folder.c_str(), 0)) return errorFromErrno(errno);
    } else if (error != 0) {
        return error;
    } else {
        // The configuration first: without it there is no service, whatever else is left.
        if (!unlink(folder.get(), kConfiguration, 0)) return errorFromErrno(errno);
        for (const char* const file : {kNextConfiguration, kSocket, kRecord, kFailure})
            unlink(folder.get(), file, 0);
        unlink(m_database, m_folder.c_str(), AT_REMOVEDIR);
    }
    return systemCall("fsync", [&] { return ::fsync(m_database); }) == 0 ? 0 : errorFromErrno(errno);
}

ErrorCode ServiceFiles::statusIn(int folder, ServiceStatus& status) {
    constexpr int tries = 100;
    status = ServiceStatus{};
    Descriptor record;
    if (const ErrorCode error = openFile(folder, kRecord, O_RDONLY, record); error != 0) {
        if (error != errorFileNotFound) return error;
        if (::faccessat(folder, kConfiguration, F_OK, 0) != 0) return errorServiceDoesNotExist;
        status = stoppedWith(errorServiceNeverStarted);
        return 0;
    }
    for (int i = 0; i < tries; ++i) {
        RecordLock::Holder holder{};
        if (const ErrorCode error = RecordLock::holder(record.get(), holder); error != 0) return error;
        if (holder == RecordLock::Holder::starter) {
            status = ServiceStatus{};
            status.currentState = kServiceStartPending;
            status.processId = RecordLock::program(record.get());
            return 0;
        }
        char bytes[kServiceRecordSize + 1];
        const ssize_t size = systemCall("pread", [&] { return ::pread(record.get(), bytes, sizeof bytes, 0); });
        if (size < 0) return errno == EISDIR ? errorInvalidData : errorFromErrno(errno);
        const auto told = decodeRecord({bytes, static_cast<std::size_t>(size)});
        const bool toldStopped = told && told->currentState == kServiceStopped;
        if (holder == RecordLock::Holder::none && !toldStopped) {
            // Its process has ended without a word, unless what was read belongs to one that has come meanwhile.
            if (const ErrorCode error = RecordLock::holder(record.get(), holder); error != 0) return error;
            if (holder != RecordLock::Holder::none) continue;
            status = stoppedWith(errorProcessAborted);
            return 0;
        }
        if (!told) {
            yieldThread();
            continue;
        }
        status = *told;
        if (holder == RecordLock::Holder::none) status.processId = 0;
        if (holder == RecordLock::Holder::none || !toldStopped) return 0;
        // The process has said its last word, and is about to give up the lock: a service that is told to be stopped
        // can be started.
        status.currentState = kServiceStopPending;
        sleepThread(1);
    }
    return status.currentState == kServiceStopPending ? errorSuccess : errorInvalidData;
}

ErrorCode ServiceFiles::holder(RecordLock::Holder& holder, std::uint32_t& program) const {
    holder = RecordLock::Holder::none;
    program = 0;
    Descriptor record;
    if (const ErrorCode error = open(kRecord, O_RDONLY, record); error != 0) {
        return error == errorFileNotFound ? 0 : error;
    }
    const ErrorCode error = RecordLock::holder(record.get(), holder);
    if (error == 0 && holder == RecordLock::Holder::starter) program = RecordLock::program(record.get());
    return error;
}

ErrorCode ServiceFiles::isActive(bool& active) const {
    RecordLock::Holder holder{};
    std::uint32_t program = 0;
    const ErrorCode error = this->holder(holder, program);
    active = holder != RecordLock::Holder::none;
    return error;
}

ErrorCode ServiceFiles::failureText(std::string& text) const {
    text.clear();
    Descriptor file;
    if (const ErrorCode error = open(kFailure, O_RDONLY, file); error != 0) {
        return error == errorFileNotFound ? 0 : error;
    }
    const ErrorCode error = readFile(file.get(), kFailureLimit, text);
    text.resize(std::min(text.size(), kFailureLimit));
    return error;
}

ErrorCode writeRecord(int record, const ServiceStatus& status) {
    const std::string bytes = encodeRecord(status);
    const ssize_t size = systemCall("pwrite", [&] { return ::pwrite(record, bytes.data(), bytes.size(), 0); });
    if (size < 0) return errorFromErrno(errno);
    return static_cast<std::size_t>(size) == bytes.size() ? 0 : errorDiskFull;
}

ErrorCode writeFile(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t taken = systemCall("write", [&] { return ::write(file, bytes.data(), bytes.size()); });
        if (taken < 0) return errorFromErrno(errno);
        bytes.remove_prefix(static_cast<std::size_t>(taken));
    }
    return 0;
}

void removeIfDeleted(int database, const std::string& name) noexcept {
    try {
        const ServiceFiles files(database, name);
        StoredService service;
        // What is marked and not active reads as if it were not there. The first read is without the lock, so that a
        // service that merely stops does not delay the next start.
        if (files.read(service) != errorServiceDoesNotExist) return;
        DatabaseLock lock;
        if (lock.take(database) == 0 && files.read(service) == errorServiceDoesNotExist) files.remove();
    } catch (const std::bad_alloc&) {
        return;  // the service still counts as deleted, and a new one of that name replaces the files
    }
}

}  // namespace KestSupport::platform
