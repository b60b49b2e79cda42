// The registry: typed values in a tree of keys. The library reads the values of the machine (HKEY_LOCAL_MACHINE).
//
// Threads: any thread may call it while no thread changes the environment. A call blocks while the registry is read
// from the disk.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace KestSupport::platform {

inline constexpr std::uint32_t kRegistryString = 1;
inline constexpr std::uint32_t kRegistryDword = 4;
inline constexpr std::uint32_t kRegistryDwordBigEndian = 5;

struct RegistryValue {
    std::uint32_t type = 0;
    std::string data;  ///< the text of a kRegistryString, in the ANSI code page; otherwise the stored bytes
};

/// Reads a value of a key below HKEY_LOCAL_MACHINE. Names are in the ANSI code page and compared without regard to
/// case. The key's default value has an empty name. Returns 0, errorFileNotFound without such a value, or the error of
/// reading the registry: errorAccessDenied for one that another user may have changed.
ErrorCode readRegistryValue(std::string_view subkey, std::string_view name, RegistryValue& value);

}  // namespace KestSupport::platform
