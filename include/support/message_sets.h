// Catalogues of translated messages: wide texts that a program looks up by key, in the language of a locale.
//
// A catalogue is a family of property files. The more specific files replace single messages of the others. For the
// base name "msg" and a locale named English_United States.1252 or en_US.UTF-8 they are, in the order of loading:
//
//   msg.pro        required
//   msg_en.pro     optional
//   msg_en_US.pro  optional
//
// The files have the format of wide properties: UTF-16 little-endian with byte-order mark, or 8-bit text, converted by
// the global locale. KestLocaleFactory returns the codes of language and country, also for locales that name neither:
// for the classic locale the files are msg_C.pro and msg_C_C.pro, and for a locale without a name (with a facet of the
// caller) msg_*.pro and msg_*_*.pro.
//
// Threads: only an assignment changes a message set, so until then any number of threads may read it. Each look-up
// takes the lock of the table.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>
#include <support/properties.h>
#include <support/strings.h>

#include <string>

namespace KestSupport {

/// The messages of one base name for one locale. Copies are independent.
class KEST_SUPPORT_EXPORT KestMessageSet {
  public:
    /// Loads the files. Their names begin with `baseName`, which may contain a path. Throws KestException with code 0
    /// and the text "KestProperties<StringType>::loadProperties: couldn't open file " and the name if baseName + ".pro"
    /// cannot be opened; with "read" for "open" if its medium fails. The optional files may be absent. If one exists
    /// and cannot be read, a record at level 1 reports it, and its lines before the failure count. Logs like
    /// KestProperties.
    KestMessageSet(const std::string& baseName, std::locale loc);
    KestMessageSet(const KestMessageSet& other);
    /// After an exception the object is unchanged.
    KestMessageSet& operator=(const KestMessageSet& other);
    virtual ~KestMessageSet();

    /// Returns the message for the key, which may be empty. Throws KestMissingMessageException with the text
    /// "KestMissingMessageException - Missing " and the key, in the ANSI code page, if no file has the key.
    wstring16 getString(const wstring16& key) const;
    /// Returns the locale that determined the files.
    const std::locale& getLocale() const;

  private:
    void loadSet(const std::string& baseName);
    void loadOptional(const std::string& name);

    std::locale m_locale;
    KestProperties<wstring16> m_messages;
};

}  // namespace KestSupport
