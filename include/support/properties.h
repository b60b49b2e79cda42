// Settings: a map from property names to values that several threads may use, loaded from and saved to plain text
// files.
//
//   KestProperties        the map; made for std::string, string_ci, wstring16 and wstring16_ci
//   KestPropertyIterator  what KestProperties::forEach calls for each entry
//
// A property file has one property per line, as in
//
//   # the first column makes a comment
//   name=value
//
// without escapes, quotes, continuations or sections. The name is everything before the separator, blanks included; the
// value is everything behind it up to a carriage return, without its leading blanks. Files are read as 8-bit text, or
// as UTF-16 little-endian when they begin with that byte-order mark; any bytes give a defined result. Use something
// else for values that hold line breaks.
//
// Names are ordered byte by byte or unit by unit, and by the folded comparison for the ci types, which hold Key and KEY
// as one name. forEach and saved files keep this order.
//
// Threads: the operations that add, change, remove or look up one name lock the object for their whole work.
// getProperties, forEach, saveProperties, copying and the source of an assignment do not: nobody may change the object
// meanwhile. Loading locks once per line.
//
// Lifetime: shared through KestSmartPointer, or on the stack like any value. No operation notifies the dependents; who
// wants that calls notify, for instance with a PropertyChanged.
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
class PropertyTable;
}  // namespace internal

/// Derive from it and override handleProperty to see every entry of a KestProperties.
template <typename StringType>
class KEST_SUPPORT_EXPORT KestPropertyIterator {
  public:
    virtual ~KestPropertyIterator();
    /// Gets a copy of one entry: the name and its values, of which there is at least one. Does nothing by itself.
    virtual void handleProperty(const std::pair<const StringType, std::vector<StringType>>& entry);
};

/// Names with one or more values each. A name is never empty.
template <typename StringType>
class KEST_SUPPORT_EXPORT KestProperties : public KestObjectBase, public KestCollaborator {
  public:
    using CharType = typename StringType::value_type;
    using ValueList = std::vector<StringType>;
    using PropertyMap = std::map<StringType, ValueList>;

    /// Multi-valued: a value added to an existing name is appended.
    KestProperties();
    /// With false, a value added to an existing name replaces the first one.
    explicit KestProperties(bool multiValued);
    /// Copies the entries and the mode. The copy has no dependents and no holders.
    KestProperties(const KestProperties& other);
    /// Replaces the entries and the mode.
    KestProperties& operator=(const KestProperties& other);
    ~KestProperties() override;

    /// Adds a value to a name, or replaces its first value when the object is not multi-valued. An empty name is
    /// ignored.
    void addProperty(const StringType& name, const StringType& value);
    /// Replaces the first value of a name and leaves its others; adds the name when it is absent.
    void setProperty(const StringType& name, const StringType& value);
    /// Adds what one line of a property file holds. A comment and a line without a name add nothing; without a
    /// separator the whole line is the name of an empty value.
    void addProperty(const StringType& line, CharType separator);
    /// Adds the line as the name of an empty value, unless it is empty or begins with '#'.
    void addPropertyforWSmanDA(const StringType& line);

    /// The first value of a name, or `defaultValue` itself. The reference is good until somebody changes or removes the
    /// name, and no longer than the default.
    const StringType& getProperty(const StringType& name, const StringType& defaultValue) const;
    /// The first value of a name; throws KestPropertyNotFound ("Property not found: " and the name) when it is absent.
    StringType getProperty(const StringType& name) const;
    /// Copies the first value of a name into `value`; false, and `value` untouched, when the name is absent.
    bool getPropertyValue(const StringType& name, StringType& value) const;
    /// All values of a name in the order in which they were added; none when it is absent.
    std::vector<StringType> getPropertyValues(const StringType& name) const;
    /// Removes a name with all its values, if it is there.
    void removeProperty(const StringType& name);

    /// A copy of everything.
    std::map<StringType, std::vector<StringType>> getProperties() const;
    /// Calls the iterator once for each entry, in the order of the names. The handler may change this object: what it
    /// removes is not visited any more, what it adds is not visited in this walk.
    void forEach(KestPropertyIterator<StringType>& it) const;

    /// Adds the lines of a file to what is there and returns true. Throws KestException, code 0, with
    /// "KestProperties<StringType>::loadProperties: couldn't open file " and the name, and with the same text but
    /// "read" for "open" when the medium fails later; the lines before that stay. Logs at level 5 and, when the level
    /// is exactly 9, every entry that is then there.
    ///
    /// In 8-bit text a carriage return at the line's end is cut off with the value, but stays in a name that has no
    /// separator; in UTF-16 it belongs to the line end. Narrow types keep the low byte of each UTF-16 unit. Wide types
    /// read 8-bit text by the global locale: in the classic one a byte is the unit of the same value; in another, a
    /// byte that does not convert is too. Reading needs memory for about three times the longest line.
    bool loadProperties(const std::string& fileName, CharType separator = '=');
    /// Adds each of the argc strings, or of the lines, as a line of a file.
    void loadProperties(int argc, char** argv, char separator = '=') requires std::same_as<StringType, std::string>;
    void loadProperties(const std::vector<std::string>& lines,
                        char separator = '=') requires std::same_as<StringType, std::string>;

    /// Writes each name, "=" and its first value as one line, both up to their first NUL, and returns true. The file is
    /// created or truncated. Throws KestException, code 0, with "KestProperties<StringType>::saveProperties: couldn't
    /// open file " and the name, and with "write" for "open" when not everything reached the system, as on a full disk.
    /// Logs at level 5.
    ///
    /// The text is 8-bit. Wide types write it by the global locale, in the classic one a unit up to 0xFF as the byte of
    /// the same value; when any unit to be written has no such form, the whole file becomes UTF-16 little-endian with
    /// byte-order mark, which loads again as it was.
    bool saveProperties(const std::string& fileName);

  private:
    using View = std::basic_string_view<CharType, typename StringType::traits_type>;

    using Table = internal::PropertyTable<StringType>;

    bool loadPropertiesImpl(const std::string& fileName, CharType separator);
    bool savePropertiesImpl(const std::string& fileName);
    void addLine(View line, CharType separator);
    void addNarrowLine(std::string_view line, char separator);
    void add(View name, View value);
    /// The table, ready to be read in order.
    const Table& inOrder() const;
    void logEntries() const;

    mutable KestCriticalSectionObject m_lock;  // guards the table; those who read all of it do so without
    std::unique_ptr<Table> m_pTable;           // never null
    bool m_multiValued = true;
};

extern template class KEST_SUPPORT_EXPORT KestPropertyIterator<std::string>;
extern template class KEST_SUPPORT_EXPORT KestPropertyIterator<string_ci>;
extern template class KEST_SUPPORT_EXPORT KestPropertyIterator<wstring16>;
extern template class KEST_SUPPORT_EXPORT KestPropertyIterator<wstring16_ci>;
extern template class KEST_SUPPORT_EXPORT KestProperties<std::string>;
extern template class KEST_SUPPORT_EXPORT KestProperties<string_ci>;
extern template class KEST_SUPPORT_EXPORT KestProperties<wstring16>;
extern template class KEST_SUPPORT_EXPORT KestProperties<wstring16_ci>;

}  // namespace KestSupport
