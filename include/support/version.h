// Version numbers, and ranges of them.
//
// A version is a sequence of numbers between dots, which may end in a word, the suffix: 5.1.0 or 5.1.beta. Versions are
// ordered number by number, where zeros at the end do not count (5.1 equals 5.1.0), then by suffix, byte by byte. No
// suffix comes before any other, so 5.1 is older than 5.1.beta, and that is older than 5.2.
//
// A range is a pair of versions: from the first one up to, but not including, the second one. When the second one is
// empty, the range holds the first one alone.
//
// Threads: one object is for one thread at a time; the const operations may be called by several at once.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>

#include <string>
#include <utility>
#include <vector>

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestVersion {
  public:
    /// How a version compares with another: the same, older, newer.
    enum tTestMode : int { Equal, Less, Greater };

    /// The empty version, which stands for none.
    KestVersion();
    /// The empty version as well: the pointer is not read. It lets a null pointer stand for no version.
    KestVersion(int* const);
    /// Reads a text. A piece between dots that begins with a digit (0 to 9, whatever the locale) is a number and counts
    /// up to its first other character (12rc is 12); numbers that do not fit an int count as the largest one. Any other
    /// last piece is the suffix, so that "5.1." has an empty one, and "beta" no number. The empty text gives the empty
    /// version.
    ///
    /// Throws KestException, code 0, with "KestVersion::parse: invalid version string: " and the text when a piece
    /// before the last one does not begin with a digit.
    KestVersion(const std::string& text);
    KestVersion(const KestVersion& source);
    virtual ~KestVersion();

    KestVersion& operator=(const KestVersion& source);
    /// Reads a text as the constructor does. After an exception the numbers before the faulty piece are held.
    KestVersion& operator=(const std::string& text);

    /// Whether the version is not empty.
    bool isInit() const;
    /// Numbers and suffix with dots between them. A suffix alone has a dot in front: ".beta".
    std::string toString() const;

    bool operator<(const KestVersion& other) const;
    bool operator==(const KestVersion& other) const;
    bool operator<=(const KestVersion& other) const;

    /// Reads a list of ranges with commas between them: "4.0,{5.0-6.0}" is 4.0 alone, then 5.0 up to, but not
    /// including, 6.0. Between braces the first dash separates the versions, and the last character is dropped whatever
    /// it is. An empty piece is a range of two empty versions; an empty text has no ranges.
    ///
    /// Throws KestException, code 0, with "KestVersion::createRangeVector: Invalid range specification: " and the whole
    /// text when something in braces has no dash, nothing in front of it or less than two characters behind it. That is
    /// found before any version is read; a version that cannot be read then throws as in the constructor.
    static std::vector<std::pair<KestVersion, KestVersion>> createRangeVector(const std::string& spec);

    static bool inRange(const std::pair<KestVersion, KestVersion>& range, const KestVersion& v);

  private:
    void parse(const std::string& text);
    static tTestMode compare(const KestVersion& a, const KestVersion& b);

    std::vector<int> m_components;
    std::string m_suffix;
};

}  // namespace KestSupport
