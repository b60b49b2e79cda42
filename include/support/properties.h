// Settings: a map from property names to values, for several threads, with plain text files to load and save it.
//
//   KestProperties        the map; for std::string, string_ci, wstring16 and wstring16_ci
//   KestPropertyIterator  the visitor that KestProperties::forEach calls for each entry
//
// A property file has one property per line, without escapes, quotes, continuations or sections:
//
//   # in the first column begins a comment
//   name=value
//
// The name is the text before the separator, with its blanks. The value is the text after it, without leading blanks,
// up to a carriage return. A value cannot contain a line break. A file is 8-bit text, or UTF-16 little-endian if it
// begins with that byte-order mark. Any bytes have a defined result. The mark of UTF-8 is text like any other, except
// for loadPropertiesWithoutMark.
//
// Names are ordered by bytes or by units. For the ci types they are ordered by the folded characters, and Key and KEY
// are one name. forEach and saved files have this order.
//
// Threads: an operation that adds, changes, removes or looks up one name locks the object. Loading locks it once per
// line. getProperties, forEach, saveProperties, copying and the source of an assignment read without the lock: no other
// thread may change the object during these.
//
// Lifetime: an object is shared through KestSmartPointer, or is a plain value on the stack. No operation notifies the
// dependents. A program can call notify itself, for example with a PropertyChanged.
#pragma once

#include <concepts>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/locks.h"
#include "support/object_base.h"
#include "support/observer.h"
#include "support/strings.h"

namespace KestSupport {

namespace internal {
template <typename StringType>
class LockedProperties;
template <typename StringType>
class PropertyTable;
}  // namespace internal

/// Derive from it and override handleProperty to see every entry of a KestProperties.
template <typename StringType>
class KEST_SUPPORT_EXPORT_TEMPLATE KestPropertyIterator {
  public:
    virtual ~KestPropertyIterator();
    /// Receives a copy of one entry: the name and its values, at least one. The default does nothing.
    virtual void handleProperty(const std::pair<const StringType, std::vector<StringType>>& entry);
};

/// Names with one or more values each. A name is never empty.
template <typename StringType>
class KEST_SUPPORT_EXPORT_TEMPLATE KestProperties : public KestObjectBase, public KestCollaborator {
  public:
    /// The types of a unit of text, of the values of a name, and of a copy of all entries.
    using CharType = typename StringType::value_type;
    using ValueList = std::vector<StringType>;
    using PropertyMap = std::map<StringType, ValueList>;

    /// Multi-valued: a value added to an existing name is appended.
    KestProperties();
    /// With false, a value that is added to an existing name replaces the first value.
    explicit KestProperties(bool multiValued);
    /// Copies the entries and the mode. The copy has no dependents and no holders.
    KestProperties(const KestProperties& other);
    /// Replaces the entries and the mode. After an exception the object is unchanged.
    KestProperties& operator=(const KestProperties& other);
    ~KestProperties() override;

    /// Adds a value to a name, or replaces its first value when the object is not multi-valued. An empty name is
    /// ignored.
    void addProperty(const StringType& name, const StringType& value);
    /// Replaces the first value of a name and leaves its others; adds the name when it is absent.
    void setProperty(const StringType& name, const StringType& value);
    /// Adds the property of one line of a property file. A comment and a line without a name add nothing. Without a
    /// separator the whole line is a name with an empty value.
    void addProperty(const StringType& line, CharType separator);
    /// Adds the line as a name with an empty value, unless it is empty or begins with '#'.
    void addPropertyforWSmanDA(const StringType& line);

    /// Returns the first value of a name, or `defaultValue` itself if the name is absent. The reference is valid until
    /// a thread changes or removes the name, and during the life of the default.
    const StringType& getProperty(const StringType& name, const StringType& defaultValue KEST_SUPPORT_LIFETIMEBOUND)
        const KEST_SUPPORT_LIFETIMEBOUND;
    /// Returns the first value of a name. Throws KestPropertyNotFound ("Property not found: " and the name) if it is
    /// absent.
    StringType getProperty(const StringType& name) const;
    /// Copies the first value of a name into `value`. Returns false and does not change `value` if the name is absent.
    bool getPropertyValue(const StringType& name, StringType& value) const;
    /// Returns all values of a name in the order of their addition; none if it is absent.
    std::vector<StringType> getPropertyValues(const StringType& name) const;
    /// Removes a name with all its values. Does nothing if it is absent.
    void removeProperty(const StringType& name);

