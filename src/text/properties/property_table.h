// The entries behind a KestProperties: found through a hash index, handed out in the order of their names.
//
//   NameStore      the characters of many names, packed
//   PropertyTable  the entries
//
// A tree of strings would need twice the memory and, at 100,000 entries, three times the time for a look-up. The order
// is made when it is asked for, and costs nothing for names that came in order, as those of a saved file do.
//
// Threads: const operations may run side by side; prepareOrder counts as a change. An entry stays where it is until it
// is erased.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "text/properties/keyed_hash.h"
#include "text/properties/name_sorter.h"

namespace KestSupport::internal {

/// Keeps copies of names in blocks. What is given back is only counted; the owner moves its names to a new store when
/// most of this one is waste.
template <typename View>
class NameStore {
  public:
    using CharType = typename View::value_type;

    View keep(View name) {
        if (name.size() > m_left) addBlock(name.size());
        CharType* const place = m_next;
        std::copy(name.begin(), name.end(), place);
        m_next += name.size();
        m_left -= name.size();
        m_used += name.size();
        return {place, name.size()};
    }
    void giveBack(View name) { m_waste += name.size(); }
    bool isMostlyWaste() const { return m_waste > kLargestBlock && m_waste > m_used / 2; }

  private:
    static constexpr std::size_t kSmallestBlock = 64;
    static constexpr std::size_t kLargestBlock = 32768;

    // Blocks grow with what they hold, so that few names take little.
    void addBlock(std::size_t atLeast) {
        const std::size_t size = std::max(atLeast, std::clamp(m_used, kSmallestBlock, kLargestBlock));
        std::unique_ptr<CharType[]> block(new CharType[size]);
        m_blocks.push_back(std::move(block));
        m_next = m_blocks.back().get();
        m_left = size;
    }

    std::vector<std::unique_ptr<CharType[]>> m_blocks;
    CharType* m_next = nullptr;
    std::size_t m_left = 0;
    std::size_t m_used = 0;
    std::size_t m_waste = 0;
};

template <typename StringType>
class PropertyTable {
  public:
    using CharType = typename StringType::value_type;
    using Traits = typename StringType::traits_type;
    using View = std::basic_string_view<CharType, Traits>;
    using Index = std::uint32_t;

    /// The first value is here, further ones in a place of their own: most names have one.
    struct Entry {
        View name;  // without characters: a free place
        StringType value;
    };

    PropertyTable() = default;
    PropertyTable(const PropertyTable& other);
    PropertyTable& operator=(const PropertyTable&) = delete;

    std::size_t size() const { return m_count; }

    /// Null when the name is absent.
    const Entry* find(View name) const;
    Entry* find(View name) { return const_cast<Entry*>(std::as_const(*this).find(name)); }
    /// The entry of the name, and whether it is new, with an empty value. The name is not empty.
    std::pair<Entry*, bool> findOrAdd(View name);
    void erase(View name);

    /// All values of an entry, in the order in which they came.
    std::vector<StringType> valuesOf(const Entry& entry) const;
    void addFurtherValue(Entry& entry, StringType value);

    /// Must have run since the last change before visitInOrder.
    void prepareOrder();
    /// Calls visit with each entry, in the order of the names.
    template <typename Visit>
    void visitInOrder(Visit visit) const;

  private:
    struct Slot {
        std::uint32_t hash = 0;
        Index place = 0;  // of the entry, counted from 1; 0 for a free slot
    };

