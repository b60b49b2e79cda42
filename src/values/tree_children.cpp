#include "values/tree_children.h"

#include <algorithm>
#include <limits>

#include "support/tree_node.h"

namespace KestSupport::internal {
namespace {

// Never 0, which is what a list has that was not checked yet.
constinit std::atomic<std::uint64_t> g_keyChanges{1};

constexpr std::uint64_t kSearchable = 1;

std::uint64_t currentChanges() noexcept {
    return g_keyChanges.load(std::memory_order_relaxed) * 2;
}

constexpr std::size_t kWidth = sizeof(std::uint64_t);

// Eight bytes as a number that orders as they do. Compilers make a single load of it.
std::uint64_t numberOf(const char* bytes) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < kWidth; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

std::uint64_t shortPrefixOf(const std::string& key, std::size_t start) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = start; i < start + kWidth; ++i)
        number = number << 8 | (i < key.size() ? static_cast<unsigned char>(key[i]) : 0U);
    return number;
}

// The number of the eight bytes of the key from `start` on, which is at most its length; zeros stand for what it lacks.
inline std::uint64_t prefixOf(const std::string& key, std::size_t start) noexcept {
    const char* const bytes = key.data();
    const std::size_t length = key.size() - start;
    if (length >= kWidth) return numberOf(bytes + start);
    if (length == 0 || key.size() < kWidth) return shortPrefixOf(key, start);
    return numberOf(bytes + key.size() - kWidth) << (8 * (kWidth - length));
}

std::size_t commonLength(const std::string& a, const std::string& b) noexcept {
    return static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
}

}  // namespace

void TreeChildren::keyChanged() noexcept {
    g_keyChanges.fetch_add(1, std::memory_order_relaxed);
}

TreeChildren::TreeChildren(const TreeChildren& other)
    : m_entries(other.m_entries), m_common(other.m_common), m_checked(other.m_checked.load(std::memory_order_relaxed)) {
    for (const Entry& entry : m_entries)
        entry.node->addRef();
}

TreeChildren::~TreeChildren() {
    for (const Entry& entry : m_entries)
        entry.node->release();
}

inline const std::string& TreeChildren::keyAt(std::size_t index) const noexcept {
    return m_entries[index].node->getKey();
}

// Whether the keys are in order and the prefixes are theirs.
inline bool TreeChildren::isSearchable() const {
    const std::uint64_t now = currentChanges();
    const std::uint64_t checked = m_checked.load(std::memory_order_relaxed);
    return (checked & ~kSearchable) == now ? (checked & kSearchable) != 0 : check(now);
}

bool TreeChildren::check(std::uint64_t now) const {
    bool searchable = true;
    for (std::size_t i = 0; searchable && i < size(); ++i) {
        const std::string& key = keyAt(i);
        searchable = key.starts_with(m_common) && m_entries[i].prefix == prefixOf(key, m_common.size()) &&
                     (i == 0 || keyAt(i - 1) <= key);
    }
    m_checked.store(searchable ? now | kSearchable : now, std::memory_order_relaxed);
    return searchable;
}

void TreeChildren::makeSearchable() {
    std::size_t common = size() == 0 ? 0 : keyAt(0).size();
    for (std::size_t i = 1; i < size(); ++i) {
        if (keyAt(i) < keyAt(i - 1)) return;
        common = std::min(common, commonLength(keyAt(0), keyAt(i)));
    }
    makePrefixes(common);
    m_checked.store(currentChanges() | kSearchable, std::memory_order_relaxed);
}

void TreeChildren::makePrefixes(std::size_t common) {
    m_common = size() == 0 ? std::string() : keyAt(0).substr(0, common);
    for (Entry& entry : m_entries)
        entry.prefix = prefixOf(entry.node->getKey(), common);
}

// Without a branch that depends on the prefixes: half of the guesses would be wrong. The last steps are a count, since
// each step of a binary search waits for the one before.
inline std::size_t TreeChildren::firstNotLess(std::uint64_t prefix) const noexcept {
    constexpr std::size_t kCounted = 16;
    const Entry* first = m_entries.data();
    std::size_t count = size();
    while (count > kCounted) {
        const std::size_t half = count / 2;
        first += first[half - 1].prefix < prefix ? half : 0;
        count -= half;
    }
    auto less = static_cast<std::size_t>(first - m_entries.data());
    for (std::size_t i = 0; i < count; ++i)
        less += first[i].prefix < prefix ? 1 : 0;
    return less;
}

// The entries with that prefix.
inline TreeChildren::Range TreeChildren::withPrefix(std::uint64_t prefix) const noexcept {
    const std::size_t first = firstNotLess(prefix);
    if (first == size() || m_entries[first].prefix != prefix) return {first, first};
    if (first + 1 == size() || m_entries[first + 1].prefix != prefix) return {first, first + 1};
    const bool isGreatest = prefix == std::numeric_limits<std::uint64_t>::max();
    return {first, isGreatest ? size() : firstNotLess(prefix + 1)};
}

std::size_t TreeChildren::find(const std::string& key) const {
    if (!isSearchable()) return firstOf([&](const std::string& other) { return other == key; });
    if (key.size() < m_common.size()) return size();
    // Whether the key has the common beginning shows at the end, when it is compared as a whole.
    Range range = withPrefix(prefixOf(key, m_common.size()));
    if (range.last - range.first > 1)
        range.first = pointOf(range, [&](const std::string& other) { return other < key; });
    return range.first < range.last && keyAt(range.first) == key ? range.first : size();
}

std::size_t TreeChildren::firstGreater(const std::string& key) {
    if (!isSearchable()) makeSearchable();
    if (!isSearchable()) return firstOf([&](const std::string& other) { return key < other; });
    const int side = key.compare(0, m_common.size(), m_common);
    if (side != 0) return side < 0 ? 0 : size();
    return pointOf(withPrefix(prefixOf(key, m_common.size())),
                   [&](const std::string& other) { return !(key < other); });
}

void TreeChildren::insert(std::size_t index, KestTreeNode& node) {
    const std::string& key = node.getKey();
    std::uint64_t prefix = 0;
    if (size() == 0 || isSearchable()) {
        const bool inOrder = (index == 0 || keyAt(index - 1) <= key) && (index == size() || key <= keyAt(index));
        if (size() == 0) m_common = key;
        const std::size_t common = commonLength(m_common, key);
        if (common != m_common.size()) makePrefixes(common);
        prefix = prefixOf(key, common);
        m_checked.store(currentChanges() | (inOrder ? kSearchable : 0), std::memory_order_relaxed);
    }
    m_entries.insert(m_entries.begin() + static_cast<std::ptrdiff_t>(index), Entry{prefix, &node});
    node.addRef();
}

KestSmartPointer<KestTreeNode> TreeChildren::erase(std::size_t index) {
    KestTreeNode* const node = m_entries[index].node;
    KestSmartPointer<KestTreeNode> removed(node);
    m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(index));
    node->release();
    return removed;
}

}  // namespace KestSupport::internal
