// Sorts entries by their names.
//
// Most names differ within a few characters after their common prefix. The sorter packs these characters into a 64-bit
// key and sorts the keys byte by byte, without comparisons. It looks further only at names with equal keys. Example,
// with the common prefix "service":
//
//   name              key          then
//   service00010.a    "00010.a "   sorted by the key alone
//   service00009.x1   "00009.x1"   an equal key: sorted by the characters after it
//   service00009.x1y  "00009.x1"
//
// The first save of 100,000 shuffled names takes 6.8 instead of 23.7 ms of processor time (bench/properties).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "text/properties/character_order.h"

namespace KestSupport::internal {

/// Entry has a function name(), which returns a view of a string. The entries keep their addresses during the life of
/// the sorter.
template <typename Entry>
class NameSorter {
  public:
    void reserve(std::size_t count) { m_sorted.reserve(count); }
    void add(const Entry& entry) { m_sorted.push_back({0, &entry}); }
    /// Returns the entries in the order of their names.
    std::vector<const Entry*> inOrder();

  private:
    using View = decltype(std::declval<Entry>().name());
    using Order = CharacterOrder<typename View::traits_type>;
    struct Keyed {
        std::uint64_t key;
        const Entry* entry;
    };

    static constexpr std::size_t kKeyCharacters = 64 / Order::kBits;
    static constexpr std::size_t kFewToDistribute = 256;
    static constexpr std::size_t kFewToCompare = 16;
    static constexpr int kMostLevels = 64;  // beyond this depth of the recursion, names are compared

    void sortFrom(std::size_t depth, Keyed* first, std::size_t count, int level);
    static std::size_t sharedLength(std::size_t depth, const Keyed* first, std::size_t count);
    static std::uint64_t keyOf(View rest);
    void sortByKey(Keyed* first, std::size_t count, std::uint64_t differing);
    static void sortByComparing(Keyed* first, std::size_t count);

    std::vector<Keyed> m_sorted;
    std::vector<Keyed> m_scratch;
};

template <typename Entry>
std::vector<const Entry*> NameSorter<Entry>::inOrder() {
    sortFrom(0, m_sorted.data(), m_sorted.size(), 0);
    std::vector<const Entry*> entries;
    entries.reserve(m_sorted.size());
    for (const Keyed& each : m_sorted)
        entries.push_back(each.entry);
    return entries;
}

// Sorts entries whose names share their first `depth` characters.
template <typename Entry>
void NameSorter<Entry>::sortFrom(std::size_t depth, Keyed* first, std::size_t count, int level) {
    if (count < kFewToCompare || level == kMostLevels) return sortByComparing(first, count);
    depth += sharedLength(depth, first, count);
    std::uint64_t differing = 0;
    for (std::size_t i = 0; i < count; ++i) {
        first[i].key = keyOf(first[i].entry->name().substr(depth));
        differing |= first[i].key ^ first[0].key;
    }
    sortByKey(first, count, differing);
    const std::size_t keyEnd = depth + kKeyCharacters;
    const auto endsWithin = [keyEnd](const Keyed& each) { return each.entry->name().size() < keyEnd; };
    for (Keyed *run = first, *const end = first + count; run != end;) {
        Keyed* const next = std::find_if(run + 1, end, [run](const Keyed& each) { return each.key != run->key; });
        const auto length = static_cast<std::size_t>(next - run);
        run = next;
        if (length == 1) continue;
        // A key does not show where a short name ends: the end and the least character have the same rank.
        if (std::any_of(next - length, next, endsWithin)) {
            sortByComparing(next - length, length);
        } else {
            sortFrom(keyEnd, next - length, length, level + 1);
        }
    }
}

template <typename Entry>
std::size_t NameSorter<Entry>::sharedLength(std::size_t depth, const Keyed* first, std::size_t count) {
    View shared = first[0].entry->name().substr(depth);
    for (std::size_t i = 1; i < count && !shared.empty(); ++i) {
        const View name = first[i].entry->name().substr(depth);
        const std::size_t limit = std::min(shared.size(), name.size());
        std::size_t length = 0;
        while (length < limit && View::traits_type::eq(shared[length], name[length]))
            ++length;
        shared = shared.substr(0, length);
    }
    return shared.size();
}

template <typename Entry>
std::uint64_t NameSorter<Entry>::keyOf(View rest) {
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < kKeyCharacters; ++i)
        key = (key << Order::kBits) | (i < rest.size() ? Order::rankOf(rest[i]) : 0U);
    return key;
}

// Makes one pass for each byte in which any keys differ, from the lowest byte on. A pass keeps the order of equal
// bytes.
template <typename Entry>
void NameSorter<Entry>::sortByKey(Keyed* first, std::size_t count, std::uint64_t differing) {
    if (count < kFewToDistribute) {
        std::sort(first, first + count, [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
        return;
    }
    m_scratch.resize(std::max(m_scratch.size(), count));
    Keyed* from = first;
    Keyed* to = m_scratch.data();
    for (unsigned shift = 0; shift < 64; shift += 8) {
        const auto byteOf = [shift](const Keyed& each) { return each.key >> shift & 0xFF; };
        if ((differing >> shift & 0xFF) == 0) continue;
        std::array<std::size_t, 257> offsets{};
        std::for_each_n(from, count, [&](const Keyed& each) { ++offsets[byteOf(each) + 1]; });
        for (std::size_t byte = 1; byte < offsets.size(); ++byte)
            offsets[byte] += offsets[byte - 1];
        std::for_each_n(from, count, [&](const Keyed& each) { to[offsets[byteOf(each)]++] = each; });
        std::swap(from, to);
    }
    if (from != first) std::copy_n(from, count, first);
}

template <typename Entry>
void NameSorter<Entry>::sortByComparing(Keyed* first, std::size_t count) {
    std::sort(first, first + count, [](const Keyed& a, const Keyed& b) { return a.entry->name() < b.entry->name(); });
}

}  // namespace KestSupport::internal
