#include "platform/services/database.h"

#include <algorithm>
#include <new>

#include "platform/common/fnv.h"
#include "platform/common/hex.h"
#include "platform/deadline.h"
#include "platform/services/messages.h"
#include "platform/state_directory.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

constexpr const char* kServices = "services";
constexpr std::size_t kLongestFolderName = 200;  // bytes; a file's name has at most 255

}  // namespace

Result<std::shared_ptr<const ServiceDatabase>> ServiceDatabase::open() {
    const auto database = std::make_shared<ServiceDatabase>();
    if (const ErrorCode error = createStateDirectory(database->m_stateDirectory); error != 0) return Failure{error};
    const Result<Folder> state = Folder::open(database->m_stateDirectory);
    if (!state) return state.failure();
    const Result<FolderAccess> stateAccess = state->access();
    if (!stateAccess) return stateAccess.failure();
    const UserId user = currentUser();
    database->m_owner = stateAccess->owner;
    if (user != kAdministrator && user != database->m_owner) return Failure{errorAccessDenied};

    if (const ErrorCode error = state->makeFolder(kServices); error != 0) return Failure{error};
    Result<Folder> services = state->openFolder(kServices);
    if (!services) return services.failure();
    const Result<FolderAccess> access = services->access();
    if (!access) return access.failure();
    // A user who can write there decides what runs under the owner's account.
    const bool isTrustedOwner = access->owner == database->m_owner || access->owner == user;
    if (!isTrustedOwner || access->othersMayWrite) return Failure{errorAccessDenied};
    database->m_folder = std::move(*services);
    return std::shared_ptr<const ServiceDatabase>(database);
}

Result<SystemHandle> lockDatabase(const Folder& database) {
    constexpr std::uint32_t kLimit = 10'000;  // milliseconds
    const Deadline deadline = Deadline::after(kLimit);
    for (;;) {
        Result<SystemHandle> lock = database.lock();
        if (lock.error() != errorBusy) return lock;
        if (deadline.hasPassed()) return Failure{errorServiceDatabaseLocked};
        sleepThread(1);
    }
}

std::string ServiceFiles::folderName(const std::string& name) {
    std::string folder;
    for (const char each : name) {
        if (each == '%') {
            folder += "%25";
        } else if (each == '.' && folder.empty()) {
            folder += "%2e";  // neither a hidden folder nor the parent
        } else {
            folder += each;
        }
    }
    if (folder.size() <= kLongestFolderName) return folder;
    constexpr std::size_t kHashDigits = 16;
    std::string hash;
    auto rest = fnv1a<std::uint64_t>(name);
    for (std::size_t i = 0; i < kHashDigits; ++i, rest >>= 4)
        hash.push_back(kHexDigits[rest & 0xF]);
    return folder.substr(0, kLongestFolderName - kHashDigits) + "%%" + hash;
}

std::string ServiceFiles::nameOf(const std::string& folder) {
    std::string name = folder;
    for (const auto& [code, character] : {std::pair{"%25", '%'}, {"%2e", '.'}}) {
        for (std::size_t at = name.find(code); at != std::string::npos; at = name.find(code, at + 1))
            name.replace(at, 3, 1, character);
    }
    return name;
}

Result<StatusRecord> ServiceFiles::createRecord() const {
    const Result<Folder> folder = openFolder();
    if (!folder) return folder.failure();
    Result<File> file = folder->openFile(kRecord, FileUse::create);
    if (!file) return file.failure();
    return StatusRecord(std::move(*file));
}

Result<StoredService> ServiceFiles::read() const {
    const Result<File> file = open(kConfiguration);
    if (file.error() == errorFileNotFound) return Failure{errorServiceDoesNotExist};
    if (!file) return file.failure();
    const Result<std::string> text = file->readAll(kConfigurationLimit);
    if (!text) return text.failure();
    auto service = text->size() > kConfigurationLimit ? std::nullopt : parseConfiguration(*text);
    if (!service || folderName(service->name) != m_folder) return Failure{errorInvalidData};
    if (service->deleted) {
        const Result<bool> active = isActive();
        if (!active) return active.failure();
        if (!*active) return Failure{errorServiceDoesNotExist};
    }
    return std::move(*service);
}

