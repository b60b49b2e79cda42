// A tree whose nodes are found by text keys, one by one or along a path. Programs derive their own nodes from it.
//
// A node holds its children in a list, in the order of their keys as far as they were put in with add. Keys are
// compared byte by byte, case included; of several children with one key the first is found. Looking up and adding take
// the steps of a binary search while the list is in key order, else a look at each child. A key that changes within a
// list ends that, and the next add in an order that is right begins it again.
//
// Paths: the keys on the way down, as a vector that loses the keys that were used, or as one text with delimiters,
// between which no key is empty. Blanks around a key do not count. Adding along a path makes plain nodes where a key is
// missing, and a node that comes later to the place of a plain one takes over its children.
//
// Threads: nothing is locked. Several threads may look at a tree together while nobody changes it.
//
// Lifetime: a parent and any caller hold a node by smart pointers. Copies of a node share its children. Letting go of a
// tree, and printing it, takes stack in proportion to its depth.
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
    /// empty path nothing changes, and the result is null.
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
    std::size_t count() const noexcept;
    std::size_t checked(int index, std::size_t end, const char* operation) const;
    void put(std::size_t index, KestTreeNode& node);
    KestSmartPointer<KestTreeNode> addLast(KestSmartPointer<KestTreeNode> node, const std::string& key);

    std::unique_ptr<internal::TreeChildren> m_children;  // null until the first child comes
    std::string m_key;
    std::atomic<bool> m_wasListed{false};  // set for good by the first list that the node comes into
};

}  // namespace KestSupport