    /// Returns all names in their order. Other threads may change the object during the call.
    std::vector<StringType> getNames() const;
    /// Returns a copy of all entries.
    std::map<StringType, std::vector<StringType>> getProperties() const;
    /// Calls the iterator once for each entry, in the order of the names. The handler may change this object. Entries
    /// that it removes or adds are not visited.
    void forEach(KestPropertyIterator<StringType>& it) const;

    /// Adds the properties of a file and returns true. Throws KestException with code 0 and the text
    /// "KestProperties<StringType>::loadProperties: couldn't open file " and the name; with "read" for "open" if the
    /// medium fails later, and then the lines before the failure are added. Logs at level 5. If the level is exactly 9,
    /// also logs all entries of the object.
    ///
    /// In 8-bit text a carriage return at the end of a line is removed from a value, but is part of a name without
    /// separator; in UTF-16 it is part of the line end. Narrow types take the low byte of each UTF-16 unit. Wide types
    /// convert 8-bit text by the global locale. In the classic locale, a byte is the unit of the same value; in others,
    /// this applies to a byte that does not convert. Reading needs memory for about three times the longest line.
    bool loadProperties(const std::string& fileName, CharType separator = '=');
    /// The same, but does not read the byte-order mark of UTF-8 at the beginning of 8-bit text as part of a name.
    bool loadPropertiesWithoutMark(const std::string& fileName, CharType separator = '=');
    /// Adds each of the argc strings, or each of the lines, like a line of a file.
    void loadProperties(int argc, char** argv, char separator = '=') requires std::same_as<StringType, std::string>;
    void loadProperties(const std::vector<std::string>& lines,
                        char separator = '=') requires std::same_as<StringType, std::string>;

    /// Writes each name, "=" and its first value as one line, both up to their first NUL, and returns true. Creates or
    /// truncates the file. Throws KestException with code 0 and the text "KestProperties<StringType>::saveProperties:
    /// couldn't open file " and the name; with "write" for "open" if the system did not take all of the text, for
    /// example on a full disk. Logs at level 5.
    ///
    /// The text is 8-bit. Wide types convert it by the global locale; in the classic locale a unit up to 0xFF is the
    /// byte of the same value. If any text has no 8-bit form, the whole file is UTF-16 little-endian with byte-order
    /// mark, and loads again without a change.
    bool saveProperties(const std::string& fileName);
    /// Saves the same text, so that at any time, also after a power failure, the file has all of its old or all of its
    /// new text. Writes a new file in the same folder, flushes it to the disk and renames it. If the name leads through
    /// links, the file at their end is replaced. The new file has the owner, the group and the permissions of the old
    /// one, on Windows its attributes and its access list; other hard links keep the old text.
    ///
    /// Throws like saveProperties, with "saveAtomically" in the text: "open" if the new file cannot be created, for
    /// example because the folder or the old file is not writable, "write" for every other failure. The old file is
    /// then unchanged and the new one removed; only if the last step fails, the flush of the folder, the file already
    /// has the new text. A process that is killed may leave a file ".kest-PROCESS-NUMBER" in the folder.
    bool saveAtomically(const std::string& fileName);

  private:
    friend class internal::LockedProperties<StringType>;

    using View = std::basic_string_view<CharType, typename StringType::traits_type>;

    using Table = internal::PropertyTable<StringType>;

    bool loadPropertiesImpl(const std::string& fileName, CharType separator);
    bool load(const std::string& fileName, CharType separator, bool skipsUtf8Mark);
    bool savePropertiesImpl(const std::string& fileName);
    void addLine(View line, CharType separator);
    void addNarrowLine(std::string_view line, char separator);
    void add(View name, View value);
    /// Returns the table after its order is prepared.
    const Table& inOrder() const;
    void logEntries() const;

    mutable KestCriticalSectionObject m_lock;  // guards the table, except while all of it is read
    std::unique_ptr<Table> m_pTable;           // never null
    bool m_multiValued = true;
};

extern template class KEST_SUPPORT_EXPORT_DECLARED KestPropertyIterator<std::string>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestPropertyIterator<string_ci>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestPropertyIterator<wstring16>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestPropertyIterator<wstring16_ci>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestProperties<std::string>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestProperties<string_ci>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestProperties<wstring16>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestProperties<wstring16_ci>;

}  // namespace KestSupport
