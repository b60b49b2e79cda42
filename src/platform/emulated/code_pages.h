// The code pages other than UTF-8: the character sets that the environment may name.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace KestSupport::platform {

/// A character set. It is immutable.
class CharacterSet {
  public:
    virtual ~CharacterSet() = default;

    /// Both return the number of units written, or 0 if the capacity does not hold the result; see platform/text.h.
    virtual std::size_t widen(const char* text, std::size_t length, unsigned short* dest,
                              std::size_t capacity) const = 0;
    virtual std::size_t narrow(const unsigned short* text, std::size_t length, char* dest,
                               std::size_t capacity) const = 0;
};

/// Back end: returns the set that the system knows by the name, or null. Sets that are built in, such as
/// SingleByteSet::windows1252, need no name.
std::unique_ptr<CharacterSet> openCharacterSet(const std::string& name);
/// Back end: returns the name of the character set of an installed locale; empty for another locale and for "C".
std::string installedCharset(const std::string& locale);

/// Returns the name of the locale that the environment asks for, or "C". Valid until the environment changes.
std::string_view environmentLocale();

/// Returns the set of a number from ansiCodePage other than UTF-8. The set lasts as long as the process.
const CharacterSet& characterSet(CodePage codePage);

}  // namespace KestSupport::platform
