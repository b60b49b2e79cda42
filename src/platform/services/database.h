// The services as files: the folder that holds them, and what one of them is and does, seen from any process. What lies
// where, and which lock says what, is described in docs/formats/service_manager.md.
//
//   ServiceDatabase    the folder of all services
//   DatabaseLock       taken while the database is changed
//   ServiceFiles       the files of one service: its configuration, and the record in which it keeps its status
//   RecordLock         the locks on a record, by which its process and who starts it are seen
//
// Nothing here blocks for long but the lock of the database. Results are error numbers, 0 for success.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/linux_descriptor.h"
#include "platform/services/configuration.h"

namespace KestSupport::platform {

/// Opens a regular file or what else the flags ask for; close-on-exec, and never through a symbolic link.
ErrorCode openFile(int folder, const std::string& path, int flags, Descriptor& file);

class ServiceDatabase {
  public:
    /// Makes the folder when it is missing. errorAccessDenied when it is another user's, or others may change it.
    static ErrorCode open(std::shared_ptr<const ServiceDatabase>& database);

    int folder() const noexcept { return m_folder.get(); }
    /// The state directory, absolute.
    const std::string& stateDirectory() const noexcept { return m_stateDirectory; }
    /// Whether the services are this process's user's, so that they run under its account.
    bool isOurs() const noexcept;
    /// The folders in it, in any order.
    ErrorCode list(std::vector<std::string>& folders) const;

  private:
    Descriptor m_folder;
    std::string m_stateDirectory;
    uid_t m_owner = 0;
};

class DatabaseLock {
  public:
    /// Waits while another process changes the database; errorServiceDatabaseLocked after ten seconds.
    ErrorCode take(int folder);

  private:
    Descriptor m_folder;  // the lock goes with it
};

/// Locks on bytes of a status record. They belong to the descriptor: not to the process, which may have others of the
/// same file, and they go when the last process has closed it, however that ended.
class RecordLock {
  public:
    static constexpr off_t kRunning = 0;   ///< held by the service's process
    static constexpr off_t kStarting = 1;  ///< held by who starts it, until the process has taken the other

    enum class Holder { none, starter, process };

    /// errorServiceAlreadyRunning when another holds it.
    static ErrorCode take(int record, off_t which);
    /// With kStarting, setProgram is undone too.
    static void release(int record, off_t which) noexcept;
    static ErrorCode holder(int record, Holder& holder);

    /// The number of the process that is to become the service. It is kept as a lock too, so that it is never stale:
    /// on the byte whose offset is kPrograms plus the number.
    static void setProgram(int record, std::uint32_t process) noexcept;
    /// 0 when there is none. For another descriptor of the record than that of setProgram.
    static std::uint32_t program(int record) noexcept;

  private:
    static constexpr off_t kPrograms = off_t{1} << 32;
};

/// The folder is opened first, never through a symbolic link, and its files from there: a link that replaces it
/// is damage (errorInvalidData), and leads no call to other files.
class ServiceFiles {
  public:
    static constexpr const char* kConfiguration = "configuration";
    static constexpr const char* kNextConfiguration = "configuration.new";
    static constexpr const char* kRecord = "status";
    static constexpr const char* kFailure = "failure";
    static constexpr const char* kSocket = "socket";
    static constexpr std::size_t kFailureLimit = 1000;  ///< bytes of the failure's text

    ServiceFiles(int database, const std::string& name) : ServiceFiles(folderName(name), database) {}
    static ServiceFiles inFolder(int database, const std::string& folder) { return {folder, database}; }

    /// The folder's name in the database: the service's, unless that is too long for a file system.
    static std::string folderName(const std::string& name);
    /// The service's name, as far as its folder tells.
    static std::string nameOf(const std::string& folder);

    ErrorCode open(const char* file, int flags, Descriptor& opened) const;
    ErrorCode openFolder(Descriptor& opened) const;

    /// errorServiceDoesNotExist, also for a service that was marked for deletion and has stopped; errorInvalidData.
    ErrorCode read(StoredService& service) const;
    /// Replaces the configuration, so that it is the old one or the new one whenever the system stops.
    ErrorCode replace(const StoredService& service) const;
    /// Under the lock of the database. A link that replaces the folder is removed itself.
    ErrorCode remove() const;

    ErrorCode status(ServiceStatus& status) const;
    /// Both, with one look at the folder; `service` is set also when the status is not known.
    ErrorCode readWithStatus(StoredService& service, ServiceStatus& status) const;
    /// By which lock the service is active; none for a service that has no record. The program of a start that has not
    /// reached the dispatcher, 0 otherwise.
    ErrorCode holder(RecordLock::Holder& holder, std::uint32_t& program) const;
    /// Whether the service has or is about to have a process.
    ErrorCode isActive(bool& active) const;
    /// Why the service has stopped, as it told in words; empty when it did not.
    ErrorCode failureText(std::string& text) const;

  private:
    ServiceFiles(const std::string& folder, int database);
    ErrorCode openExisting(Descriptor& folder) const;
    ErrorCode readIn(int folder, StoredService& service) const;
    static ErrorCode statusIn(int folder, ServiceStatus& status);

    int m_database;
    std::string m_folder;
};

ErrorCode writeRecord(int record, const ServiceStatus& status);
/// Writes all of it.
ErrorCode writeFile(int file, std::string_view bytes);

/// Takes away what is left of a service that was marked for deletion, once it has stopped.
void removeIfDeleted(int database, const std::string& name) noexcept;

}  // namespace KestSupport::platform
