// The status record of a service: a file with its last reported status, and locks on two bytes that show whether the
// process of that status exists. docs/formats/service_manager.md describes the bytes.
//
// The phases of a service, and the status that other processes see:
//
//   phase                        locks held                   record        state seen
//   never started                                             no file       stopped, errorServiceNeverStarted
//   reserved by a starter        starting                     start pending start pending, no process
//   program runs                 starting, program's number   start pending start pending, the program's process
//   dispatcher reached           running (and starting)       start pending as recorded
//   in service                   running                      any state     as recorded
//   stop reported                running                      stopped       stop pending, until the lock is released
//   stopped                                                   stopped       as recorded
//   start failed                                              stopped       as recorded, with the start's error
//   process ended without it                                  not stopped   stopped, errorProcessAborted
//
// The system releases the locks of a process that ends, however it ends, so no phase outlives its process.
#pragma once

#include <cstdint>

#include "platform/service_manager.h"
#include "platform/services/system.h"

namespace KestSupport::platform {

class StatusRecord : public File {
  public:
    enum class Lock : std::int64_t {
        running = 0,   ///< held by the process of the service
        starting = 1,  ///< held by the starter and the new process, until that holds the other lock
    };
    enum class Holder { none, starter, process };

    StatusRecord() noexcept = default;
    explicit StatusRecord(File file) noexcept : File(std::move(file)) {}

    /// errorServiceAlreadyRunning when another handle has the lock.
    ErrorCode take(Lock lock) const noexcept;
    /// Releasing Lock::starting also revokes setProgram.
    void release(Lock lock) const noexcept;
    /// Which lock another handle has. The process comes first when both are held.
    Result<Holder> holder() const noexcept;

    /// Records the process that is to become the service, by a lock on the byte at 2^32 plus its number, so that the
    /// number disappears with the start. Makes one system call and nothing else.
    void setProgram(std::uint32_t process) const noexcept;
    /// The number that another handle has recorded, or 0.
    std::uint32_t program() const noexcept;

    ErrorCode store(const ServiceStatus& status) const noexcept;
    /// The state seen in the table; errorInvalidData for a record that stays unreadable. May sleep for 0.1 seconds.
    Result<ServiceStatus> status() const;
};

/// The status of a service that is stopped and did not report it.
ServiceStatus stoppedWith(ErrorCode exitCode);

}  // namespace KestSupport::platform
