// Tests the order of children, look-ups after changes, paths, and the release of deep trees.
#include "support/tree_node.h"

#include <algorithm>
#include <random>
#include <tuple>

#include "kit/failure_of.h"
#include "kit/log_capture.h"

namespace {

using namespace KestSupport;
using Node = KestSmartPointer<KestTreeNode>;
using Path = std::vector<std::string>;

struct Leaf : KestTreeNode {
    using KestTreeNode::KestTreeNode;
    using KestTreeNode::m_pParent;

    // Removes a leaf that insert added to a list.
    void printGuts(int indent) override {
        if (m_pParent != nullptr) m_pParent->erase(getKey());
        KestTreeNode::printGuts(indent);
    }
};

// Returns the keys of all nodes below the node, with the keys below each in parentheses, as in "a(b c) d".
std::string keysOf(KestTreeNode& node) {
    std::string keys;
    bool isFirst = true;
    for (const Node& child : node) {
        const std::string below = keysOf(*child);
        keys += (isFirst ? "" : " ") + child->getKey() + (below.empty() ? "" : "(" + below + ")");
        isFirst = false;
    }
    return keys;
}

Node added(KestTreeNode& root, const Node& node, Path path) {
    const Node result = root.add(node, path);
    EXPECT_EQ(path, Path{});
    return result;
}

TEST(TreeNode, ListsChildrenInKeyOrder) {
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
    const std::string prefix = "KestNoSuchElementException - KestTreeNode::";
    const std::string text = ": No child at index ";
    for (const int index : {-1, 4})
        EXPECT_EQ(kit::failureOf([&] { root[index]; }), prefix + "operator[]" + text + std::to_string(index));
    EXPECT_EQ(kit::failureOf([&] { root.erase(4); }), prefix + "erase" + text + "4");
    EXPECT_EQ(kit::failureOf([&] { root.insert(5, second); }), prefix + "insert" + text + "5");
}

// Compares two roots with plain lists that grow and shrink. Keys repeat, have equal beginnings, differ after eight
// bytes, and contain NULs and high bytes. Sometimes one root becomes a copy of the other, so nodes are in two lists.
TEST(TreeNode, FindsChildrenAfterAnyChange) {
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t most) { return random() % (most + 1); };
    struct Listed {
        KestTreeNode root;
        std::vector<Node> expected;
    };
    for (const auto& [steps, disorder, copies] :
         {std::tuple(24'000, 0, 0), {6000, 1, 0}, {6000, 0, 1}, {6000, 20, 0}, {16'000, 1, 3}}) {
        Listed lists[2];
        for (int step = 0; step < steps; ++step) {
            auto& [root, expected] = lists[upTo(4) / 4];
            const std::string key = std::string(upTo(40) == 0 ? "" : "alike") + std::string(upTo(1) * 8, '\xFF') +
                                    std::string(upTo(2), '\0') + std::to_string(upTo(step % 2 == 0 ? 99 : 999'999));
            const auto withKey = [&](const std::string& wanted) {
                return std::find_if(expected.begin(), expected.end(), [&](auto& n) { return n->getKey() == wanted; });
            };
            const std::size_t index = upTo(expected.size()), choice = upTo(999),
                              adding = step % (steps / 2) < steps * 3 / 8 ? 850 : 50;
            const auto place = expected.begin() + static_cast<std::ptrdiff_t>(index);
            const std::string present = place == expected.end() ? key : (*place)->getKey();
            if (step % 4000 < copies) {
                root = lists[0].root;
                expected = lists[0].expected;
            } else if (choice < 2u * disorder && place != expected.end()) {
                root[static_cast<int>(index)]->setKey(choice % 2 == 0 ? key : present + "x");
            } else if (choice < 4u * disorder) {
                root.insert(static_cast<int>(index), new KestTreeNode(key));
                expected.insert(place, root[static_cast<int>(index)]);
            } else if (choice < adding) {
                const auto after = [&](auto& n) { return n->getKey() > key; };
                expected.insert(std::find_if(expected.begin(), expected.end(), after), root.add(new KestTreeNode(key)));
            } else if (const auto first = withKey(present); first != expected.end()) {
                EXPECT_EQ(root.getNode(present), *first);
                choice % 2 == 0 ? root.erase(present) : root.erase(static_cast<int>(first - expected.begin()));
                expected.erase(first);
            }
            const auto found = withKey(key);
            ASSERT_EQ(root.getNode(key), found == expected.end() ? nullptr : *found);
            if (const std::size_t at = expected.size() * 3 / 4; at < expected.size()) {
                ASSERT_EQ(root[static_cast<int>(at)], expected[at]);
            }
        }
        for (auto& [root, expected] : lists) {
            for (std::size_t i = 0; i < expected.size(); ++i)
                ASSERT_EQ(root[static_cast<int>(i)], expected[i]);
            EXPECT_THROW(root[static_cast<int>(expected.size())], KestNoSuchElementException);
        }
    }
}

// A parent is released before its children, and these in their order.
TEST(TreeNode, ReleasesDeepTreesInOrder) {
    struct Counted : KestTreeNode {
        Counted(const std::string& key, std::string& record) : KestTreeNode(key), m_record(record) {}
        ~Counted() override { m_record += getKey(); }
        std::string& m_record;
    };
    std::string record, expected;
    Node root = new KestTreeNode, last = root;
    for (int i = 0; i < 200'000; ++i) {
        const std::string key(1, static_cast<char>('a' + i % 26));
        Node next = new Counted(key, record);
        last->add(new Counted(key, record));
        last->insert(0, next);
        expected += key;
        last = next;
    }
    last = nullptr;
    std::size_t deepest = 0;
    std::string visited;
    root->walk([&](KestTreeNode& node, std::size_t depth) {
        deepest = std::max(deepest, depth);
        visited += node.getKey();
    });
    EXPECT_EQ(deepest, 200'000U);
    EXPECT_TRUE(visited == expected + std::string(expected.rbegin(), expected.rend()));
    root = nullptr;
    EXPECT_EQ(record, expected + std::string(expected.rbegin(), expected.rend()));
}

TEST(TreeNode, FindsAndAddsAlongPaths) {
    KestTreeNode root;
    const Node deep = new Leaf("any");
    const Node leaf = new Leaf("a/ b//c");
    const Node node = new Leaf("any");
    const Node plain = new KestTreeNode("p");
    EXPECT_EQ(added(root, deep, {" x ", "y ", "  z"}), deep);
    node->add(new KestTreeNode("replaced"));
    EXPECT_EQ(added(root, node, {"x", "y"}), node) << "replaces a plain node";
    EXPECT_EQ(added(root, plain, {"x", "y"}), node) << "does not replace a derived node";
    EXPECT_EQ(plain->getKey(), "p");
    EXPECT_EQ(root.add(leaf, "/"), leaf);
    EXPECT_EQ(added(root, root.getNode("x"), {"x"}), root.getNode("x"));

    Path path{"x", " y", "none", "rest"}, empty;
    EXPECT_EQ(root.getNode(path), nullptr);
    EXPECT_EQ(path, Path{"rest"});
    EXPECT_EQ(root.getNode(path = {"x", " y "}), node);
    EXPECT_EQ(path, empty);
    EXPECT_EQ(root.getNode("a:b/c", ":/"), leaf);
    EXPECT_EQ(root.getNode(empty), nullptr);
    EXPECT_EQ(root.getNode("//", "/"), nullptr);
    EXPECT_EQ(root.add(plain, empty), nullptr);
    EXPECT_EQ(root.add(new KestTreeNode("//"), "/"), nullptr);
    EXPECT_EQ(keysOf(root), "a(b(c)) x(y(z))");
    EXPECT_EQ(root.size() + KestTreeNode().size(), 2U);
    std::string walked;
    root.walk([&](KestTreeNode& each, std::size_t depth) {
        walked += std::to_string(depth) + each.getKey();
        if (each.getKey() == "y") each.erase("z");
        return each.getKey() != "b";
    });
    EXPECT_EQ(walked, "01a2b1x2y");
    node->add(deep);
    KestTreeNode unordered;
    for (const char* key : {"a", "b"})
        unordered.insert(0, new KestTreeNode(key));
    const Node first = added(unordered, new Leaf("any"), {"a"});
    EXPECT_EQ(unordered[0], first) << "replaces the plain node after it";
    EXPECT_EQ(keysOf(unordered), "a b");
    const kit::LogCapture log;
    root[0]->print(1);
    unordered.insert(2, new Leaf("c"));
    unordered.print(-1);
    KestLogging::getInstance().setLogLevel(8);
    root.print(0);
    std::string printed;
    for (const std::string& line : log.messages())
        printed += line + "|";
    const std::string text = "KestTreeNode::print: Key = ";
    EXPECT_EQ(printed, "    " + text + "a|        " + text + "b|            " + text + "c|" + text + "|" + text + "a|" +
                           text + "b|" + text + "c|");
    EXPECT_EQ(keysOf(unordered), "a b") << "a node that removes itself is kept until it is printed";
}

}  // namespace
