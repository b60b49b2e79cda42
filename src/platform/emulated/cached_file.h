// A file whose contents a caller keeps. It is read again only if it may have changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/emulated/change_watch.h"
#include "platform/result.h"

namespace KestSupport::platform {

class CachedFile {
  public:
    /// Back end: returns the contents of the file, or no contents if it is the file of the last call and has not
    /// changed since. A change by a mapping of the file, by another machine, or of a folder above its own may be
    /// noticed one second late. Fails with errorInvalidData for a pipe, a device or a folder, and with
    /// errorAccessDenied for a file that users other than the administrator and that of this process may write. Reads
    /// the file after a failure.
    Result<std::optional<std::string>> readIfChanged(const std::string& path);

  private:
    /// Two states of a settled file differ.
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
    ChangeWatch m_watch;
};

}  // namespace KestSupport::platform
