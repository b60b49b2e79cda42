// Children that are added, found and erased by key, in a random order that the processor cannot predict. The map holds
// the same nodes as the tree in the same smart pointers, so only the search differs: half of the time of a short
// look-up is the reference count of the result. ptree keeps its children in the order of insertion, with an index by
// key. Its nodes are values.
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "support/tree_node.h"
#ifdef KEST_HAVE_ABSL
#include <absl/container/btree_map.h>
#endif
#ifdef KEST_HAVE_BOOST
#include <boost/property_tree/ptree.hpp>
#endif

using KestBench::Body;
using KestSupport::KestSmartPointer;
using KestSupport::KestTreeNode;

namespace {

using Keys = std::vector<std::string>;

Keys shuffledKeys(int count) {
    Keys keys;
    for (int i = 0; i < count; ++i)
        keys.push_back("node " + std::to_string(10000 + i * 7));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

// 10,000 keys to look up, chosen at random.
Keys anyOf(const Keys& keys) {
    std::mt19937 random(1);
    Keys wanted;
    for (int i = 0; i < 10000; ++i)
        wanted.push_back(keys[random() % keys.size()]);
    return wanted;
}

using Map = std::map<std::string, KestSmartPointer<KestTreeNode>>;

void fill(KestTreeNode& root, const Keys& keys) {
    for (const std::string& key : keys)
        root.add(new KestTreeNode(key));
}

template <typename AnyMap>
void fill(AnyMap& nodes, const Keys& keys) {
    for (const std::string& key : keys)
        nodes.emplace(key, new KestTreeNode(key));
}

KestSmartPointer<KestTreeNode> find(KestTreeNode& root, const std::string& key) {
    return root.getNode(key);
}

template <typename AnyMap>
KestSmartPointer<KestTreeNode> find(const AnyMap& nodes, const std::string& key) {
    const auto found = nodes.find(key);
    return found == nodes.end() ? nullptr : found->second;
}

template <typename Children>
void addAll(benchmark::State& state, const Keys& keys) {
    for (auto _ : state) {
        Children children;
        fill(children, keys);
    }
}

template <typename Children>
void eraseAll(benchmark::State& state, const Keys& keys, const Keys& erased) {
    for (auto _ : state) {
        state.PauseTiming();
        Children children;
        fill(children, keys);
        state.ResumeTiming();
        for (const std::string& key : erased)
            children.erase(key);
    }
}

template <typename Children>
void lookUp(benchmark::State& state, const Keys& keys, const Keys& wanted) {
    Children children;
    fill(children, keys);
    for (auto _ : state) {
        for (const std::string& key : wanted) {
            const KestSmartPointer<KestTreeNode> node = find(children, key);
            benchmark::DoNotOptimize(node.get());
        }
    }
}

// Each body creates its keys when it runs, so that a million keys do not exist during the whole program.
template <typename Children>
Body adding(int count) {
    return [count](benchmark::State& state) { addAll<Children>(state, shuffledKeys(count)); };
}

template <typename Children>
Body erasing(int count) {
    return [count](benchmark::State& state) {
        const Keys keys = shuffledKeys(count);
        Keys erased = keys;
        std::shuffle(erased.begin(), erased.end(), std::mt19937(2));
        eraseAll<Children>(state, keys, erased);
    };
}

template <typename Children>
Body lookingUp(int count) {
    return [count](benchmark::State& state) {
        const Keys keys = shuffledKeys(count);
        lookUp<Children>(state, keys, anyOf(keys));
    };
}

#ifdef KEST_HAVE_ABSL
using BTree = absl::btree_map<std::string, KestSmartPointer<KestTreeNode>>;
Body lookingUpInBTree(int count) {
    return lookingUp<BTree>(count);
}
#else
Body lookingUpInBTree(int) {
    return KestBench::kMissing;
}
#endif

#ifdef KEST_HAVE_BOOST
Body addingToPtree(int count) {
    return [count](benchmark::State& state) {
        using boost::property_tree::ptree;
        const Keys keys = shuffledKeys(count);
        for (auto _ : state) {
            ptree root;
            for (const std::string& key : keys)
                root.push_back(ptree::value_type(key, ptree()));
        }
    };
}
#else
Body addingToPtree(int) {
    return KestBench::kMissing;
}
#endif

// A million children do not fit into a cache. Each repetition adds them once.
constexpr int kMany = 1'000'000;

}  // namespace

void KestBench::registerBenches() {
    const std::string map = "std::map";
    Comparison("tree_node/ordered add of 1000")
        .ours(adding<KestTreeNode>(1000))
        .peer(map, 1.2, adding<Map>(1000))
        .peer("Boost ptree", 0.6, addingToPtree(1000));
    Comparison("tree_node/ordered add of 1000000")
        .iterations(1)
        .ours(adding<KestTreeNode>(kMany))
        .peer(map, 1.0, adding<Map>(kMany));
    Comparison("tree_node/erase all of 1000").ours(erasing<KestTreeNode>(1000)).peer(map, 1.2, erasing<Map>(1000));
    Comparison("tree_node/erase all of 1000000")
        .iterations(1)
        .ours(erasing<KestTreeNode>(kMany))
        .peer(map, 1.0, erasing<Map>(kMany));
    Comparison("tree_node/look up among 1000").ours(lookingUp<KestTreeNode>(1000)).peer(map, 1.0, lookingUp<Map>(1000));
    Comparison("tree_node/look up among 10")
        .ours(lookingUp<KestTreeNode>(10))
        .peer(map, 0.8, lookingUp<Map>(10))
        .peer("absl::btree_map", 1.0, lookingUpInBTree(10));

    const auto add = [](benchmark::State& state, int count) { adding<KestTreeNode>(count)(state); };
    const auto erase = [](benchmark::State& state, int count) { erasing<KestTreeNode>(count)(state); };
    const auto find = [](benchmark::State& state, int count) { lookingUp<KestTreeNode>(count)(state); };
    Growth("tree_node/ordered add", "children")
        .limit(1.15)
        .at({1000, 10000, 100000}, add)
        .iterations(1)
        .at({kMany}, add);
    Growth("tree_node/erase all", "children")
        .limit(1.15)
        .at({1000, 10000, 100000}, erase)
        .iterations(1)
        .at({kMany}, erase);
    Growth("tree_node/10000 look-ups", "children").at({10, 100, 1000, 10000, 100000, kMany}, find);
}
