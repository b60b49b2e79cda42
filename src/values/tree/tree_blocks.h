// The blocks of a node's children: a B+ tree in the order of the list, which need not be that of the keys.
//
//   TreeBound   a key: the node that has it, and the eight bytes that most comparisons need
//   TreeProbe   a key to look for
//   TreeBlock   a block; TreeLeaf holds nodes, TreeBranch holds blocks
//   TreePlace   a place in a leaf
//
// For each block below it, a branch has the number of nodes there, and the least and the greatest of their keys. So
// three searches from the root work in any list: for the node at an index, by the numbers; for the first node with a
// greater key, by the greatest keys; and for the first node with a key, by both. A block in key order is searched by
// halving. A key out of order makes the blocks above it unordered; these are searched item by item.
//
//   branch       least  a   f   p
//                most   e   k   t     in order
//                count  3   2   3
//   leaves             abe  fk  pst
//
// Threads: the rules of the list that owns the blocks apply. Lifetime: a branch owns the blocks below it; blocks do not
// own nodes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KestSupport {

class KestTreeNode;

namespace internal {

class TreeChildren;
struct TreeBranch;

struct TreeBound {
    std::uint64_t prefix;  // in the order of the keys; if prefixes are equal, the whole keys decide
    KestTreeNode* node;
};

struct TreeProbe {
    std::uint64_t prefix;
    const std::string& key;
};

struct TreeBlock {
    static constexpr std::size_t kWidth = 64;  // the most items
    static constexpr std::size_t kNarrow = kWidth / 4;
    static constexpr std::size_t kMerged = kWidth * 3 / 4;

    TreeBlock(TreeChildren& owner, bool leaf) : list(owner), isLeaf(leaf) {}
    TreeBlock(const TreeBlock&) = delete;
    TreeBlock& operator=(const TreeBlock&) = delete;
    virtual ~TreeBlock() = default;

    std::size_t size() const noexcept { return items.size(); }
    TreeBound least() const noexcept;
    TreeBound greatest() const noexcept;
    bool isInOrder(std::size_t item) const noexcept;  // compared with its neighbours
    bool isWhollyInOrder() const noexcept;
    /// Call it after a change of the item's key or place.
    void checkOrder(std::size_t item) noexcept;
    void checkOrder() noexcept { isOrdered = isWhollyInOrder(); }

    /// Returns the first item that is greater; in a branch, the first whose greatest key is greater. size() if there is
    /// none.
    std::size_t firstGreater(const TreeProbe& probe) const noexcept;

    TreeChildren& list;
    TreeBranch* parent = nullptr;
    std::size_t place = 0;  // in the parent
    const bool isLeaf;
    bool isOrdered = true;         // of its own items; a block below may be unordered
    std::vector<TreeBound> items;  // a leaf's nodes; for a branch: the greatest keys of the blocks below
};

struct TreeLeaf : TreeBlock {
    explicit TreeLeaf(TreeChildren& owner) : TreeBlock(owner, true) {}

    const TreeLeaf* next() const noexcept;
    std::size_t itemOf(const KestTreeNode& node) const noexcept;

    // The index of the first node; valid while the list's cursor is this leaf.
    mutable std::atomic<std::size_t> firstIndex{0};
};

struct TreeBranch : TreeBlock {
    struct Below {
        TreeBound least;
        std::size_t count;  // of nodes
        std::unique_ptr<TreeBlock> block;
    };

    explicit TreeBranch(TreeChildren& owner);

    /// Call it after a change of the blocks from `first` on.
    void numberFrom(std::size_t first) noexcept;
    /// Reads the bounds of a block again.
    void refresh(std::size_t item) noexcept;
    /// Needs room in the branch and a block that is not empty.
    void insert(std::size_t item, std::unique_ptr<TreeBlock> block, std::size_t count) noexcept;
    std::unique_ptr<TreeBlock> remove(std::size_t item) noexcept;

    std::vector<Below> below;  // as many as items
};

/// Without a leaf: no place.
struct TreePlace {
    TreeLeaf* leaf = nullptr;
    std::size_t item = 0;
};

const TreeLeaf* firstLeafOf(const TreeBlock* block) noexcept;
/// Returns the first node below the block with the key.
TreePlace findFirst(const TreeBlock& block, const TreeProbe& probe) noexcept;
/// Returns the first node below the block with a greater key.
TreePlace findFirstGreater(TreeBlock& block, const TreeProbe& probe) noexcept;

}  // namespace internal
}  // namespace KestSupport
