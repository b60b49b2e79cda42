// The registry: typed values in a tree of keys. The library reads the settings that the machine's administrator has
// made there.
//
// Threads: any thread may call it while no thread changes the environment. A call blocks while the registry is read
// from the disk.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/result.h"

namespace KestSupport::platform {

inline constexpr std::uint32_t kRegistryString = 1;
inline constexpr std::uint32_t kRegistryDword = 4;
inline constexpr std::uint32_t kRegistryDwordBigEndian = 5;

struct RegistryValue {
    std::uint32_t type = 0;
    std::string data;  ///< kRegistryString: the text in the ANSI code page; other types: the stored bytes
};

/// Returns a value of a key below HKEY_LOCAL_MACHINE, or errorFileNotFound, or why the registry cannot be read. Names
/// are in the ANSI code page, and upper and lower case are equal. The empty value name is that of the default value.
Result<RegistryValue> readRegistryValue(std::string_view subkey, std::string_view name);

}  // namespace KestSupport::platform
