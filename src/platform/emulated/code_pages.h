// The code pages other than UTF-8: the character sets that the environment may name.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace KestSupport::platform {

/// One character set. It never changes once it is made.
class CharacterSet {
  public:
    virtual ~CharacterSet() = default;

    /// Both return the number of units written, 0 when the capacity does not hold the result; see platform/text.h.
    virtual std::size_t widen(const char* text, std::size_t length, unsigned short* dest,
                              std::size_t capacity) const = 0;
    virtual std::size_t narrow(const unsigned short* text, std::size_t length, char* dest,
                               std::size_t capacity) const = 0;
};

/// Back end: the set that the system knows by a name; null if it knows none. Sets that the system has always, such as
/// SingleByteSet::windows1252, need no name.
std::unique_ptr<CharacterSet> openCharacterSet(const std::string& name);
/// Back end: the name of the character set of a locale that the system has; empty for another, and for "C".
std::string installedCharset(const std::string& locale);

/// The name of the locale that the environment asks for, "C" if none; valid until the environment changes.
std::string_view environmentLocale();

/// The set behind a number that ansiCodePage gave, UTF-8 excepted; it lasts as long as the process.
const CharacterSet& characterSet(CodePage codePage);

}  // namespace KestSupport::platform
