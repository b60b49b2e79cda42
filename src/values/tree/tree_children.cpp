#include "values/tree/tree_children.h"

#include <algorithm>
#include <new>
#include <utility>

#include "support/tree_node.h"
#include "values/tree/tree_prefix.h"

namespace KestSupport::internal {
namespace {

// Counts the key changes of nodes that do not know their leaf. Never 0, which means that a list was not checked yet.
constinit std::atomic<std::uint64_t> g_keyChanges{1};
constexpr std::uint64_t kUpToDate = 1;

// Marks a node that is, or was, in several lists at a time, in place of its leaf.
constinit char g_several;

std::uint64_t currentChanges() noexcept {
    return g_keyChanges.load(std::memory_order_relaxed) * 2;
}

constexpr std::size_t kFewest = 4;  // items of a first leaf

template <typename Visit>
void forEachLeaf(const TreeBlock* root, Visit visit) {
    for (const TreeLeaf* leaf = root == nullptr ? nullptr : firstLeafOf(root); leaf != nullptr; leaf = leaf->next())
        visit(*leaf);
}

}  // namespace

TreeChildren::TreeChildren(const TreeChildren& other)
    : m_root(other.m_root == nullptr ? nullptr : cloneOf(*other.m_root)),
      m_size(other.m_size),
      m_common(other.m_common),
      m_others(other.m_others),
      m_checked(other.m_checked.load(std::memory_order_relaxed)) {
    // No failure is possible from here on.
    forEachLeaf(m_root.get(), [this](const TreeLeaf& leaf) {
        for (const TreeBound& item : leaf.items) {
            item.node->addRef();
            attach(*item.node, const_cast<TreeLeaf&>(leaf));
        }
    });
}

TreeChildren::~TreeChildren() = default;

std::unique_ptr<TreeBlock> TreeChildren::cloneOf(const TreeBlock& block) {
    std::unique_ptr<TreeBlock> clone;
    if (block.isLeaf) {
        clone = std::make_unique<TreeLeaf>(*this);
        if (block.parent != nullptr) clone->items.reserve(TreeBlock::kWidth);
    } else {
        auto branch = std::make_unique<TreeBranch>(*this);
        for (const TreeBranch::Below& below : static_cast<const TreeBranch&>(block).below) {
            branch->below.push_back({below.least, below.count, cloneOf(*below.block)});
        }
        branch->numberFrom(0);
        clone = std::move(branch);
    }
    clone->items.insert(clone->items.end(), block.items.begin(), block.items.end());
    clone->isOrdered = block.isOrdered;
    return clone;
}

KestTreeNode* TreeChildren::operator[](std::size_t index) const noexcept {
    const Place place = placeAt(index);
    return place.leaf->items[place.item].node;
}

KestTreeNode* TreeChildren::find(const std::string& key) const {
    const Place place = placeOf(key);
    return place.leaf == nullptr ? nullptr : place.leaf->items[place.item].node;
}

void TreeChildren::add(KestTreeNode& node) {
    if (!areKeysKnown()) readKeys();
    const Place place = m_root == nullptr ? Place() : findFirstGreater(*m_root, probeFor(node.getKey()));
    insert(place.leaf == nullptr ? lastPlace() : place, node);
}

void TreeChildren::insert(std::size_t index, KestTreeNode& node) {
    if (!areKeysKnown()) readKeys();
    insert(index == m_size ? lastPlace() : placeAt(index), node);
}

void TreeChildren::erase(std::size_t index) {
    if (!areKeysKnown()) readKeys();
    erase(placeAt(index));
}

void TreeChildren::erase(const std::string& key) {
    if (!areKeysKnown()) readKeys();
    const Place place = placeOf(key);
    if (place.leaf != nullptr) erase(place);
}

void TreeChildren::replaceFirst(const std::string& key, KestTreeNode& node) {
    const KestTreeNode* const former = find(key);
    if (former == &node) {
        erase(key);
        add(node);
        return;
    }
    add(node);
    Place place = placeOf(key);
    if (place.leaf->items[place.item].node != former) place = placeOf(*former);
    erase(place);
}

void TreeChildren::keyChanged(KestTreeNode& node) noexcept {
    void* const place = node.m_place.load(std::memory_order_relaxed);
    if (place == nullptr) return;
    if (place == &g_several) {
        g_keyChanges.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    auto& leaf = *static_cast<TreeLeaf*>(place);
    leaf.list.rename(leaf, node);
}

KestTreeNode* TreeChildren::takeFirst() noexcept {
    if (!m_isEmptied) {
        m_isEmptied = true;
        beginEmptying(m_root == nullptr ? nullptr : firstLeafOf(m_root.get()));
    }
    if (m_first.leaf == nullptr) return nullptr;
    KestTreeNode* const node = m_first.leaf->items[m_first.item].node;
    if (++m_first.item == m_first.leaf->size()) beginEmptying(m_first.leaf->next());
    return node;
}

// Reads the nodes of the leaf one after the other, so that the processor fetches them at the same time: to release a
// node takes 60 instead of 127 ns at 1,000,000 random keys.
void TreeChildren::beginEmptying(const TreeLeaf* leaf) noexcept {
    m_first = {const_cast<TreeLeaf*>(leaf), 0};
    if (leaf == nullptr) return;
    for (const TreeBound& item : leaf->items)
        detach(*item.node, *leaf);
}

TreeProbe TreeChildren::probeFor(const std::string& key) const noexcept {
    return {prefixOf(key, m_common), key};
}

auto TreeChildren::placeOf(const std::string& key) const -> Place {
    if (m_root == nullptr) return {};
    if (areKeysKnown()) return findFirst(*m_root, probeFor(key));
    return firstPlaceOf([&](const KestTreeNode& node) { return node.getKey() == key; });
}

auto TreeChildren::placeOf(const KestTreeNode& node) const noexcept -> Place {
    return firstPlaceOf([&](const KestTreeNode& other) { return &other == &node; });
}

// Reads each child.
template <typename Matches>
auto TreeChildren::firstPlaceOf(Matches matches) const -> Place {
    for (auto* leaf = firstLeafOf(m_root.get()); leaf != nullptr; leaf = leaf->next()) {
        const auto found = std::find_if(leaf->items.begin(), leaf->items.end(),
                                        [&](const TreeBound& item) { return matches(*item.node); });
        const auto item = static_cast<std::size_t>(found - leaf->items.begin());
        if (item < leaf->size()) return {const_cast<TreeLeaf*>(leaf), item};
    }
    return {};
}

// The index must be less than the number of children.
auto TreeChildren::placeAt(std::size_t index) const noexcept -> Place {
    const TreeLeaf* leaf = m_cursor.load(std::memory_order_acquire);
    if (leaf != nullptr) {
        const std::size_t first = leaf->firstIndex.load(std::memory_order_relaxed);
        if (index - first < leaf->size()) return {const_cast<TreeLeaf*>(leaf), index - first};
    }
    const TreeBlock* block = m_root.get();
    std::size_t item = index;
    while (!block->isLeaf) {
        const auto* below = static_cast<const TreeBranch*>(block)->below.data();
        for (; item >= below->count; ++below)
            item -= below->count;
        block = below->block.get();
    }
    leaf = static_cast<const TreeLeaf*>(block);
    // Threads that read the list at the same time store the same index.
    leaf->firstIndex.store(index - item, std::memory_order_relaxed);
    m_cursor.store(leaf, std::memory_order_release);
    return {const_cast<TreeLeaf*>(leaf), item};
}

// After the last child.
auto TreeChildren::lastPlace() const noexcept -> Place {
    if (m_root == nullptr) return {};
    TreeBlock* block = m_root.get();
    while (!block->isLeaf)
        block = static_cast<TreeBranch*>(block)->below.back().block.get();
    return {static_cast<TreeLeaf*>(block), block->size()};
}

// Nothing has changed when a step fails: the allocations are first.
void TreeChildren::insert(Place place, KestTreeNode& node) {
    const std::string& key = node.getKey();
    if (m_root == nullptr) {
        auto leaf = std::make_unique<TreeLeaf>(*this);
        leaf->items.reserve(kFewest);
        m_common = key;
        m_others = 0;
        place.leaf = leaf.get();
        m_root = std::move(leaf);
    }
    m_cursor.store(nullptr, std::memory_order_relaxed);
    place = makeRoom(place);
    TreeLeaf& leaf = *place.leaf;
    leaf.items.insert(leaf.items.begin() + static_cast<std::ptrdiff_t>(place.item),
                      TreeBound{prefixOf(key, m_common), &node});
    if (leaf.isOrdered) leaf.checkOrder(place.item);
    attach(node, leaf);
    node.addRef();
    ++m_size;
    refreshAbove(leaf, 1);
    countOther(key);
}

// The node is released last, when the list is consistent again.
void TreeChildren::erase(Place place) {
    TreeLeaf& leaf = *place.leaf;
    KestTreeNode* const node = leaf.items[place.item].node;
    m_cursor.store(nullptr, std::memory_order_relaxed);
    leaf.items.erase(leaf.items.begin() + static_cast<std::ptrdiff_t>(place.item));
    if (!leaf.isOrdered) leaf.checkOrder();
    detach(*node, leaf);
    --m_size;
    if (leaf.items.empty()) {
        removeEmpty(leaf);
    } else {
        refreshAbove(leaf, -1);
        merge(leaf);
    }
    dropRoots();
    node->release();
}

void TreeChildren::attach(KestTreeNode& node, TreeLeaf& leaf) noexcept {
    void* const present = node.m_place.load(std::memory_order_relaxed);
    if (present == nullptr) {
        node.m_place.store(&leaf, std::memory_order_relaxed);
        return;
    }
    // Threads that copy the list at the same time store the same values.
    m_isShared.store(true, std::memory_order_relaxed);
    if (present == &g_several) return;
    static_cast<TreeLeaf*>(present)->list.m_isShared.store(true, std::memory_order_relaxed);
    node.m_place.store(&g_several, std::memory_order_relaxed);
}

void TreeChildren::detach(KestTreeNode& node, const TreeLeaf& leaf) noexcept {
    if (node.m_place.load(std::memory_order_relaxed) == &leaf) node.m_place.store(nullptr, std::memory_order_relaxed);
}

void TreeChildren::rename(TreeLeaf& leaf, const KestTreeNode& node) noexcept {
    if (m_isEmptied) return;
    const std::size_t item = leaf.itemOf(node);
    leaf.items[item].prefix = prefixOf(node.getKey(), m_common);
    leaf.checkOrder(item);
    refreshAbove(leaf, 0);
    countOther(node.getKey());
}

// Splits the leaf if it is full. A list that grows at its end has full leaves.
auto TreeChildren::makeRoom(Place place) -> Place {
    if (place.leaf->size() < TreeBlock::kWidth) return place;
    split(*place.leaf, place.item == TreeBlock::kWidth && place.leaf->next() == nullptr);
    const std::size_t kept = place.leaf->size();
    if (place.item <= kept) return place;
    return {const_cast<TreeLeaf*>(place.leaf->next()), place.item - kept};
}

// Creates a block after this one and moves half of the items into it, or one item when appending.
void TreeChildren::split(TreeBlock& block, bool isAppending) {
    if (block.parent == nullptr) {
        auto root = std::make_unique<TreeBranch>(*this);
        root->insert(0, std::move(m_root), m_size);
        m_root = std::move(root);
    } else if (block.parent->size() == TreeBlock::kWidth) {
        split(*block.parent, isAppending);
    }
    std::unique_ptr<TreeBlock> next;
    if (block.isLeaf) {
        next = std::make_unique<TreeLeaf>(*this);
        next->items.reserve(TreeBlock::kWidth);
    } else {
        next = std::make_unique<TreeBranch>(*this);
    }
    TreeBranch& parent = *block.parent;
    const std::size_t place = block.place;
    const std::size_t moved = moveItems(block, isAppending ? TreeBlock::kWidth - 1 : TreeBlock::kWidth / 2, *next);
    parent.below[place].count -= moved;
    parent.items[place] = block.greatest();
    parent.insert(place + 1, std::move(next), moved);
    parent.refresh(place);
}

// Moves the items from `first` on to the end of the other block, and returns the number of nodes moved.
std::size_t TreeChildren::moveItems(TreeBlock& from, std::size_t first, TreeBlock& to) noexcept {
    const auto offset = static_cast<std::ptrdiff_t>(first);
    std::size_t count = 0;
    if (from.isLeaf) {
        auto& leaf = static_cast<TreeLeaf&>(to);
        count = from.size() - first;
        for (std::size_t i = first; i < from.size(); ++i) {
            auto& place = from.items[i].node->m_place;
            if (place.load(std::memory_order_relaxed) == &from) place.store(&leaf, std::memory_order_relaxed);
        }
    } else {
        auto& below = static_cast<TreeBranch&>(from).below;
        auto& branch = static_cast<TreeBranch&>(to);
        for (std::size_t i = first; i < from.size(); ++i) {
            count += below[i].count;
            branch.below.push_back(std::move(below[i]));
        }
        below.erase(below.begin() + offset, below.end());
        branch.numberFrom(to.size());
    }
    to.items.insert(to.items.end(), from.items.begin() + offset, from.items.end());
    from.items.erase(from.items.begin() + offset, from.items.end());
    if (!from.isOrdered) from.checkOrder();
    to.checkOrder();
    return count;
}

// Updates the bounds and numbers above a block.
void TreeChildren::refreshAbove(TreeBlock& block, std::ptrdiff_t added) noexcept {
    const TreeBlock* child = &block;
    for (TreeBranch* branch = block.parent; branch != nullptr; child = branch, branch = branch->parent) {
        const std::size_t place = child->place;
        branch->below[place].count += static_cast<std::size_t>(added);
        branch->refresh(place);
    }
}

// Removes a leaf without items, and the branches that become empty.
void TreeChildren::removeEmpty(TreeBlock& block) noexcept {
    TreeBranch* const parent = block.parent;
    if (parent == nullptr) {
        m_root.reset();
        return;
    }
    parent->remove(block.place);
    if (parent->size() == 0) {
        removeEmpty(*parent);
    } else {
        refreshAbove(*parent, -1);
        merge(*parent);
    }
}

// Joins a narrow block with a neighbour of the same branch, if both are narrow enough.
void TreeChildren::merge(TreeBlock& block) noexcept {
    TreeBranch* const parent = block.parent;
    if (parent == nullptr || block.size() >= TreeBlock::kNarrow) return;
    const std::size_t place = block.place;
    const auto fits = [&](std::size_t other) {
        return other < parent->size() && parent->below[other].block->size() + block.size() <= TreeBlock::kMerged;
    };
    if (fits(place + 1)) {
        joinNext(*parent, place);
    } else if (place > 0 && fits(place - 1)) {
        joinNext(*parent, place - 1);
    } else {
        return;
    }
    merge(*parent);
}

void TreeChildren::joinNext(TreeBranch& parent, std::size_t place) noexcept {
    TreeBlock& block = *parent.below[place].block;
    const std::unique_ptr<TreeBlock> next = parent.remove(place + 1);
    parent.below[place].count += moveItems(*next, 0, block);
    parent.refresh(place);
}

void TreeChildren::dropRoots() noexcept {
    while (m_root != nullptr && !m_root->isLeaf && m_root->size() == 1) {
        std::unique_ptr<TreeBlock> only = static_cast<TreeBranch&>(*m_root).remove(0);
        only->parent = nullptr;
        m_root = std::move(only);
    }
}

// Whether the blocks are up to date with the keys of the nodes.
bool TreeChildren::areKeysKnown() const noexcept {
    if (!m_isShared.load(std::memory_order_relaxed)) return true;
    const std::uint64_t now = currentChanges();
    std::uint64_t checked = m_checked.load(std::memory_order_relaxed);
    if ((checked & ~kUpToDate) != now) {
        checked = m_root == nullptr || isUpToDate(*m_root) ? now | kUpToDate : now;
        m_checked.store(checked, std::memory_order_relaxed);
    }
    return (checked & kUpToDate) != 0;
}

bool TreeChildren::isUpToDate(const TreeBlock& block) const noexcept {
    if (block.isOrdered && !block.isWhollyInOrder()) return false;
    if (block.isLeaf) {
        return std::all_of(block.items.begin(), block.items.end(), [this](const TreeBound& item) {
            return item.prefix == prefixOf(item.node->getKey(), m_common);
        });
    }
    const auto isSame = [](const TreeBound& a, const TreeBound& b) { return a.node == b.node && a.prefix == b.prefix; };
    const auto& branch = static_cast<const TreeBranch&>(block);
    for (std::size_t i = 0; i < branch.size(); ++i) {
        const TreeBranch::Below& below = branch.below[i];
        if (!isUpToDate(*below.block)) return false;
        if (!isSame(below.least, below.block->least()) || !isSame(branch.items[i], below.block->greatest()))
            return false;
    }
    return true;
}

// Computes all prefixes and bounds again.
void TreeChildren::readKeys() noexcept {
    m_others = 0;
    if (m_root == nullptr) return;
    const std::string& first = firstLeafOf(m_root.get())->items.front().node->getKey();
    std::size_t common = first.size();
    forEachLeaf(m_root.get(), [&](const TreeLeaf& leaf) {
        for (const TreeBound& item : leaf.items)
            common = commonLength(first, item.node->getKey(), common);
    });
    try {
        m_common.assign(first, 0, common);
    } catch (const std::bad_alloc&) {
        // The former text is correct too; only the prefixes differ less.
    }
    readKeys(*m_root);
    m_checked.store(currentChanges() | kUpToDate, std::memory_order_relaxed);
}

void TreeChildren::readKeys(TreeBlock& block) noexcept {
    if (block.isLeaf) {
        for (TreeBound& item : block.items)
            item.prefix = prefixOf(item.node->getKey(), m_common);
    } else {
        auto& branch = static_cast<TreeBranch&>(block);
        for (std::size_t i = 0; i < branch.size(); ++i) {
            readKeys(*branch.below[i].block);
            branch.items[i] = branch.below[i].block->greatest();
            branch.below[i].least = branch.below[i].block->least();
        }
    }
    block.checkOrder();
}

// Called for each key that is added to the list.
void TreeChildren::countOther(const std::string& key) noexcept {
    if (key.starts_with(m_common)) return;
    if (++m_others * 4 > m_size) readKeys();
}

void TreeChildrenDeleter::operator()(TreeChildren* list) const noexcept {
    // The greatest depth of nested node destructors. The lists of deeper nodes are emptied later.
    constexpr unsigned kDeepest = 64;
    struct Emptied {
        TreeChildren* list = nullptr;
        unsigned depth = 0;
    };
    constinit static thread_local Emptied emptiedOfThread;
    Emptied& emptied = emptiedOfThread;
    list->m_pNextToEmpty = std::exchange(emptied.list, list);
    if (emptied.depth == kDeepest) return;
    ++emptied.depth;
    for (bool isDone = false; !isDone;) {
        TreeChildren* const top = emptied.list;
        if (KestTreeNode* const node = top->takeFirst(); node != nullptr) {
            node->release();
        } else {
            isDone = top == list;
            emptied.list = top->m_pNextToEmpty;
            delete top;
        }
    }
    --emptied.depth;
}

}  // namespace KestSupport::internal
