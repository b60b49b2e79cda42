// The children of one tree node: an owning list in the caller's order, in blocks (values/tree/tree_blocks.h). Looking
// up, adding and removing by key or by index take log n steps in a list in key order, and where keys are out of order,
// a look at the blocks around them.
//
// A prefix is the number that the eight bytes of a key make after those that most keys of the list begin with. A key
// that begins otherwise has the least or the greatest number. When a quarter of the keys since the last time begin
// otherwise, all prefixes are made again.
//
// A node may get another key at any time. It knows the leaf that it is in, so its list brings its blocks up to date at
// once. A node that is, or was, in two lists at a time knows neither: it counts its change for all lists, and a list
// with such nodes checks all its keys, once, before it uses them again. While they are not as the blocks have them, a
// look-up reads the keys one by one, until the list changes the next time.
//
// Threads: several may look at a list, and copy it, while none changes it or the keys of its nodes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "values/tree/tree_blocks.h"

namespace KestSupport::internal {

class TreeChildren {
  public:
    TreeChildren() = default;
    /// Shares the nodes.
    TreeChildren(const TreeChildren& other);
    TreeChildren& operator=(const TreeChildren&) = delete;
    /// Does not release the nodes; TreeChildrenDeleter does.
    ~TreeChildren();

    std::size_t size() const noexcept { return m_size; }
    KestTreeNode* operator[](std::size_t index) const noexcept;
    /// The first child with the key; null when there is none.
    KestTreeNode* find(const std::string& key) const;
    /// Puts the node before the first child whose key is greater, or at the end.
    void add(KestTreeNode& node);
    /// Puts the node before the child at the index, which is at most size().
    void insert(std::size_t index, KestTreeNode& node);
    void erase(std::size_t index);
    /// Removes the first child with the key, if there is one.
    void erase(const std::string& key);

    /// Adds the node and removes the child that was the first with the key before. On failure nothing changes.
    void replaceFirst(const std::string& key, KestTreeNode& node);

    /// Must follow each change of a node's key.
    static void keyChanged(KestTreeNode& node) noexcept;
    /// Removes the first child and returns it, with the list's reference; null at the end. After the first call the
    /// list is only emptied.
    KestTreeNode* takeFirst() noexcept;

    TreeChildren* m_pNextToEmpty = nullptr;  // of TreeChildrenDeleter

  private:
    using Place = TreePlace;

    TreeProbe probeFor(const std::string& key) const noexcept;
    Place placeOf(const std::string& key) const;
    Place placeOf(const KestTreeNode& node) const noexcept;
    template <typename Matches>
    Place firstPlaceOf(Matches matches) const;
    Place placeAt(std::size_t index) const noexcept;
    Place lastPlace() const noexcept;
    void insert(Place place, KestTreeNode& node);
    void erase(Place place);

    void attach(KestTreeNode& node, TreeLeaf& leaf) noexcept;
    static void detach(KestTreeNode& node, const TreeLeaf& leaf) noexcept;
    void beginEmptying(const TreeLeaf* leaf) noexcept;
    void rename(TreeLeaf& leaf, const KestTreeNode& node) noexcept;

    std::unique_ptr<TreeBlock> cloneOf(const TreeBlock& block);
    Place makeRoom(Place place);
    void split(TreeBlock& block, bool isAppending);
    static std::size_t moveItems(TreeBlock& from, std::size_t first, TreeBlock& to) noexcept;
    static void refreshAbove(TreeBlock& block, std::ptrdiff_t added) noexcept;
    void removeEmpty(TreeBlock& block) noexcept;
    void merge(TreeBlock& block) noexcept;
    void joinNext(TreeBranch& parent, std::size_t place) noexcept;
    void dropRoots() noexcept;

    bool areKeysKnown() const noexcept;
    bool isUpToDate(const TreeBlock& block) const noexcept;
    void readKeys() noexcept;
    void readKeys(TreeBlock& block) noexcept;
    void countOther(const std::string& key) noexcept;

    std::unique_ptr<TreeBlock> m_root;  // null for an empty list
    std::size_t m_size = 0;
    std::string m_common;      // what most keys begin with
    std::size_t m_others = 0;  // keys that do not, since the prefixes were made
    bool m_isEmptied = false;
    Place m_first;  // of a list that is emptied
    // Set permanently when a node of the list comes into a second one.
    mutable std::atomic<bool> m_isShared{false};
    // Of a shared list: the number of key changes at the last check, doubled, and whether the keys were as expected.
    mutable std::atomic<std::uint64_t> m_checked{0};
    mutable std::atomic<const TreeLeaf*> m_cursor{nullptr};  // the leaf of the last index; null after a change
};

}  // namespace KestSupport::internal
