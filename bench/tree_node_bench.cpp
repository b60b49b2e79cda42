// Children that are added, found and erased by key, in an order of no pattern. The map holds the same nodes as the
// tree, by the same smart pointers, so the look-ups differ in how they find and not in what they return: half of the
// time of a short one is counting the holder. They are made in an order without a period that the processor could
// learn. ptree keeps the order in which children came and an index by key beside it; its nodes are values.
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_kit.h"
#include "support/tree_node.h"
#ifdef KEST_HAVE_BOOST
#include <boost/property_tree/ptree.hpp>
#endif

using KestBench::Comparison;
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

// What is looked for: 10,000 times any of the keys.
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

void fill(Map& nodes, const Keys& keys) {
    for (const std::string& key : keys)
        nodes.emplace(key, new KestTreeNode(key));
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

// More than enough children to be out of every cache are added once.
benchmark::IterationCount iterationsFor(const Keys& keys) {
    return keys.size() > 100'000 ? 1 : 0;
}

void registerAdd(const Keys& keys, double target) {
    Comparison comparison("tree_node/ordered add of " + std::to_string(keys.size()));
    comparison.iterations(iterationsFor(keys))
        .ours([keys](benchmark::State& state) { addAll<KestTreeNode>(state, keys); })
        .peer("std::map", target, [keys](benchmark::State& state) { addAll<Map>(state, keys); });
#ifdef KEST_HAVE_BOOST
    if (keys.size() > 1000) return;
    comparison.peer("Boost ptree", 0.6, [keys](benchmark::State& state) {
        using boost::property_tree::ptree;
        for (auto _ : state) {
            ptree root;
            for (const std::string& key : keys)
                root.push_back(ptree::value_type(key, ptree()));
        }
    });
#endif
}

void registerErase(const Keys& keys, double target) {
    Keys erased = keys;
    std::shuffle(erased.begin(), erased.end(), std::mt19937(2));
    Comparison("tree_node/erase all of " + std::to_string(keys.size()))
        .iterations(iterationsFor(keys))
        .ours([=](benchmark::State& state) { eraseAll<KestTreeNode>(state, keys, erased); })
        .peer("std::map", target, [=](benchmark::State& state) { eraseAll<Map>(state, keys, erased); });
}

void registerLookUp(const Keys& keys, double target) {
    const Keys wanted = anyOf(keys);
    Comparison("tree_node/look up among " + std::to_string(keys.size()))
        .ours([keys, wanted](benchmark::State& state) {
            KestTreeNode root;
            fill(root, keys);
            for (auto _ : state) {
                for (const std::string& key : wanted) {
                    const KestSmartPointer<KestTreeNode> node = root.getNode(key);
                    benchmark::DoNotOptimize(node.get());
                }
            }
        })
        .peer("std::map", target, [keys, wanted](benchmark::State& state) {
            Map nodes;
            fill(nodes, keys);
            for (auto _ : state) {
                for (const std::string& key : wanted) {
                    const auto found = nodes.find(key);
                    const KestSmartPointer<KestTreeNode> node = found == nodes.end() ? nullptr : found->second;
                    benchmark::DoNotOptimize(node.get());
                }
            }
        });
}

}  // namespace

void KestBench::registerBenches() {
    registerAdd(shuffledKeys(1000), 1.2);
    registerAdd(shuffledKeys(1'000'000), 1.0);
    registerErase(shuffledKeys(1000), 1.2);
    registerErase(shuffledKeys(1'000'000), 1.0);
    registerLookUp(shuffledKeys(1000), 1.0);
    registerLookUp(shuffledKeys(10), 0.8);
}
