// The children of one tree node: an owning list in the caller's order. While the keys are in order a search is a binary
// one, mostly without a look at the nodes: beside each node stand the eight bytes of its key that follow what all keys
// begin with, as a number that orders as they do; only where these are equal are whole keys compared.
//
// A node does not know the lists that it is in, and may get another key at any time. So the nodes that are, or were, in
// a list tell keyChanged, and every list checks its keys before it goes by them again. Several threads that look at a
// list together may all check it; they find the same, and change nothing but what they found.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/object_base.h"

namespace KestSupport {

class KestTreeNode;

namespace internal {

class TreeChildren {
  public:
    TreeChildren() = default;
    /// Shares the nodes.
    TreeChildren(const TreeChildren& other);
    TreeChildren& operator=(const TreeChildren&) = delete;
    /// Lets the nodes go, the first one first.
    ~TreeChildren();

    std::size_t size() const noexcept { return m_entries.size(); }
    KestTreeNode* operator[](std::size_t index) const noexcept { return m_entries[index].node; }
    /// The first child with the key; size() when there is none.
    std::size_t find(const std::string& key) const;
    /// The first child whose key is greater; size() when there is none.
    std::size_t firstGreater(const std::string& key);
    /// Puts the node before the child at the index, which is at most size().
    void insert(std::size_t index, KestTreeNode& node);
    KestSmartPointer<KestTreeNode> erase(std::size_t index);

    /// A node that is, or was, in some list has got another key.
    static void keyChanged() noexcept;

  private:
    struct Entry {
        std::uint64_t prefix;
        KestTreeNode* node;  // one reference is the list's
    };
    struct Range {
        std::size_t first;
        std::size_t last;
    };

    const std::string& keyAt(std::size_t index) const noexcept;
    std::size_t firstNotLess(std::uint64_t prefix) const noexcept;
    Range withPrefix(std::uint64_t prefix) const noexcept;
    // The first child whose key is as asked for; size() when there is none.
    template <typename Matches>
    std::size_t firstOf(Matches matches) const {
        std::size_t index = 0;
        while (index < size() && !matches(keyAt(index)))
            ++index;
        return index;
    }
    // Where in the range the keys begin that are not before the place looked for.
    template <typename IsBefore>
    std::size_t pointOf(Range range, IsBefore isBefore) const {
        while (range.first < range.last) {
            const std::size_t middle = (range.first + range.last) / 2;
            if (isBefore(keyAt(middle))) {
                range.first = middle + 1;
            } else {
                range.last = middle;
            }
        }
        return range.first;
    }
    bool isSearchable() const;
    bool check(std::uint64_t now) const;
    void makeSearchable();
    void makePrefixes(std::size_t common);

    std::vector<Entry> m_entries;
    std::string m_common;  // what all keys begin with, when the prefixes were made
    // The number of key changes at the last check, doubled, and whether the list was found to be searchable.
    mutable std::atomic<std::uint64_t> m_checked{0};
};

}  // namespace internal
}  // namespace KestSupport
