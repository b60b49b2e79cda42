// A character set of one byte for each character, as a table.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "platform/emulated/code_pages.h"

namespace KestSupport::platform {

/// A set of one byte for each character.
class SingleByteSet : public CharacterSet {
  public:
    /// The unit of each byte; a byte without a character has the '?' that it becomes.
    using Units = std::array<unsigned short, 256>;

    explicit SingleByteSet(const Units& units);

    /// What the C and POSIX locales stand for: every byte has a unit.
    static std::unique_ptr<SingleByteSet> windows1252();

    std::size_t widen(const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) const override;
    std::size_t narrow(const unsigned short* text, std::size_t length, char* dest, std::size_t capacity) const override;

  private:
    struct Mapping {
        unsigned short unit;
        char byte;
    };

    char byteOf(unsigned short unit) const;

    Units m_units;
    // Sorted by unit.
    std::array<Mapping, 256> m_bytes;
};

}  // namespace KestSupport::platform
