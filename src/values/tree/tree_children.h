// The children of one tree node: an owning list in the caller's order, in blocks (tree_blocks.h). To find, add or
// remove a child by key or by index takes log n steps in a list in key order; where keys are out of order, the blocks
// around them are searched item by item.
//
// When a quarter of the keys since the last time do not begin with the text of the prefixes (tree_prefix.h), the list
// chooses another text and computes all prefixes again.
//
// The key of a node may change at any time. What the list does then depends on the node:
//
//   in one list        The node knows its leaf, so the list updates its blocks at once.
//   in several lists   (now or earlier) The change is counted for all lists. A list with such nodes checks its keys
//                      before its next look-up. While its blocks are out of date, a look-up reads the keys one by one;
//                      the next change of the list updates the blocks.
//
// Threads: several threads may read and copy a list while no thread changes it or the keys of its nodes.
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
    /// Returns the first child with the key; null if there is none.
    KestTreeNode* find(const std::string& key) const;
    /// Inserts the node before the first child whose key is greater, or at the end.
    void add(KestTreeNode& node);
    /// Inserts the node before the child at the index, which is at most size().
    void insert(std::size_t index, KestTreeNode& node);
    void erase(std::size_t index);
    /// Removes the first child with the key, if any.
    void erase(const std::string& key);

    /// Adds the node and removes the child that was the first with the key. On failure nothing changes.
    void replaceFirst(const std::string& key, KestTreeNode& node);

    /// Call it after each change of a node's key.
    static void keyChanged(KestTreeNode& node) noexcept;
    /// Removes the first child and returns it with the list's reference; null at the end. After the first call, call
    /// nothing else except the destructor.
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
    std::string m_common;      // the text with which most keys begin
    std::size_t m_others = 0;  // keys added since then that begin differently
    bool m_isEmptied = false;
    Place m_first;  // of a list that is emptied
    // Set when a node of the list is added to a second one, and never reset.
    mutable std::atomic<bool> m_isShared{false};
    // In a shared list: twice the number of key changes at the last check, plus 1 if the blocks were up to date.
    mutable std::atomic<std::uint64_t> m_checked{0};
    mutable std::atomic<const TreeLeaf*> m_cursor{nullptr};  // the leaf of the last index; null after a change
};

}  // namespace KestSupport::internal
