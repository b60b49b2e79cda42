#include "support/tree_node.h"

#include <algorithm>
#include <utility>

#include "support/exceptions.h"
#include "support/text_utilities.h"
#include "text/log/internal_log.h"
#include "values/tree/tree_children.h"

namespace KestSupport {
namespace {

using Node = KestSmartPointer<KestTreeNode>;

std::string withoutBlanks(const std::string& key) {
    const std::size_t first = key.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : key.substr(first, key.find_last_not_of(' ') - first + 1);
}

using Children = std::unique_ptr<internal::TreeChildren, internal::TreeChildrenDeleter>;

Children copyOf(const Children& children) {
    return Children(children == nullptr ? nullptr : new internal::TreeChildren(*children));
}

}  // namespace

KestTreeNode::KestTreeNode() = default;
KestTreeNode::KestTreeNode(const std::string& key) : m_key(key) {}
KestTreeNode::~KestTreeNode() = default;

KestTreeNode::KestTreeNode(const KestTreeNode& other)
    : KestObjectBase(other),
      KestCollaborator(),
      m_pParent(other.m_pParent),
      m_children(copyOf(other.m_children)),
      m_key(other.m_key) {}

KestTreeNode& KestTreeNode::operator=(const KestTreeNode& other) {
    if (this == &other) return *this;
    // On failure nothing changes. The former children are released last: one of them may be the only owner of `other`.
    auto children = copyOf(other.m_children);
    setKey(other.m_key);
    m_pParent = other.m_pParent;
    m_children.swap(children);
    return *this;
}

KestTreeNode& KestTreeNode::operator=(const std::string& key) {
    setKey(key);
    return *this;
}

void KestTreeNode::setKey(const std::string& key) {
    m_key = key;
    internal::TreeChildren::keyChanged(*this);
}

std::size_t KestTreeNode::count() const noexcept {
    return m_children == nullptr ? 0 : m_children->size();
}

std::size_t KestTreeNode::checked(int index, std::size_t end, const char* operation) const {
    if (index >= 0 && static_cast<std::size_t>(index) < end) return static_cast<std::size_t>(index);
    throw KestNoSuchElementException("KestTreeNode::" + std::string(operation) + ": No child at index " +
                                     std::to_string(index));
}

internal::TreeChildren& KestTreeNode::children() {
    if (m_children == nullptr) m_children.reset(new internal::TreeChildren);
    return *m_children;
}

Node KestTreeNode::operator[](int index) {
    const std::size_t place = checked(index, count(), "operator[]");
    return (*m_children)[place];
}

Node KestTreeNode::getNode(const std::string& key) {
    return m_children == nullptr ? nullptr : m_children->find(key);
}

Node KestTreeNode::getNode(std::vector<std::string>& path) {
    Node found;
    auto key = path.begin();
    for (KestTreeNode* node = this; node != nullptr && key != path.end(); node = found.get())
        found = node->getNode(withoutBlanks(*key++));
    path.erase(path.begin(), key);
    return found;
}

Node KestTreeNode::getNode(const std::string& path, const char* delimiters) {
    std::vector<std::string> keys;
    KestTokenizer(path, delimiters, keys);
    return getNode(keys);
}

Node KestTreeNode::add(Node node) {
    children().add(*node);
    return node;
}

Node KestTreeNode::add(Node node, std::vector<std::string>& path) {
    if (path.empty()) return nullptr;
    const std::vector<std::string> keys = std::exchange(path, {});
    KestTreeNode* parent = this;
    for (auto key = keys.begin(); key != keys.end() - 1; ++key) {
        const std::string wanted = withoutBlanks(*key);
        const Node child = parent->getNode(wanted);
        parent = (child.isNull() ? parent->add(new KestTreeNode(wanted)) : child).get();
    }
    return parent->addLast(std::move(node), withoutBlanks(keys.back()));
}

Node KestTreeNode::add(Node node, const char* delimiters) {
    std::vector<std::string> keys;
    KestTokenizer(node->m_key, delimiters, keys);
    return add(std::move(node), keys);
}

Node KestTreeNode::addLast(Node node, const std::string& key) {
    Node present = getNode(key);
    if (!present.isNull() && present->getClassName().find("KestTreeNode") == std::string::npos) return present;
    node->setKey(key);
    if (present.isNull()) return add(std::move(node));
    m_children->replaceFirst(key, *node);
    if (present != node) node->m_children = std::move(present->m_children);
    return node;
}

void KestTreeNode::insert(int index, Node node) {
    const std::size_t place = checked(index, count() + 1, "insert");
    children().insert(place, *node);
    node->m_pParent = this;
}

void KestTreeNode::erase(int index) {
    const std::size_t place = checked(index, count(), "erase");
    m_children->erase(place);
}

void KestTreeNode::erase(const std::string& key) {
    if (m_children != nullptr) m_children->erase(key);
}

void KestTreeNode::print(int indent) {
    walk([indent](KestTreeNode& node, std::size_t depth) {
        if (!internal::isLogLevel(internal::LogLevel::trace)) return false;
        node.printGuts(indent + static_cast<int>(depth));
        return true;
    });
}

void KestTreeNode::printGuts(int indent) {
    const std::string blanks(static_cast<std::size_t>(std::max(indent, 0)) * 4, ' ');
    internal::logRecord(internal::LogLevel::trace, blanks, "KestTreeNode::print: Key = ", m_key);
}

}  // namespace KestSupport
