// The registry as a text file, for systems that have none of their own: the export format of registry editors, version
// 5.00, as docs/formats/registry.md describes it. Any bytes give a defined result; what is not understood is passed
// over, line by line.
//
// Threads: a RegistryFile does not change once it is made.
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
    /// Holds nothing.
    RegistryFile() = default;
    /// Reads what the bytes of a file say of HKEY_LOCAL_MACHINE.
    explicit RegistryFile(std::string_view bytes);

    /// The value, with a text in UTF-8; null when there is none. The names are in UTF-8.
    const RegistryValue* find(std::string_view subkey, std::string_view name) const;

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const noexcept { return std::hash<std::string_view>()(name); }
    };

    template <typename Value>
    using ByName = std::unordered_map<std::string, Value, Hash, std::equal_to<>>;

    ByName<ByName<RegistryValue>> m_keys;  // the values of a key by their names; all names are folded
};

}  // namespace KestSupport::platform
