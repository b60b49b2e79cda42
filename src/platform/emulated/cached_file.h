// A file whose contents a caller keeps: it is read again only when it may have changed.
#pragma once

#include <cstdint>
#include <string>

#include "platform/error.h"

namespace KestSupport::platform {

class CachedFile {
  public:
    /// Back end: sets `bytes` to the file's contents and `changed` to true, unless the file is the one that was read
    /// last and has not changed since. 0, or why the file cannot be read: errorInvalidData for a pipe, a device or a
    /// folder, errorAccessDenied for a file that other users than the administrator and this process's own may write.
    /// The next call after a failure reads the file.
    ErrorCode readIfChanged(const std::string& path, std::string& bytes, bool& changed);

  private:
    /// Differs between any two states of a file that has settled.
    struct State {
        std::uint64_t device = 0;
        std::uint64_t number = 0;
        std::int64_t size = 0;
        std::int64_t written = 0;
        std::int64_t changed = 0;

        bool operator==(const State&) const = default;
    };

    State m_state;
    bool m_settled = false;
};

}  // namespace KestSupport::platform
