// The blocks that a node's children are kept in: a B+ tree whose order is that of the list, not that of the keys.
//
//   TreeBound   a key: the node that has it, and the eight bytes that most comparisons need
//   TreeProbe   a key that is looked for
//   TreeBlock   a block; TreeLeaf holds nodes, TreeBranch holds blocks
//   TreePlace   a place in a leaf
//
// A branch knows, for each block below it, how many nodes are there and the least and the greatest of their keys. So
// three things are found by a walk from the root, in any list: the node at an index, by the numbers; the first node
// with a greater key, by the greatest keys; and the first node with a key, by both. In a list in key order each block
// is searched by halving. A key out of order makes its own blocks unordered, and these are searched one by one.
//
//   branch       least  a   f   p
//                most   e   k   t     in order
//                count  3   2   3
//   leaves             abe  fk  pst
//
// Threads: as the list that the blocks belong to. Lifetime: a branch owns the blocks below it; nodes are not owned
// here.
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
    std::uint64_t prefix;  // orders as the keys do; equal ones need a comparison of the whole keys
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
    /// Must follow a change of the item's key or of its place.
    void checkOrder(std::size_t item) noexcept;
    void checkOrder() noexcept { isOrdered = isWhollyInOrder(); }

    /// The first item that is greater; for a branch: whose greatest key is. size() when there is none.
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

    // The index of the first node; right while the list's cursor is on this leaf.
    mutable std::atomic<std::size_t> firstIndex{0};
};

struct TreeBranch : TreeBlock {
    struct Below {
        TreeBound least;
        std::size_t count;  // of nodes
        std::unique_ptr<TreeBlock> block;
    };

    explicit TreeBranch(TreeChildren& owner);

    /// Must follow a change of the blocks from the first one on.
    void numberFrom(std::size_t first) noexcept;
    /// Takes the bounds of a block from the block.
    void refresh(std::size_t item) noexcept;
    /// There is room, and the block is not empty.
    void insert(std::size_t item, std::unique_ptr<TreeBlock> block, std::size_t count) noexcept;
    std::unique_ptr<TreeBlock> remove(std::size_t item) noexcept;

    std::vector<Below> below;  // as many as items
};

/// No leaf for none.
struct TreePlace {
    TreeLeaf* leaf = nullptr;
    std::size_t item = 0;
};

const TreeLeaf* firstLeafOf(const TreeBlock* block) noexcept;
/// The first node below the block with the key.
TreePlace findFirst(const TreeBlock& block, const TreeProbe& probe) noexcept;
/// The first node below the block with a greater key.
TreePlace findFirstGreater(TreeBlock& block, const TreeProbe& probe) noexcept;

}  // namespace internal
}  // namespace KestSupport
