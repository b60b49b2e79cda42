// The services as files, for any process. docs/formats/service_manager.md describes the layout and the locks.
//
//   ServiceDatabase    the folder of all services
//   lockDatabase       excludes other changes of the database
//   ServiceFiles       the files of one service: its configuration, status record, failure text and last run
//
// Only lockDatabase blocks for long. Lock order: the database, then the locks of a status record.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/services/configuration.h"
#include "platform/services/status_record.h"
#include "platform/services/system.h"

namespace KestSupport::platform {

class ServiceDatabase {
  public:
    /// Makes the folder when it is missing. errorAccessDenied when another user owns it or can change it.
    static Result<std::shared_ptr<const ServiceDatabase>> open();

    const Folder& folder() const noexcept { return m_folder; }
    /// The state directory, absolute.
    const std::string& stateDirectory() const noexcept { return m_stateDirectory; }
    /// Whether this process's user owns the services, so that they run under its account.
    bool isOurs() const noexcept { return currentUser() == m_owner; }

  private:
    Folder m_folder;
    std::string m_stateDirectory;
    UserId m_owner = kAdministrator;
};

/// Waits while another process changes the database; errorServiceDatabaseLocked after ten seconds. Closing the result
/// releases the lock.
Result<SystemHandle> lockDatabase(const Folder& database);

/// Opens the files without following a symbolic link: a link in place of the service's folder or of a file is damage
/// (errorInvalidData). The database's folder must stay open.
class ServiceFiles {
  public:
    static constexpr const char* kConfiguration = "configuration";
    static constexpr const char* kNextConfiguration = "configuration.new";
    static constexpr const char* kRecord = "status";
    static constexpr const char* kFailure = "failure";
    static constexpr const char* kRun = "run";
    static constexpr const char* kOutput = "output";
    static constexpr const char* kOldOutput = "output.old";
    static constexpr const char* kSocket = "socket";
    static constexpr std::size_t kFailureLimit = 1000;  ///< bytes of the failure text

    /// A service's configuration and status. `service` is set also when only the status is unknown.
    struct Snapshot {
        StoredService service;
        ServiceStatus status;
        ErrorCode error = 0;
    };
    /// The holder of the service's lock; if that is a starter, also the program that it has started, otherwise 0.
    struct Activity {
        StatusRecord::Holder holder = StatusRecord::Holder::none;
        std::uint32_t program = 0;
    };

    ServiceFiles(const Folder& database, const std::string& name) : ServiceFiles(folderName(name), database) {}
    static ServiceFiles inFolder(const Folder& database, const std::string& folder) { return {folder, database}; }

    /// The folder's name in the database: the service's name, escaped and not too long for a file system.
    static std::string folderName(const std::string& name);
    /// The reverse of folderName; a cut name stays cut.
    static std::string nameOf(const std::string& folder);

    Result<Folder> openFolder() const { return m_database.openFolder(m_folder); }
    /// Makes the record when it is missing.
    Result<StatusRecord> createRecord() const;

    /// errorServiceDoesNotExist, also for a service that was marked for deletion and has stopped; errorInvalidData.
    Result<StoredService> read() const;
    /// Replaces the configuration: whenever the system stops, the disk holds the old one or the new one.
    ErrorCode replace(const StoredService& service) const;
    /// Requires the lock of the database. Removes a link in place of the folder, not its target.
    ErrorCode remove() const;

    Result<ServiceStatus> status() const;
    Snapshot snapshot() const;
    /// A service without a record has no holder.
    Result<Activity> activity() const;
    /// Whether the service has a process or is about to have one.
    Result<bool> isActive() const;
    /// The reason that the service gave for its stop; empty when it gave none.
    Result<std::string> failureText() const;
    /// One without times when there is no record. May sleep for 0.1 seconds.
    Result<ServiceRun> run() const;

  private:
    ServiceFiles(const std::string& folder, const Folder& database) : m_database(database), m_folder(folder) {}
    Result<File> open(const char* file) const { return m_database.openFile(m_folder, file); }

    const Folder& m_database;
    std::string m_folder;
};

/// Stores the record of a service's run in its folder. Only the holder of a lock of the service's status, or of the
/// database's lock while there is no such holder, may call it.
ErrorCode storeRun(const Folder& service, const ServiceRun& run) noexcept;

/// Removes a service that was marked for deletion and has stopped.
void removeIfDeleted(const Folder& database, const std::string& name) noexcept;

}  // namespace KestSupport::platform
