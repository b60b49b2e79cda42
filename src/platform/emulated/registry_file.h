// The registry as a text file, for systems without a registry: the export format of registry editors, version 5.00,
// which docs/formats/registry.md describes. Any bytes have a defined result: a line that is not valid is skipped.
//
// Threads: a RegistryFile does not change after its construction.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/registry.h"

namespace KestSupport::platform {

class RegistryFile {
  public:
    /// Has no values.
    RegistryFile() = default;
    /// Reads the values below HKEY_LOCAL_MACHINE from the bytes of a file.
    explicit RegistryFile(std::string_view bytes);

    /// Returns the value, or null when there is none. Names, and the data of a text, are UTF-8.
    const RegistryValue* find(std::string_view subkey, std::string_view name) const;

  private:
    struct Hash {
        using is_transparent = void;
        // Not noexcept: libstdc++ then keeps the hash of each name instead of computing it in each comparison.
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
    };

    template <typename Value>
    using ByName = std::unordered_map<std::string, Value, Hash, std::equal_to<>>;

    ByName<ByName<RegistryValue>> m_keys;  // by the names of the keys, then of the values; all names are folded
};

}  // namespace KestSupport::platform