ErrorCode ServiceFiles::replace(const StoredService& service) const {
    const std::string text = formatConfiguration(service);
    if (text.size() > kConfigurationLimit) return errorInvalidParameter;
    if (const ErrorCode error = m_database.makeFolder(m_folder.c_str()); error != 0) return error;
    const Result<Folder> folder = openFolder();
    if (!folder) return folder.failure();
    const ErrorCode error = folder->replaceFile(kConfiguration, kNextConfiguration, text);
    return error != 0 ? error : m_database.flush();
}

ErrorCode ServiceFiles::remove() const {
    const Result<Folder> folder = openFolder();
    if (folder.error() == errorFileNotFound) return 0;
    if (folder.error() == errorInvalidData) {
        if (const ErrorCode error = m_database.removeFile(m_folder.c_str()); error != 0) return error;
        return m_database.flush();
    }
    if (!folder) return folder.failure();
    // The configuration first: without it there is no service, whatever else remains.
    if (const ErrorCode error = folder->removeFile(kConfiguration); error != 0) return error;
    for (const char* const file : {kNextConfiguration, kSocket, kRecord, kFailure, kRun, kOutput, kOldOutput})
        folder->removeFile(file);
    m_database.removeFolder(m_folder.c_str());
    return m_database.flush();
}

Result<ServiceStatus> ServiceFiles::status() const {
    Result<File> file = open(kRecord);
    if (file) return StatusRecord(std::move(*file)).status();
    if (file.error() != errorFileNotFound) return file.failure();
    if (open(kConfiguration).error() == errorFileNotFound) return Failure{errorServiceDoesNotExist};
    return stoppedWith(errorServiceNeverStarted);
}

ServiceFiles::Snapshot ServiceFiles::snapshot() const {
    Result<StoredService> service = read();
    if (!service) return {{}, {}, service.error()};
    const Result<ServiceStatus> status = this->status();
    return {std::move(*service), status ? *status : ServiceStatus(), status.error()};
}

Result<ServiceFiles::Activity> ServiceFiles::activity() const {
    Result<File> file = open(kRecord);
    if (file.error() == errorFileNotFound) return Activity();
    if (!file) return file.failure();
    const StatusRecord record(std::move(*file));
    const Result<StatusRecord::Holder> holder = record.holder();
    if (!holder) return holder.failure();
    return Activity{*holder, *holder == StatusRecord::Holder::starter ? record.program() : 0};
}

Result<bool> ServiceFiles::isActive() const {
    const Result<Activity> found = activity();
    if (!found) return found.failure();
    return found->holder != StatusRecord::Holder::none;
}

Result<std::string> ServiceFiles::failureText() const {
    const Result<File> file = open(kFailure);
    if (file.error() == errorFileNotFound) return std::string();
    if (!file) return file.failure();
    Result<std::string> text = file->readAll(kFailureLimit);
    if (text) text->resize(std::min(text->size(), kFailureLimit));
    return text;
}

Result<ServiceRun> ServiceFiles::run() const {
    constexpr int kTries = 100;
    for (int i = 0; i < kTries; ++i) {
        const Result<File> file = open(kRun);
        if (file.error() == errorFileNotFound) return ServiceRun();
        if (!file) return file.failure();
        char bytes[kServiceRunSize + 1];
        const Result<std::size_t> size = file->readStart(bytes);
        if (!size) return size.failure();
        if (const auto run = decodeRun({bytes, *size})) return *run;
        sleepThread(1);  // the record is being written
    }
    return Failure{errorInvalidData};
}

ErrorCode storeRun(const Folder& service, const ServiceRun& run) noexcept try {
    const Result<File> file = service.openFile(ServiceFiles::kRun, FileUse::create);
    return file ? file->writeStart(encodeRun(run)) : file.error();
} catch (const std::bad_alloc&) {
    return errorNotEnoughMemory;
}

void removeIfDeleted(const Folder& database, const std::string& name) noexcept {
    try {
        const ServiceFiles files(database, name);
        // read() does not find a service that is marked and not active. The first call is without the lock, so that a
        // service that merely stops does not delay the next start.
        if (files.read().error() != errorServiceDoesNotExist) return;
        const Result<SystemHandle> lock = lockDatabase(database);
        if (lock && files.read().error() == errorServiceDoesNotExist) files.remove();
    } catch (const std::bad_alloc&) {
        return;  // the service still counts as deleted, and a new one of that name replaces the files
    }
}

}  // namespace KestSupport::platform
