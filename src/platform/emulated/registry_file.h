// The registry as a text file, for systems without a registry: the export format of registry editors, version 5.00,
// which docs/formats/registry.md describes. Any bytes have a defined result: a line that is not valid is skipped.
//
// Threads: a RegistryFile does not change after its construction.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace KestSupport::platform {

class RegistryFile {
  public:
    struct Value {
        std::uint32_t type = 0;
        std::string_view data;  ///< valid as long as the RegistryFile
    };

    /// Has no values.
    RegistryFile() = default;
    /// Reads the values below HKEY_LOCAL_MACHINE from the bytes of a file.
    explicit RegistryFile(std::string_view bytes);

    /// Returns the value, or null when there is none. Names, and the data of a text, are UTF-8.
    const Value* find(std::string_view subkey, std::string_view name) const;

  private:
    // All that a look-up compares is in one line of the cache, but the characters. A free slot has the hash 0.
    struct Slot {
        std::uint64_t hash = 0;
        std::string_view key;
        std::string_view name;
        Value value;
    };

    const Value* findStored(std::uint64_t hash, std::string_view subkey, std::string_view name) const noexcept;
    std::size_t home(std::uint64_t hash) const noexcept;
    std::size_t next(std::size_t slot) const noexcept { return (slot + 1) & (m_slots.size() - 1); }
    Slot& freeSlot(std::uint64_t hash) noexcept;

    std::unique_ptr<char[]> m_texts;  // the folded names, and the data
    std::vector<Slot> m_slots;        // a hash table with linear probing; its size is 0, or a power of two from 2 on
};

}  // namespace KestSupport::platform
