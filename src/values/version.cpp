#include "support/version.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <string_view>

#include "support/exceptions.h"

namespace KestSupport {
namespace {

bool isDigit(char c) {
    return '0' <= c && c <= '9';
}

/// Reads a number and moves `next` past its digits. A number that does not fit is the largest int.
int takeNumber(const char*& next, const char* end) {
    constexpr std::int64_t kLargest = std::numeric_limits<int>::max();
    std::int64_t number = 0;
    for (; next != end && isDigit(*next); ++next)
        number = std::min(number * 10 + (*next - '0'), kLargest);
    return static_cast<int>(number);
}

using RangeText = std::pair<std::string_view, std::string_view>;

/// Returns false if the piece begins with a brace and is not a range.
bool splitRange(std::string_view piece, RangeText& range) {
    range = {piece, {}};
    if (!piece.starts_with('{')) return true;
    const std::size_t dash = piece.find('-');
    if (dash == std::string_view::npos || dash == 1 || piece.size() - dash < 3) return false;
    range = {piece.substr(1, dash - 1), piece.substr(dash + 1, piece.size() - dash - 2)};
    return true;
}

using Components = std::vector<int>;

bool hasOtherThanZero(const Components& components, std::size_t first) {
    return std::any_of(components.begin() + static_cast<std::ptrdiff_t>(first), components.end(),
                       [](int component) { return component != 0; });
}

// Compares versions whose first `common` components are equal. Not inlined, so that a comparison that needs only the
// components saves no registers: 1.6 instead of 2.5 ns (bench/version).
[[gnu::noinline]] KestVersion::tTestMode compareEnds(const Components& a, const std::string& suffixOfA,
                                                     const Components& b, const std::string& suffixOfB,
                                                     std::size_t common) {
    if (hasOtherThanZero(a, common)) return KestVersion::Greater;
    if (hasOtherThanZero(b, common)) return KestVersion::Less;
    const int order = suffixOfA.compare(suffixOfB);
    return order < 0 ? KestVersion::Less : order > 0 ? KestVersion::Greater : KestVersion::Equal;
}

}  // namespace

KestVersion::KestVersion() = default;

KestVersion::KestVersion(int* const) {}

KestVersion::KestVersion(const std::string& text) {
    parse(text);
}

KestVersion::KestVersion(const KestVersion& source) = default;
KestVersion::~KestVersion() = default;

KestVersion& KestVersion::operator=(const KestVersion& source) {
    m_suffix.reserve(source.m_suffix.size());
    m_components = source.m_components;
    m_suffix = source.m_suffix;  // does not throw, so a failure changes nothing
    return *this;
}

KestVersion& KestVersion::operator=(const std::string& text) {
    m_components.clear();
    m_suffix.clear();
    parse(text);
    return *this;
}

bool KestVersion::isInit() const {
    return !m_components.empty() || !m_suffix.empty();
}

std::string KestVersion::toString() const {
    std::string text;
    for (const int component : m_components) {
        if (!text.empty()) text += '.';
        text += std::to_string(component);
    }
    if (!m_suffix.empty()) text.append(1, '.').append(m_suffix);
    return text;
}

void KestVersion::parse(const std::string& text) {
    if (text.empty()) return;
    // One allocation is enough for most versions. The limit keeps it small for a long suffix.
    m_components.reserve(std::min<std::size_t>(text.size() / 2 + 1, 8));
    const char* const end = text.data() + text.size();
    for (const char* next = text.data();; ++next) {
        const char* const piece = next;
        const bool isNumber = piece != end && isDigit(*piece);
        if (isNumber) m_components.push_back(takeNumber(next, end));
        next = std::find(next, end, '.');
        if (!isNumber && next != end) throw KestException("KestVersion::parse: invalid version string: " + text, 0);
        if (!isNumber) m_suffix.assign(piece, end);
        if (next == end) return;
    }
}

KestVersion::tTestMode KestVersion::compare(const KestVersion& a, const KestVersion& b) {
    const std::size_t common = std::min(a.m_components.size(), b.m_components.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a.m_components[i] != b.m_components[i]) return a.m_components[i] < b.m_components[i] ? Less : Greater;
    }
    return compareEnds(a.m_components, a.m_suffix, b.m_components, b.m_suffix, common);
}

bool KestVersion::operator<(const KestVersion& other) const {
    return compare(*this, other) == Less;
}

bool KestVersion::operator==(const KestVersion& other) const {
    return compare(*this, other) == Equal;
}

bool KestVersion::operator<=(const KestVersion& other) const {
    return compare(*this, other) != Greater;
}

std::weak_ordering KestVersion::operator<=>(const KestVersion& other) const {
    const tTestMode order = compare(*this, other);
    return order == Less      ? std::weak_ordering::less
           : order == Greater ? std::weak_ordering::greater
                              : std::weak_ordering::equivalent;
}

std::size_t KestVersion::hash() const noexcept {
    const auto isZero = [](int component) { return component == 0; };
    const auto end = std::find_if_not(m_components.rbegin(), m_components.rend(), isZero).base();
    return std::accumulate(m_components.begin(), end, std::hash<std::string>()(m_suffix),
                           [](std::size_t hash, int component) {
                               constexpr std::size_t kGoldenRatio = 0x9E3779B9;
                               return (hash ^ static_cast<std::size_t>(component)) * kGoldenRatio + (hash >> 15);
                           });
}

std::vector<std::pair<KestVersion, KestVersion>> KestVersion::createRangeVector(const std::string& spec) {
    const std::string_view whole = spec;
    std::vector<RangeText> texts;
    for (std::size_t begin = 0, end = 0; !whole.empty() && begin <= whole.size(); begin = end + 1) {
        end = std::min(whole.find(',', begin), whole.size());
        if (!splitRange(whole.substr(begin, end - begin), texts.emplace_back())) {
            throw KestException("KestVersion::createRangeVector: Invalid range specification: " + spec, 0);
        }
    }
    std::vector<std::pair<KestVersion, KestVersion>> ranges;
    ranges.reserve(texts.size());
    for (const auto& [low, high] : texts)
        ranges.emplace_back(std::string(low), std::string(high));
    return ranges;
}

bool KestVersion::inRange(const std::pair<KestVersion, KestVersion>& range, const KestVersion& v) {
    const auto& [low, high] = range;
    return high.isInit() ? low <= v && v < high : v == low;
}

}  // namespace KestSupport
