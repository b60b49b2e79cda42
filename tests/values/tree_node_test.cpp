#include "support/tree_node.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "kit/failure_of.h"
#include "kit/log_capture.h"

namespace KestSupport {
namespace {

using Node = KestSmartPointer<KestTreeNode>;
using Path = std::vector<std::string>;

struct Leaf : KestTreeNode {
    using KestTreeNode::KestTreeNode;
    using KestTreeNode::m_pParent;
};

// The keys of all below the node, each with its own in parentheses, as "a(b c) d".
std::string keysOf(KestTreeNode& node) {
    std::string keys;
    for (int i = 0; kit::failureOf([&] { node[i]; }) == "no failure"; ++i) {
        const std::string below = keysOf(*node[i]);
        keys += (i == 0 ? "" : " ") + node[i]->getKey() + (below.empty() ? "" : "(" + below + ")");
    }
    return keys;
}

Node added(KestTreeNode& root, const Node& node, Path path) {
    const Node result = root.add(node, path);
    EXPECT_EQ(path, Path{});
    return result;
}

TEST(TreeNode, AddKeepsTheOrderOfKeysAndInsertDoesNot) {
    KestTreeNode root;
    const Node second = new Leaf("b");
    for (const Node& node : {Node(new KestTreeNode("b")), Node(new KestTreeNode("")), second})
        EXPECT_EQ(root.add(node), node);
    EXPECT_EQ(dynamic_cast<Leaf&>(*second).m_pParent, nullptr);
    root.insert(0, second);
    EXPECT_EQ(dynamic_cast<Leaf&>(*second).m_pParent, &root);
    root.erase("none");
    KestTreeNode copy(root), assigned("key");
    assigned = copy;
    assigned = *&assigned;
    copy = std::string("new");
    assigned.erase(0);
    EXPECT_EQ(copy[1], root[1]);
    EXPECT_EQ(copy.getKey() + assigned.getKey() + keysOf(copy) + "|" + keysOf(assigned), "newb  b b| b b");
    const std::string prefix = "KestNoSuchElementException - KestTreeNode::", text = ": No child at index ";
    for (const int index : {-1, 4})
        EXPECT_EQ(kit::failureOf([&] { root[index]; }), prefix + "operator[]" + text + std::to_string(index));
    EXPECT_EQ(kit::failureOf([&] { root.erase(4); }), prefix + "erase" + text + "4");
    EXPECT_EQ(kit::failureOf([&] { root.insert(5, second); }), prefix + "insert" + text + "5");
}

// Against a plain list, with keys that begin alike, differ behind eight bytes, hold NULs and high bytes, and come
// again.
TEST(TreeNode, FindsTheFirstOfAKeyHoweverTheListChanges) {
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t most) { return random() % (most + 1); };
    for (const std::size_t renames : {0, 0, 1, 20}) {
        KestTreeNode root;
        Path expected;
        for (int step = 0; step < 2000; ++step) {
            const std::string key = std::string(upTo(40) == 0 ? "" : "alike") + std::string(upTo(1) * 8, '\xFF') +
                                    std::string(upTo(2), '\0') + std::to_string(upTo(99));
            const std::size_t index = upTo(expected.size());
            const auto place = expected.begin() + static_cast<std::ptrdiff_t>(index);
            const std::size_t choice = upTo(99);
            if (choice < renames && place != expected.end()) {
                root[static_cast<int>(index)]->setKey(*place = key);
            } else if (choice < 2 * renames) {
                root.insert(static_cast<int>(index), new KestTreeNode(key));
                expected.insert(place, key);
            } else if (choice < 75) {
                root.add(new KestTreeNode(key));
                expected.insert(std::find_if(expected.begin(), expected.end(), [&](auto& k) { return k > key; }), key);
            } else if (place != expected.end()) {
                const auto first = std::find(expected.begin(), expected.end(), *place);
                EXPECT_EQ(root.getNode(*place), root[static_cast<int>(first - expected.begin())]);
                root.erase(Path{*place}[0]);
                expected.erase(first);
            }
            EXPECT_EQ(root.getNode(key) == nullptr, std::find(expected.begin(), expected.end(), key) == expected.end());
        }
        for (int i = static_cast<int>(expected.size()); i > 0; expected.pop_back())
            EXPECT_EQ(root[--i]->getKey(), expected.back());
    }
}

TEST(TreeNode, PathsReachAndMakeNodesBelow) {
    KestTreeNode root;
    const Node deep = new Leaf("any"), leaf = new Leaf("a/ b//c"), node = new Leaf("any"),
               plain = new KestTreeNode("p");
    EXPECT_EQ(added(root, deep, {" x ", "y ", "  z"}), deep);
    node->add(new KestTreeNode("replaced"));
    EXPECT_EQ(added(root, node, {"x", "y"}), node) << "a plain node makes way";
    EXPECT_EQ(added(root, plain, {"x", "y"}), node) << "another does not";
    EXPECT_EQ(plain->getKey(), "p");
    EXPECT_EQ(root.add(leaf, "/"), leaf);
    EXPECT_EQ(added(root, root.getNode("x"), {"x"}), root.getNode("x"));

    Path path{"x", " y", "none", "rest"}, empty;
    EXPECT_EQ(root.getNode(path), nullptr);
    EXPECT_EQ(path, Path{"rest"});
    EXPECT_EQ(root.getNode(path = {"x", " y "}), node);
    EXPECT_EQ(path, empty);
    EXPECT_EQ(root.getNode("a:b/c", ":/"), leaf);
    EXPECT_TRUE(root.getNode(empty) == nullptr && root.getNode("//", "/") == nullptr);
    EXPECT_TRUE(root.add(plain, empty) == nullptr && root.add(new KestTreeNode("//"), "/") == nullptr);
    EXPECT_EQ(keysOf(root), "a(b(c)) x(y(z))");
    const kit::LogCapture log;
    root[0]->print(1);
    KestLogging::getInstance().setLogLevel(8);
    root.print(0);
    EXPECT_EQ(log.messages(), (Path{"    KestTreeNode::print: Key = a", "        KestTreeNode::print: Key = b",
                                    "            KestTreeNode::print: Key = c"}));
}

}  // namespace
}  // namespace KestSupport
