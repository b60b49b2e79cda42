// A tree whose nodes are found by text keys, one by one or along a path. Programs derive their own nodes from it.
//
// A node has a list of children. add inserts a child in the order of the keys; insert ignores that order. Keys are
// compared byte by byte, case included. If several children have one key, the first one is found.
//
// Cost: to add, find or remove a child by key or by index takes log n steps in a list in key order. A key that is out
// of order costs a look at some of its neighbours; a list in no order, a look at each child. Consecutive indexes take
// constant time each. If a node was in several lists at a time (a copy shares the children) and its key changes, each
// of these lists reads all its keys at the next look-up.
//
// Paths: a path is the keys from level to level, as a vector from which the used keys are removed, or as one text with
// delimiters, which has no empty keys. Blanks around a key are ignored. Adding along a path creates plain nodes for
// missing keys; a node that is added later with the key of a plain one replaces it and takes over its children.
//
// Threads: nothing is locked. Several threads may read a tree at once while no thread changes it.
//
// Lifetime: parents and callers hold a node by smart pointers. Copies of a node share its children. A node releases its
// children in their order, inside its destructor. Below 64 levels of such destructors, the children are released right
// after their parent was destroyed, so a tree of any depth needs little stack.
#pragma once

#include <atomic>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/object_base.h"
#include "support/observer.h"

namespace KestSupport {

namespace internal {
class TreeChildren;
struct TreeChildrenDeleter {
    void operator()(TreeChildren* children) const noexcept;
};
}  // namespace internal

/// The nodes passed to add and insert must not be null, and a tree must not be added to itself. Indexes count from 0.
/// An index outside the list throws KestNoSuchElementException "KestNoSuchElementException - KestTreeNode::OPERATION:
/// No child at index N", and changes nothing.
class KEST_SUPPORT_EXPORT KestTreeNode : public KestObjectBase, public KestCollaborator {
  public:
    /// A node without children, with an empty key unless one is given.
    KestTreeNode();
    explicit KestTreeNode(const std::string& key);
    /// Copies the key, the parent and the list, whose nodes are shared; not the dependents.
    KestTreeNode(const KestTreeNode& other);
    KestTreeNode& operator=(const KestTreeNode& other);
    /// Changes the key, as setKey.
    KestTreeNode& operator=(const std::string& key);
    ~KestTreeNode() override;

    /// Returns the key; valid until it is changed.
    const std::string& getKey() const noexcept KEST_SUPPORT_LIFETIMEBOUND { return m_key; }
    /// Changes the key. The node stays at its place in its list.
    void setKey(const std::string& key);

    /// The number of children.
    std::size_t size() const noexcept { return count(); }
    /// Returns the child at the index.
    KestSmartPointer<KestTreeNode> operator[](int index);

    /// Visits the children in their order, each as a smart pointer:
    ///
    ///     for (const auto& child : *node) ...
    ///
    /// The loop counts indexes, so a change of the list moves the children that it sees next. It ends at the end that
    /// the list has at that time.
    class Iterator {
      public:
        /// What the loop visits.
        using value_type = KestSmartPointer<KestTreeNode>;
        using difference_type = std::ptrdiff_t;

        /// Without a node, only for assignment; with one, at its first child.
        Iterator() = default;
        explicit Iterator(KestTreeNode& parent) noexcept : m_pParent(&parent) {}
        /// Returns the child at the position.
        value_type operator*() const { return (*m_pParent)[m_index]; }
        /// Move to the next child.
        Iterator& operator++() noexcept {
            ++m_index;
            return *this;
        }
        Iterator operator++(int) noexcept {
            const Iterator before = *this;
            ++m_index;
            return before;
        }
        /// Compare positions. The end is after the last child that the list has at that time.
        bool operator==(const Iterator& other) const noexcept {
            return m_pParent == other.m_pParent && m_index == other.m_index;
        }
        bool operator==(std::default_sentinel_t) const noexcept {
            return static_cast<std::size_t>(m_index) >= m_pParent->size();
        }

