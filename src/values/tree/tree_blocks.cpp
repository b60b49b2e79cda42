#include "values/tree/tree_blocks.h"

#include <algorithm>
#include <limits>

#include "support/tree_node.h"

namespace KestSupport::internal {
namespace {

// No branch depends on a prefix, because the processor would predict half of them wrongly. The last step counts,
// because each step of a binary search waits for the one before.
std::size_t firstPrefixNotLess(const std::vector<TreeBound>& items, std::uint64_t prefix) noexcept {
    constexpr std::size_t kCounted = 16;
    const TreeBound* first = items.data();
    std::size_t count = items.size();
    while (count > kCounted) {
        const std::size_t half = count / 2;
        first += first[half - 1].prefix < prefix ? half : 0;
        count -= half;
    }
    auto less = static_cast<std::size_t>(first - items.data());
    for (std::size_t i = 0; i < count; ++i)
        less += first[i].prefix < prefix ? 1 : 0;
    return less;
}

struct Range {
    std::size_t first;
    std::size_t end;
};

// Returns the items with the prefix. The items must be in order.
Range withPrefix(const std::vector<TreeBound>& items, std::uint64_t prefix) noexcept {
    const std::size_t first = firstPrefixNotLess(items, prefix);
    if (first == items.size() || items[first].prefix != prefix) return {first, first};
    if (first + 1 == items.size() || items[first + 1].prefix != prefix) return {first, first + 1};
    const bool isLast = prefix == std::numeric_limits<std::uint64_t>::max();
    return {first, isLast ? items.size() : firstPrefixNotLess(items, prefix + 1)};
}

// Returns the end of the items of the range for whose keys `isBefore` is true.
template <typename IsBefore>
std::size_t pointOf(const std::vector<TreeBound>& items, Range range, IsBefore isBefore) noexcept {
    while (range.first < range.end) {
        const std::size_t middle = (range.first + range.end) / 2;
        if (isBefore(items[middle].node->getKey())) {
            range.first = middle + 1;
        } else {
            range.end = middle;
        }
    }
    return range.first;
}

bool isLess(const TreeBound& bound, const TreeProbe& probe) noexcept {
    return bound.prefix != probe.prefix ? bound.prefix < probe.prefix : bound.node->getKey() < probe.key;
}

bool isGreater(const TreeBound& bound, const TreeProbe& probe) noexcept {
    return bound.prefix != probe.prefix ? bound.prefix > probe.prefix : probe.key < bound.node->getKey();
}

bool isEqual(const TreeBound& bound, const TreeProbe& probe) noexcept {
    return bound.prefix == probe.prefix && bound.node->getKey() == probe.key;
}

bool areInOrder(const TreeBound& first, const TreeBound& second) noexcept {
    if (first.prefix != second.prefix) return first.prefix < second.prefix;
    return first.node == second.node || first.node->getKey() <= second.node->getKey();
}

// Returns the first item that is not less. The items must be in order.
std::size_t firstNotLess(const std::vector<TreeBound>& items, const TreeProbe& probe) noexcept {
    return pointOf(items, withPrefix(items, probe.prefix), [&](const std::string& key) { return key < probe.key; });
}

std::size_t firstEqual(const TreeBlock& leaf, const TreeProbe& probe) noexcept {
    std::size_t item = 0;
    if (leaf.isOrdered) {
        const Range range = withPrefix(leaf.items, probe.prefix);
        if (range.first == range.end) return leaf.size();
        item = range.first;
        if (range.end - range.first > 1) {
            item = pointOf(leaf.items, range, [&](const std::string& key) { return key < probe.key; });
        }
        return item < range.end && leaf.items[item].node->getKey() == probe.key ? item : leaf.size();
    }
    while (item < leaf.size() && !isEqual(leaf.items[item], probe))
        ++item;
    return item;
}

TreePlace findFirstInAll(const TreeBranch& branch, const TreeProbe& probe) noexcept {
    for (std::size_t item = 0; item < branch.size(); ++item) {
        const TreeBranch::Below& below = branch.below[item];
        if (isLess(branch.items[item], probe) || isGreater(below.least, probe)) continue;
        const TreePlace found = findFirst(*below.block, probe);
        if (found.leaf != nullptr) return found;
    }
    return {};
}

}  // namespace

// In a branch in order, only the first block whose greatest key is not less can have the key first. In any other
// branch, each block that may have the key is searched.
TreePlace findFirst(const TreeBlock& root, const TreeProbe& probe) noexcept {
    const TreeBlock* block = &root;
    while (!block->isLeaf) {
        const auto& branch = static_cast<const TreeBranch&>(*block);
        if (!branch.isOrdered) return findFirstInAll(branch, probe);
        const std::size_t item = firstNotLess(branch.items, probe);
        if (item == branch.size() || isGreater(branch.below[item].least, probe)) return {};
        block = branch.below[item].block.get();
    }
    const std::size_t item = firstEqual(*block, probe);
    if (item == block->size()) return {};
    return {const_cast<TreeLeaf*>(static_cast<const TreeLeaf*>(block)), item};
}

TreePlace findFirstGreater(TreeBlock& root, const TreeProbe& probe) noexcept {
    TreeBlock* block = &root;
    std::size_t item = block->firstGreater(probe);
    if (item == block->size()) return {};
    for (; !block->isLeaf; item = block->firstGreater(probe))
        block = static_cast<TreeBranch*>(block)->below[item].block.get();
    return {static_cast<TreeLeaf*>(block), item};
}

const TreeLeaf* firstLeafOf(const TreeBlock* block) noexcept {
    while (!block->isLeaf)
        block = static_cast<const TreeBranch*>(block)->below.front().block.get();
    return static_cast<const TreeLeaf*>(block);
}

TreeBound TreeBlock::least() const noexcept {
    const auto at = [this](std::size_t i) {
        return isLeaf ? items[i] : static_cast<const TreeBranch*>(this)->below[i].least;
    };
    TreeBound found = at(0);
    for (std::size_t i = 1; !isOrdered && i < size(); ++i) {
        if (const TreeBound other = at(i); !areInOrder(found, other)) found = other;
    }
    return found;
}

TreeBound TreeBlock::greatest() const noexcept {
    if (isOrdered) return items.back();
    TreeBound found = items[0];
    for (const TreeBound& other : items) {
        if (!areInOrder(other, found)) found = other;
    }
    return found;
}

bool TreeBlock::isInOrder(std::size_t item) const noexcept {
    const auto isBefore = [this](std::size_t i) {
        return areInOrder(items[i], isLeaf ? items[i + 1] : static_cast<const TreeBranch*>(this)->below[i + 1].least);
    };
    return (item == 0 || isBefore(item - 1)) && (item + 1 >= size() || isBefore(item));
}

bool TreeBlock::isWhollyInOrder() const noexcept {
    for (std::size_t i = 1; i < size(); i += 2) {
        if (!isInOrder(i)) return false;
    }
    return true;
}

void TreeBlock::checkOrder(std::size_t item) noexcept {
    isOrdered = isOrdered ? isInOrder(item) : isWhollyInOrder();
}

std::size_t TreeBlock::firstGreater(const TreeProbe& probe) const noexcept {
    if (isOrdered) {
        return pointOf(items, withPrefix(items, probe.prefix),
                       [&](const std::string& key) { return !(probe.key < key); });
    }
    std::size_t item = 0;
    while (item < size() && !isGreater(items[item], probe))
        ++item;
    return item;
}

const TreeLeaf* TreeLeaf::next() const noexcept {
    const TreeBlock* block = this;
    for (const TreeBranch* above = parent; above != nullptr; block = above, above = above->parent) {
        const std::size_t after = block->place + 1;
        if (after < above->size()) return firstLeafOf(above->below[after].block.get());
    }
    return nullptr;
}

std::size_t TreeLeaf::itemOf(const KestTreeNode& node) const noexcept {
    std::size_t item = 0;
    while (items[item].node != &node)
        ++item;
    return item;
}

TreeBranch::TreeBranch(TreeChildren& owner) : TreeBlock(owner, false) {
    items.reserve(kWidth);
    below.reserve(kWidth);
}

void TreeBranch::numberFrom(std::size_t first) noexcept {
    for (std::size_t i = first; i < below.size(); ++i) {
        below[i].block->parent = this;
        below[i].block->place = i;
    }
}

void TreeBranch::refresh(std::size_t item) noexcept {
    items[item] = below[item].block->greatest();
    below[item].least = below[item].block->least();
    checkOrder(item);
}

void TreeBranch::insert(std::size_t item, std::unique_ptr<TreeBlock> block, std::size_t count) noexcept {
    const auto offset = static_cast<std::ptrdiff_t>(item);
    items.insert(items.begin() + offset, TreeBound{});
    below.insert(below.begin() + offset, Below{{}, count, std::move(block)});
    numberFrom(item);
    refresh(item);
}

std::unique_ptr<TreeBlock> TreeBranch::remove(std::size_t item) noexcept {
    std::unique_ptr<TreeBlock> block = std::move(below[item].block);
    const auto offset = static_cast<std::ptrdiff_t>(item);
    items.erase(items.begin() + offset);
    below.erase(below.begin() + offset);
    numberFrom(item);
    if (!isOrdered) checkOrder();
    return block;
}

}  // namespace KestSupport::internal
