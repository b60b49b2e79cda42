// The standard output and error of a service: the file "output" in its folder, and its predecessor "output.old".
//
//   openServiceOutput    opens the file for the program of a start
//   OutputKeeper         begins a new file when the file is full; the service's process has one
//   OutputReader         reads both files, in any process
//
// The service writes to the file directly, so that its last words survive any end of its process. The file is full with
// kOutputLimit bytes. The process looks at its size often while it grows, and rarely otherwise. So the file can become
// longer by what the service writes between two looks.
#pragma once

#include <cstdint>
#include <string>

#include "platform/deadline.h"
#include "platform/service_manager.h"
#include "platform/services/system.h"

namespace KestSupport::platform {

inline constexpr std::uint64_t kOutputLimit = std::uint64_t{1} << 20;  ///< bytes

/// Opens the file for appending; begins a new one when it is full. errorInvalidData when it is no regular file.
Result<File> openServiceOutput(const Folder& folder);

/// For one thread.
class OutputKeeper {
  public:
    /// Takes charge of the file if this process writes to it; otherwise does nothing, here and later.
    void begin(const Folder& folder);
    /// Looks at the file when it is time. Returns the milliseconds until the next look; kInfinite of wait.h without a
    /// file.
    std::uint32_t look(const Folder& folder);

  private:
    void replace(const Folder& folder, bool isNamed);

    File m_file;
    std::uint64_t m_size = 0;
    std::uint32_t m_interval = 0;  // milliseconds
    Deadline m_next = Deadline::after(0);
};

class OutputReader final : public ServiceOutput {
  public:
    explicit OutputReader(Folder folder) noexcept : m_folder(std::move(folder)) {}
    ErrorCode read(std::string& text, bool& mayMiss) override;

  private:
    ErrorCode open(const char* name);
    ErrorCode readOn(std::string& text) const;
    Result<bool> isOurs(const char* name) const;

    const Folder m_folder;
    File m_file;
    bool m_isComplete = false;  // the service no longer writes to m_file
};

}  // namespace KestSupport::platform
