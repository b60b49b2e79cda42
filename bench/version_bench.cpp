// Versions: parse two and compare them, compare two existing ones, and test a version against an existing range. The
// peer is what a program without the class would write: a vector of four numbers, parsed with std::from_chars.
#include <support/version.h>

#include <charconv>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "bench_kit.h"

namespace {

using KestSupport::KestVersion;
using Numbers = std::vector<int>;

const std::string kOlder = "10.4.128.7";
const std::string kNewer = "10.4.130.2";
const std::string kHigh = "10.5";

Numbers readByHand(const std::string& text) {
    Numbers numbers;
    numbers.reserve(4);
    const char* next = text.data();
    const char* const end = next + text.size();
    while (next < end) {
        next = std::from_chars(next, end, numbers.emplace_back()).ptr;
        if (next == end || *next != '.') break;
        ++next;
    }
    return numbers;
}

// Negative for less. Missing numbers count as zeros.
int compareByHand(const Numbers& a, const Numbers& b) {
    for (std::size_t i = 0; i < a.size() || i < b.size(); ++i) {
        const int left = i < a.size() ? a[i] : 0;
        const int right = i < b.size() ? b[i] : 0;
        if (left != right) return left < right ? -1 : 1;
    }
    return 0;
}

void readAndCompare(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(KestVersion(kOlder) < KestVersion(kNewer));
}

void readAndCompareByHand(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(compareByHand(readByHand(kOlder), readByHand(kNewer)) < 0);
}

void compare(benchmark::State& state) {
    KestVersion older(kOlder);
    KestVersion newer(kNewer);
    for (auto _ : state) {
        benchmark::DoNotOptimize(&older);
        benchmark::DoNotOptimize(older < newer);
    }
}

void compareHeldByHand(benchmark::State& state) {
    Numbers older = readByHand(kOlder);
    Numbers newer = readByHand(kNewer);
    for (auto _ : state) {
        benchmark::DoNotOptimize(&older);
        benchmark::DoNotOptimize(compareByHand(older, newer) < 0);
    }
}

void readAndAskRange(benchmark::State& state) {
    const std::pair<KestVersion, KestVersion> range(kOlder, kHigh);
    for (auto _ : state)
        benchmark::DoNotOptimize(KestVersion::inRange(range, kNewer));
}

void readAndAskRangeByHand(benchmark::State& state) {
    const std::pair<Numbers, Numbers> range(readByHand(kOlder), readByHand(kHigh));
    for (auto _ : state) {
        const Numbers version = readByHand(kNewer);
        const bool inRange = compareByHand(range.first, version) <= 0 && compareByHand(version, range.second) < 0;
        benchmark::DoNotOptimize(inRange);
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("versions/read and compare").ours(readAndCompare).peer("std::from_chars", 1.5, readAndCompareByHand);
    Comparison("versions/compare").ours(compare).peer("vectors by hand", 1.5, compareHeldByHand);
    Comparison("versions/read and ask a range")
        .ours(readAndAskRange)
        .peer("std::from_chars", 1.5, readAndAskRangeByHand);
}