      private:
        KestTreeNode* m_pParent = nullptr;
        int m_index = 0;
    };
    /// The range of a loop over the children.
    Iterator begin() noexcept KEST_SUPPORT_LIFETIMEBOUND { return Iterator(*this); }
    std::default_sentinel_t end() const noexcept { return {}; }

    /// Calls visit(node, depth) for this node, with depth 0, and for all nodes below it, each before its children. If
    /// visit returns a bool, false skips the nodes below. It may change the children of the node that it gets; other
    /// changes of a list move the nodes that the walk sees next. A tree of any depth needs little stack.
    template <typename Visit>
    void walk(Visit visit) {
        struct Level {
            KestSmartPointer<KestTreeNode> holder;  // null for this node
            Iterator next;
        };
        const auto enters = [&](KestTreeNode& node, std::size_t depth) {
            if constexpr (std::is_convertible_v<decltype(visit(node, depth)), bool>) return bool(visit(node, depth));
            visit(node, depth);
            return true;
        };
        if (!enters(*this, 0)) return;
        std::vector<Level> levels{{nullptr, begin()}};
        while (!levels.empty()) {
            Iterator& next = levels.back().next;
            if (next == end()) {
                levels.pop_back();
                continue;
            }
            KestSmartPointer<KestTreeNode> child = *next++;
            if (enters(*child, levels.size())) levels.push_back({child, child->begin()});
        }
    }

    /// Returns the first child with the key; null if there is none.
    KestSmartPointer<KestTreeNode> getNode(const std::string& key);
    /// Returns the node at the end of the path; null if there is none, and for an empty path. Removes the keys from the
    /// vector, up to and including the first one that is missing.
    KestSmartPointer<KestTreeNode> getNode(std::vector<std::string>& path);
    /// The same for a path in one text. Each character of `delimiters` separates keys.
    KestSmartPointer<KestTreeNode> getNode(const std::string& path, const char* delimiters);

    /// Inserts the node before the first child whose key is greater, or at the end, and returns it.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node);
    /// Sets the node's key to the last one of the path, adds the node at the end of the path, and returns it. If a
    /// child is there already and the name of its class contains "KestTreeNode", the node replaces it and takes over
    /// its children in place of its own. Any other child stays and is returned. All keys are removed from the vector.
    /// An empty path changes nothing and returns null. If memory runs out, the node may have its new key and plain
    /// nodes may have been added on the path; the children stay.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node, std::vector<std::string>& path);
    /// The same; the node's key is the path.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node, const char* delimiters);
    /// Inserts the node before the child at the index, or at the end if the index is the number of children. Its key
    /// does not matter. This node becomes its parent.
    void insert(int index, KestSmartPointer<KestTreeNode> node);
    /// Removes the child at the index.
    void erase(int index);
    /// Removes the first child with the key, if any.
    void erase(const std::string& key);

    /// Logs the node and all nodes below it, one record each, indented by their level. Only at log level 9 exactly.
    void print(int indent);
    /// Logs this node: four blanks for each level, then "KestTreeNode::print: Key = " and the key.
    virtual void printGuts(int indent);

  protected:
    /// The node on which insert was called with this one; a copy has the parent of its source. Not owned, and not reset
    /// when that node is destroyed.
    KestTreeNode* m_pParent = nullptr;

  private:
    friend class internal::TreeChildren;

    std::size_t count() const noexcept;
    std::size_t checked(int index, std::size_t end, const char* operation) const;
    internal::TreeChildren& children();
    KestSmartPointer<KestTreeNode> addLast(KestSmartPointer<KestTreeNode> node, const std::string& key);

    std::unique_ptr<internal::TreeChildren, internal::TreeChildrenDeleter> m_children;  // null until the first child
    std::string m_key;
    std::atomic<void*> m_place{nullptr};  // of TreeChildren: the block of the list that the node is in
};

}  // namespace KestSupport
