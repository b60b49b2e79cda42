// The registry: typed values in a tree of keys, of which the library reads what the machine's administrator has set.
//
// Threads: any, while no thread changes the environment. Blocks while the registry is read from the disk.
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
    std::string data;  ///< of kRegistryString the text, in the ANSI code page; of others the bytes as they are stored
};

/// Reads a value of a key below HKEY_LOCAL_MACHINE. Names are in the ANSI code page and without regard to case; the
/// empty value name is that of the key's default value. 0, or errorFileNotFound, or why the registry cannot be read.
ErrorCode readRegistryValue(std::string_view subkey, std::string_view name, RegistryValue& value);

}  // namespace KestSupport::platform
