// Catalogues of translated messages: wide texts that a program looks up by key, in the language of a locale.
//
// A catalogue is a family of property files, of which the more specific ones replace single messages. For the base name
// "msg" and a locale named English_United States.1252 or en_US.UTF-8 they are
//
//   msg.pro        has to be there
//   msg_en.pro     may be there
//   msg_en_US.pro  may be there
//
// Files are read as wide properties are: UTF-16 little-endian with its byte-order mark, or 8-bit text by the global
// locale. Codes of language and country are those of KestLocaleFactory, which has some for locales that name neither:
// the classic one reads msg_C.pro and msg_C_C.pro, and one without a name (with a facet of the caller's) msg_*.pro and
// msg_*_*.pro.
//
// Threads: a message set never changes once it is made; any number of threads may read it. Each look-up takes the lock
// of the table for its duration.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>
#include <support/properties.h>
#include <support/strings.h>

#include <locale>
#include <string>

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestMessageSet {
  public:
    /// Loads the files, whose names begin with `baseName`, a path if need be. Throws KestException, code 0, with
    /// "KestProperties<StringType>::loadProperties: couldn't open file " and the name when baseName + ".pro" cannot be
    /// opened ("read" for "open" when its medium fails). The others may be absent or unreadable; of one whose medium
    /// fails, the lines before that count. Logs as KestProperties does.
    KestMessageSet(const std::string& baseName, std::locale loc);
    KestMessageSet(const KestMessageSet& other);
    KestMessageSet& operator=(const KestMessageSet& other);
    virtual ~KestMessageSet();

    /// The message for the key, empty if that is what a catalogue has. Throws KestMissingMessageException
    /// ("KestMissingMessageException - Missing " and the key, in the ANSI code page) when no file has the key.
    wstring16 getString(const wstring16& key) const;
    /// The locale that chose the files.
    const std::locale& getLocale() const;

  private:
    void loadSet(const std::string& baseName);
    void loadOptional(const std::string& name);

    std::locale m_locale;
    KestProperties<wstring16> m_messages;
};

}  // namespace KestSupport
