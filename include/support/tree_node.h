// A tree whose nodes are found by text keys, one by one or along a path. Programs derive their own nodes from it.
//
// A node holds its children in a list, in the order of their keys as far as they were put in with add. Keys are
// compared byte by byte, case included; of several children with one key the first is found.
//
// Cost: adding, looking up and removing, by key or by index, take log n steps in a list in key order. A key that is out
// of order costs a look at some of its neighbours; a list in no order, a look at each child. Indexes in sequence take
// constant time each. After a node that was in several lists at a time (a copy shares the children) gets another key,
// each of its lists reads all keys at the next look-up.
//
// Paths: the keys on the way down, as a vector that loses the keys that were used, or as one text with delimiters,
// between which no key is empty. Blanks around a key do not count. Adding along a path makes plain nodes where a key is
// missing, and a node that comes later to the place of a plain one takes over its children.
//
// Threads: nothing is locked. Several threads may look at a tree together while nobody changes it.
//
// Lifetime: a parent and any caller hold a node by smart pointers. Copies of a node share its children. A node releases
// its children in their order, within its own destructor. Below 64 levels of such destructors, the children are
// released right after their parent is gone, so a tree of any depth takes little stack.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
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

/// The nodes given to add and insert are not null, and no tree is put into itself. Indexes count from 0; one outside of
/// the list throws KestNoSuchElementException "KestNoSuchElementException - KestTreeNode::OPERATION: No child at index
/// N", and changes nothing.
class KEST_SUPPORT_EXPORT KestTreeNode : public KestObjectBase, public KestCollaborator {
  public:
    KestTreeNode();
    explicit KestTreeNode(const std::string& key);
    /// The key, the parent and the list, whose nodes are shared; no dependents.
    KestTreeNode(const KestTreeNode& other);
    KestTreeNode& operator=(const KestTreeNode& other);
    KestTreeNode& operator=(const std::string& key);
    ~KestTreeNode() override;

    const std::string& getKey() const noexcept { return m_key; }
    /// The node keeps its place in the list that it is in.
    void setKey(const std::string& key);

    KestSmartPointer<KestTreeNode> operator[](int index);
    /// The child with the key; null when there is none.
    KestSmartPointer<KestTreeNode> getNode(const std::string& key);
    /// The node at the end of the path; null when there is none, and for an empty path. Up to the first key that is
    /// missing, that one too, the keys are removed from the vector.
    KestSmartPointer<KestTreeNode> getNode(std::vector<std::string>& path);
    KestSmartPointer<KestTreeNode> getNode(const std::string& path, const char* delimiters);

    /// Puts the node before the first child whose key is greater, or at the end, and returns it.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node);
    /// Puts the node, with the path's last key, at the end of the path, and returns it. A child that is there already
    /// gives its place and its children to the node, whose own are replaced, if the name of its class has
    /// "KestTreeNode" in it; any other child stays, and is returned. All keys are removed from the vector. With an
    /// empty path nothing changes, and the result is null. Without memory the node may have its new key, and the tree
    /// keeps its children; only placeholders on the path may have been added.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node, std::vector<std::string>& path);
    /// The same along the path that the node's own key is.
    KestSmartPointer<KestTreeNode> add(KestSmartPointer<KestTreeNode> node, const char* delimiters);
    /// Puts the node before the child at the index, or at the end when the index is the number of children, whatever
    /// its key; this node becomes its parent.
    void insert(int index, KestSmartPointer<KestTreeNode> node);
    void erase(int index);
    /// Removes the first child with the key, if there is one.
    void erase(const std::string& key);

    /// Writes the node and all below it to the log, each a level deeper, while the log level is exactly 9.
    void print(int indent);
    /// Writes this node's record: four blanks for each level, and "KestTreeNode::print: Key = " with the key.
    virtual void printGuts(int indent);

  protected:
    /// The node that inserted this one, or that the node this is a copy of had as its parent. Not owned, and not
    /// cleared when that node goes.
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