    std::uint32_t hashOf(View name) const;
    std::size_t findSlot(View name, std::uint32_t hash) const;
    std::size_t home(const Slot& slot) const { return slot.hash & (m_slots.size() - 1); }
    std::size_t behind(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
    void freeSlot(std::size_t slot);
    void growSlots();
    Index takePlace();
    void packNames();
    static void fetch(const Entry* const* entries, std::size_t count);

    HashKey m_key = processHashKey();
    std::vector<Slot> m_slots;  // linear probing; a power of two of them, at most seven eighths in use
    std::deque<Entry> m_entries;
    std::vector<Index> m_free;  // places in m_entries
    std::map<const Entry*, std::vector<StringType>> m_furtherValues;
    NameStore<View> m_names;
    std::size_t m_count = 0;
    bool m_isInOrder = true;            // the entries stand in the order of their names
    std::vector<const Entry*> m_order;  // when they do not: the entries in that order; empty when it is not known
};

template <typename StringType>
PropertyTable<StringType>::PropertyTable(const PropertyTable& other) {
    for (const Entry& entry : other.m_entries) {
        if (entry.name.empty()) continue;
        Entry& copy = *findOrAdd(entry.name).first;
        copy.value = entry.value;
        const auto further = other.m_furtherValues.find(&entry);
        if (further != other.m_furtherValues.end()) m_furtherValues[&copy] = further->second;
    }
}

template <typename StringType>
auto PropertyTable<StringType>::find(View name) const -> const Entry* {
    if (m_count == 0) return nullptr;
    const Slot& slot = m_slots[findSlot(name, hashOf(name))];
    return slot.place == 0 ? nullptr : &m_entries[slot.place - 1];
}

template <typename StringType>
auto PropertyTable<StringType>::findOrAdd(View name) -> std::pair<Entry*, bool> {
    if ((m_count + 1) * 8 > m_slots.size() * 7) growSlots();
    const std::uint32_t hash = hashOf(name);
    Slot& slot = m_slots[findSlot(name, hash)];
    if (slot.place != 0) return {&m_entries[slot.place - 1], false};
    if (m_names.isMostlyWaste()) packNames();
    const View kept = m_names.keep(name);
    const bool isBehindLast = m_count == 0 || (m_isInOrder && m_free.empty() && m_entries.back().name < kept);
    const Index index = takePlace();
    Entry& entry = m_entries[index];
    entry.name = kept;
    slot = {hash, index + 1};
    ++m_count;
    m_isInOrder = isBehindLast;
    m_order.clear();
    return {&entry, true};
}

template <typename StringType>
void PropertyTable<StringType>::erase(View name) {
    if (m_count == 0) return;
    const std::size_t slot = findSlot(name, hashOf(name));
    if (m_slots[slot].place == 0) return;
    const Index index = m_slots[slot].place - 1;
    Entry& entry = m_entries[index];
    m_free.push_back(index);
    m_furtherValues.erase(&entry);
    m_names.giveBack(entry.name);
    entry.name = View();
    entry.value = StringType();
    freeSlot(slot);
    --m_count;
    m_order.clear();
}

template <typename StringType>
std::vector<StringType> PropertyTable<StringType>::valuesOf(const Entry& entry) const {
    std::vector<StringType> values{entry.value};
    const auto further = m_furtherValues.find(&entry);
    if (further != m_furtherValues.end()) values.insert(values.end(), further->second.begin(), further->second.end());
    return values;
}

template <typename StringType>
void PropertyTable<StringType>::addFurtherValue(Entry& entry, StringType value) {
    m_furtherValues[&entry].push_back(std::move(value));
}

template <typename StringType>
void PropertyTable<StringType>::prepareOrder() {
    if (m_isInOrder || m_order.size() == m_count) return;
    NameSorter<Entry> sorter;
    sorter.reserve(m_count);
    for (const Entry& entry : m_entries) {
        if (!entry.name.empty()) sorter.add(entry);
    }
    m_order = sorter.inOrder();
}

// Entries in another order than their own are scattered over the memory. Reading a little of several lets the processor
// fetch them side by side, where visiting them would wait for each in turn.
template <typename StringType>
void PropertyTable<StringType>::fetch(const Entry* const* entries, std::size_t count) {
    unsigned read = 0;
    for (std::size_t i = 0; i < count; ++i) {
        read += static_cast<unsigned>(entries[i]->name.front()) + static_cast<unsigned>(*entries[i]->value.data());
    }
    [[maybe_unused]] volatile const unsigned sink = read;
}

template <typename StringType>
template <typename Visit>
void PropertyTable<StringType>::visitInOrder(Visit visit) const {
    constexpr std::size_t kGroup = 16;
    for (std::size_t first = 0; first < m_order.size(); first += kGroup) {
        const std::size_t count = std::min(kGroup, m_order.size() - first);
        fetch(m_order.data() + first, count);
        std::for_each_n(m_order.data() + first, count, [&](const Entry* entry) { visit(*entry); });
    }
    if (!m_isInOrder) return;
    for (const Entry& entry : m_entries) {
        if (!entry.name.empty()) visit(entry);
    }
}

// Names that the traits take for equal have one hash, so other traits than the standard ones are asked for places.
template <typename StringType>
std::uint32_t PropertyTable<StringType>::hashOf(View name) const {
    using Hash = SipHash<1, 3>;
    std::uint64_t result = 0;
    if constexpr (CharacterOrder<Traits>::kIsPlain) {
        result = hashBytes<Hash>(m_key, name.data(), name.size() * sizeof(CharType));
    } else {
        constexpr std::size_t kPlaces = sizeof(std::uint64_t) / sizeof(std::uint16_t);
        Hash hash(m_key);
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < name.size(); ++i) {
            const std::size_t shift = i % kPlaces * 16;
            word |= std::uint64_t{CharacterOrder<Traits>::placeOf(name[i])} << shift;
            if (i % kPlaces == kPlaces - 1) hash.add(std::exchange(word, 0));
        }
        hash.add(lastHashWord(word, name.size() * sizeof(std::uint16_t)));
        result = hash.finish();
    }
    return static_cast<std::uint32_t>(result);
}

// The slot of the name, or the free one where it belongs.
template <typename StringType>
std::size_t PropertyTable<StringType>::findSlot(View name, std::uint32_t hash) const {
    std::size_t place = home({hash, 0});
    for (; m_slots[place].place != 0; place = behind(place)) {
        if (m_slots[place].hash == hash && m_entries[m_slots[place].place - 1].name == name) break;
    }
    return place;
}

// Moves up what a gap would make unreachable.
template <typename StringType>
void PropertyTable<StringType>::freeSlot(std::size_t gap) {
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t next = behind(gap); m_slots[next].place != 0; next = behind(next)) {
        const bool reachesOverGap = ((next - home(m_slots[next])) & mask) >= ((next - gap) & mask);
        if (!reachesOverGap) continue;
        m_slots[gap] = m_slots[next];
        gap = next;
    }
    m_slots[gap] = Slot();
}

template <typename StringType>
void PropertyTable<StringType>::growSlots() {
    constexpr std::size_t kFewest = 8;
    std::vector<Slot> old(std::max(kFewest, 2 * m_slots.size()));
    m_slots.swap(old);
    for (const Slot& slot : old) {
        if (slot.place == 0) continue;
        std::size_t place = home(slot);
        while (m_slots[place].place != 0)
            place = behind(place);
        m_slots[place] = slot;
    }
}

template <typename StringType>
auto PropertyTable<StringType>::takePlace() -> Index {
    if (!m_free.empty()) {
        const Index index = m_free.back();
        m_free.pop_back();
        return index;
    }
    if (m_entries.size() == UINT32_MAX - 1) throw std::length_error("too many properties");
    m_entries.emplace_back();
    return static_cast<Index>(m_entries.size() - 1);
}

template <typename StringType>
void PropertyTable<StringType>::packNames() {
    NameStore<View> packed;
    std::vector<View> names;
    names.reserve(m_entries.size());
    for (const Entry& entry : m_entries)
        names.push_back(packed.keep(entry.name));
    for (std::size_t i = 0; i < names.size(); ++i)
        m_entries[i].name = names[i];
    m_names = std::move(packed);
}

}  // namespace KestSupport::internal
