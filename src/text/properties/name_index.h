// A hash index from names to numbers of entries. The owner keeps the entries, and tells the index the name of each.
//
// The slots are one array with linear probing: its size is a power of two, and at most seven eighths are in use. The
// hash has a key, so that no sender of names can choose names that share a slot.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "text/properties/character_order.h"
#include "text/properties/keyed_hash.h"

namespace KestSupport::internal {

/// Returns one hash for all names that the traits of the view compare as equal.
template <typename View>
std::uint32_t hashOfName(HashKey key, View name) {
    using Hash = SipHash<1, 3>;
    using Order = CharacterOrder<typename View::traits_type>;
    if constexpr (Order::kIsPlain) {
        constexpr std::size_t kUnit = sizeof(typename View::value_type);
        return static_cast<std::uint32_t>(hashBytes<Hash>(key, name.data(), name.size() * kUnit));
    } else {
        constexpr std::size_t kRanksOfWord = sizeof(std::uint64_t) / sizeof(std::uint16_t);
        Hash hash(key);
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < name.size(); ++i) {
            word |= std::uint64_t{Order::rankOf(name[i])} << (i % kRanksOfWord * 16);
            if (i % kRanksOfWord == kRanksOfWord - 1) hash.add(std::exchange(word, 0));
        }
        hash.add(lastHashWord(word, name.size() * sizeof(std::uint16_t)));
        return static_cast<std::uint32_t>(hash.finish());
    }
}

/// `nameOf` returns the name of an entry, by its number.
template <typename View>
class NameIndex {
  public:
    /// A name and its hash. A caller constructs it before it takes a lock.
    struct Key {
        explicit Key(View text) : name(text), hash(hashOfName(processHashKey(), text)) {}

        const View name;
        const std::uint32_t hash;
    };

    /// A slot, and the hash of the name that it was looked up for. Valid until the next change.
    struct Position {
        std::size_t slot;
        std::uint32_t hash;
    };

    std::size_t size() const { return m_count; }

    /// Makes sure that there is a slot for one more name. Called before a look-up that may add.
    void makeRoom() {
        if ((m_count + 1) * 8 > m_slots.size() * 7) grow();
    }

    /// The slot of the name, or the free slot where it belongs. The index has slots.
    template <typename NameOf>
    Position find(const Key& key, NameOf nameOf) const {
        std::size_t slot = home(key.hash);
        for (; m_slots[slot].number != kFree; slot = next(slot)) {
            if (m_slots[slot].hash == key.hash && nameOf(m_slots[slot].number - 1) == key.name) break;
        }
        return {slot, key.hash};
    }
    bool isFree(Position at) const { return m_slots[at.slot].number == kFree; }
    /// The number of the entry; the slot is not free.
    std::uint32_t entryAt(Position at) const { return m_slots[at.slot].number - 1; }

    /// Fills a free slot. The number is below UINT32_MAX.
    void add(Position at, std::uint32_t entry) {
        m_slots[at.slot] = {at.hash, entry + 1};
        ++m_count;
    }

    /// Frees a slot, and moves the entries after it that a gap would make unreachable.
    void erase(Position at) {
        const std::size_t mask = m_slots.size() - 1;
        std::size_t gap = at.slot;
        for (std::size_t slot = next(gap); m_slots[slot].number != kFree; slot = next(slot)) {
            const bool reachesOverGap = ((slot - home(m_slots[slot].hash)) & mask) >= ((slot - gap) & mask);
            if (!reachesOverGap) continue;
            m_slots[gap] = m_slots[slot];
            gap = slot;
        }
        m_slots[gap] = Slot();
        --m_count;
    }

  private:
    static constexpr std::uint32_t kFree = 0;

    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t number = kFree;  // of the entry, counted from 1
    };

    std::size_t home(std::uint32_t hash) const { return hash & (m_slots.size() - 1); }
    std::size_t next(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }

    void grow() {
        constexpr std::size_t kFewest = 8;
        std::vector<Slot> old(std::max(kFewest, 2 * m_slots.size()));
        m_slots.swap(old);
        for (const Slot& each : old) {
            if (each.number == kFree) continue;
            std::size_t slot = home(each.hash);
            while (m_slots[slot].number != kFree)
                slot = next(slot);
            m_slots[slot] = each;
        }
    }

    std::vector<Slot> m_slots;
    std::size_t m_count = 0;
};

}  // namespace KestSupport::internal
