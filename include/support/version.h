// Version numbers, and ranges of them.
//
// A version is a sequence of numbers between dots, which may end with a word, the suffix: 5.1.0 or 5.1.beta. Versions
// are ordered number by number, without zeros at the end (5.1 equals 5.1.0), then by suffix, byte by byte. A version
// without a suffix is older than one with it: 5.1 is older than 5.1.beta, which is older than 5.2.
//
// A range is a pair of versions: from the first one up to, but not including, the second one. If the second one is
// empty, the range holds only the first one.
//
// Threads: several threads may call const operations of one version at once. While one thread changes a version, no
// other may use it.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>

#include <compare>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace KestSupport {

/// A version number with an optional suffix.
class KEST_SUPPORT_EXPORT KestVersion {
  public:
    /// The result of a comparison: equal, older, newer.
    enum tTestMode : int { Equal, Less, Greater };

    /// The empty version, which means "no version".
    KestVersion();
    /// The empty version; the pointer is not read. So a null pointer can mean "no version".
    KestVersion(int* const);
    /// Reads a text. A piece between dots that begins with a digit (0 to 9 in every locale) is a number and ends before
    /// its first other character (12rc is 12); a number that does not fit an int becomes the largest int. Any other
    /// last piece is the suffix, so "5.1." has an empty suffix and "beta" has no number. An empty text is the empty
    /// version.
    ///
    /// Throws KestException, code 0, with "KestVersion::parse: invalid version string: " and the text if a piece before
    /// the last one does not begin with a digit.
    KestVersion(const std::string& text);
    KestVersion(const KestVersion& source);
    virtual ~KestVersion();

    /// After an exception the object is unchanged.
    KestVersion& operator=(const KestVersion& source);
    /// Reads a text like the constructor. After an exception the object has the numbers before the faulty piece.
    KestVersion& operator=(const std::string& text);

    /// Whether the version is not empty.
    bool isInit() const;
    /// Returns the numbers and the suffix with dots between them. A suffix without numbers has a dot before it:
    /// ".beta".
    std::string toString() const;

    /// Compare by numbers, then by suffix.
    bool operator<(const KestVersion& other) const;
    bool operator==(const KestVersion& other) const;
    bool operator<=(const KestVersion& other) const;
    /// Weak, because equal versions may have different texts: 5.1 and 5.1.0.
    std::weak_ordering operator<=>(const KestVersion& other) const;
    /// Equal versions have the same hash.
    std::size_t hash() const noexcept;

    /// Reads a list of ranges with commas between them: "4.0,{5.0-6.0}" is 4.0 alone, then 5.0 up to, but not
    /// including, 6.0. In a piece that begins with a brace, the first dash separates the versions, and the last
    /// character is dropped, whether it is a brace or not. An empty piece is a range of two empty versions; an empty
    /// text has no ranges.
    ///
    /// Throws KestException, code 0, with "KestVersion::createRangeVector: Invalid range specification: " and the whole
    /// text if a piece with a brace has no dash, nothing before the dash, or fewer than two characters after it. All
    /// pieces are checked before any version is read; then a version that cannot be read throws like the constructor.
    static std::vector<std::pair<KestVersion, KestVersion>> createRangeVector(const std::string& spec);

    /// Whether the range holds the version.
    static bool inRange(const std::pair<KestVersion, KestVersion>& range, const KestVersion& v);

  private:
    void parse(const std::string& text);
    static tTestMode compare(const KestVersion& a, const KestVersion& b);

    std::vector<int> m_components;
    std::string m_suffix;
};

}  // namespace KestSupport

template <>
struct std::hash<KestSupport::KestVersion> {
    std::size_t operator()(const KestSupport::KestVersion& version) const noexcept { return version.hash(); }
};
