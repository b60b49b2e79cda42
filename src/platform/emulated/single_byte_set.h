// A character set with one byte for each character, as a table.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "platform/emulated/code_pages.h"

namespace KestSupport::platform {

class SingleByteSet : public CharacterSet {
  public:
    /// The unit of each byte. A byte without a character has '?'.
    using Units = std::array<unsigned short, 256>;

    explicit SingleByteSet(const Units& units);

    /// The set of the C and POSIX locales. Every byte has a unit.
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
    std::array<Mapping, 256> m_bytes;  // sorted by unit
};

}  // namespace KestSupport::platform
