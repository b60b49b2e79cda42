// The dependents of one collaborator, in the order of registration.
//
//   DependentList  the list; adds, removes all entries of a dependent, and walks by position
//
// Few dependents are a plain array. When one is removed from many, the list makes an index and keeps it until few are
// left. With the index, a removed entry becomes a free slot. Gaps are closed when more than half of the slots are free:
//
//   slots                 a  -  c  a  -  f
//   live entries counted  2 of the first 3, 4 of all (a Fenwick tree: the entry at a position in log n steps)
//   slots of a            3, then 0 (a hash table of the last slot, and for each slot the one before)
//
// So adding and a step of a walk take constant time, and removing takes log n for each entry that it removes.
//
// Threads: the collaborator's lock guards every call. A walk holds numbers only, no reference into the list, so a
// thread that ends in the middle of one leaves nothing in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KestSupport {

class KestDependent;

namespace internal {

class DependentList {
  public:
    /// How far a notification has come.
    struct Walk {
        std::uint32_t position = 0;  // of the next entry
        std::size_t slot = 0;        // of the last entry
        std::uint64_t removals = 0;  // that had been made when it was read
    };

    DependentList();
    DependentList(const DependentList&) = delete;
    DependentList& operator=(const DependentList&) = delete;
    ~DependentList();

    /// The entry at the position of the walk, which moves to the next one; null at the end of the list.
    KestDependent* next(Walk& walk) const noexcept;
    void add(KestDependent& dependent);
    /// Removes all entries of the dependent. Takes longer where there is no memory for the index.
    void remove(KestDependent& dependent) noexcept;

  private:
    class Index;

    std::size_t slotOf(const Walk& walk) const noexcept;
    void removeFromArray(KestDependent& dependent) noexcept;
    void makeIndex() noexcept;
    void closeGaps() noexcept;

    std::vector<KestDependent*> m_slots;  // null for a free slot
    std::size_t m_count = 0;              // of entries
    std::uint64_t m_removals = 0;         // calls that have changed slots or positions
    std::unique_ptr<Index> m_index;
};

}  // namespace internal
}  // namespace KestSupport
