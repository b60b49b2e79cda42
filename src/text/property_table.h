// The entries behind a KestProperties: found through a hash index, handed out in the order of their names.
//
//   CharacterOrder  the place of a character in the order of a string type
//   NameStore       the characters of many names, packed
//   PropertyTable   the entries
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
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace KestSupport::internal {

/// Characters that the traits take for equal have one place; a lesser character has a lesser place.
template <typename Traits>
struct CharacterOrder {
    using CharType = typename Traits::char_type;
    static constexpr bool kIsPlain = std::is_same_v<Traits, std::char_traits<CharType>>;
    static constexpr int kBits = kIsPlain && sizeof(CharType) == 1 ? 8 : 16;

    static std::uint16_t placeOf(CharType c) {
        if constexpr (!kIsPlain) {
            constexpr int kLeast = -128;
            return static_cast<std::uint16_t>(Traits::fold(c) - (sizeof(CharType) == 1 ? kLeast : 0));
        } else {
            return static_cast<std::make_unsigned_t<CharType>>(c);
        }
    }
};

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
        m_blocks.emplace_back(new CharType[size]);
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

    static std::uint32_t hashOf(View name);
    std::size_t findSlot(View name, std::uint32_t hash) const;
    std::size_t home(const Slot& slot) const { return slot.hash & (m_slots.size() - 1); }
    std::size_t behind(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
    void freeSlot(std::size_t slot);
    void growSlots();
    Index takePlace();
    void packNames();
    static void fetch(const Entry* const* entries, std::size_t count);

    std::vector<Slot> m_slots;  // linear probing; a power of two of them, at most seven eighths in use
    std::deque<Entry> m_entries;
    std::vector<Index> m_free;  // places in m_entries
    std::map<const Entry*, std::vector<StringType>> m_furtherValues;
    NameStore<View> m_names;
    std::size_t m_count = 0;
    bool m_isInOrder = true;            // the entries stand in the order of their names
    std::vector<const Entry*> m_order;  // when they do not: the entries in that order; empty when it is not known
};

/// Differs from process to process, so that nobody can prepare names that collide.
inline std::uint64_t hashSeed() {
    static const std::uint64_t seed = (std::uint64_t{std::random_device{}()} << 32) | std::random_device{}();
    return seed;
}

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

// Most names are told apart by a few characters behind those that all have in common; only the others are compared.
template <typename StringType>
void PropertyTable<StringType>::prepareOrder() {
    if (m_isInOrder || m_order.size() == m_count) return;
    using Order = CharacterOrder<Traits>;
    struct Sorted {
        std::uint64_t key;
        const Entry* entry;
    };
    std::vector<Sorted> sorted;
    sorted.reserve(m_count);
    View common;
    for (const Entry& entry : m_entries) {
        if (entry.name.empty()) continue;
        const View shared = sorted.empty() ? entry.name : common;
        const std::size_t limit = std::min(shared.size(), entry.name.size());
        std::size_t length = 0;
        while (length < limit && Traits::eq(shared[length], entry.name[length]))
            ++length;
        common = shared.substr(0, length);
        sorted.push_back({0, &entry});
    }
    for (Sorted& each : sorted) {
        const View rest = each.entry->name.substr(common.size());
        constexpr int kCharacters = 64 / Order::kBits;
        for (std::size_t i = 0; i < kCharacters; ++i) {
            each.key = (each.key << Order::kBits) | (i < rest.size() ? Order::placeOf(rest[i]) : 0u);
        }
    }
    std::sort(sorted.begin(), sorted.end(), [](const Sorted& a, const Sorted& b) {
        return a.key != b.key ? a.key < b.key : a.entry->name < b.entry->name;
    });
    m_order.reserve(m_count);
    for (const Sorted& each : sorted)
        m_order.push_back(each.entry);
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

template <typename StringType>
std::uint32_t PropertyTable<StringType>::hashOf(View name) {
    constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;
    std::uint64_t hash = hashSeed() ^ name.size();
    const auto mix = [&](std::uint64_t word) {
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 32;
    };
    if constexpr (CharacterOrder<Traits>::kIsPlain) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(name.data());
        const std::size_t size = name.size() * sizeof(CharType);
        std::uint64_t word = 0;
        std::size_t done = 0;
        for (; size - done >= sizeof word; done += sizeof word) {
            std::memcpy(&word, bytes + done, sizeof word);
            mix(word);
        }
        word = 0;
        std::memcpy(&word, bytes + done, size - done);
        mix(word);
    } else {
        for (const CharType c : name)
            mix(CharacterOrder<Traits>::placeOf(c));
    }
    return static_cast<std::uint32_t>((hash * kMultiplier) >> 32);
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
