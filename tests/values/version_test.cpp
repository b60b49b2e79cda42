// Tests the texts and the order of versions, and which versions a range holds.
#include <support/version.h>

#include <tuple>

#include "kit/failure_of.h"

namespace {

using KestSupport::KestVersion;

const std::string kNoVersion = "KestVersion::parse: invalid version string: ";
const std::string kNoRange = "KestVersion::createRangeVector: Invalid range specification: ";

std::string ranges(const std::string& spec) {
    std::string text;
    const std::string failure = kit::failureOf([&] {
        for (const auto& [low, high] : KestVersion::createRangeVector(spec))
            text += low.toString() + " to " + high.toString() + "; ";
    });
    return failure == "no failure" ? text : failure;
}

// Whether a is less than, not greater than, and equal to b.
std::tuple<bool, bool, bool> order(const KestVersion& a, const KestVersion& b) {
    EXPECT_TRUE((a <=> b < 0) == (a < b) && (a <=> b == 0) == (a == b) && (a > b) == (b < a)) << b.toString();
    EXPECT_EQ(std::hash<KestVersion>()(a) == b.hash(), a == b) << a.toString() << " and " << b.toString();
    return {a < b, a <= b, a == b};
}

TEST(Version, ReadsAndWritesTexts) {
    KestVersion version(nullptr);
    const auto written = [&](const std::string& text) { return (version = text).toString(); };
    EXPECT_EQ(written("5.1."), "5.1");
    EXPECT_EQ(written("007.12rc"), "7.12");
    EXPECT_EQ(written("5.-3"), "5.-3");
    EXPECT_EQ(written({"1\0002.2.a\0b", 9}), std::string("1.2.a\0b", 7));
    EXPECT_EQ(written("2147483647.18446744073709551617"), "2147483647.2147483647");
    EXPECT_EQ(written("beta"), ".beta");
    EXPECT_TRUE(version.isInit());
    EXPECT_EQ(written(""), "");
    EXPECT_FALSE(version.isInit());
    for (const char* const text : {"5.x.1", "5..1", "5. .", "5.\xC2\xB2.1"}) {
        EXPECT_EQ(kit::failureOf([&] { written(text); }), kNoVersion + text);
        EXPECT_EQ(version.toString(), "5");
    }
}

TEST(Version, OrdersByNumbersThenSuffix) {
    const std::string ascending[] = {"",         "beta",    "5.1",   "5.1.Beta", "5.1.beta", "5.1.beta2", "5.1.gamma",
                                     "5.1.\xE4", "5.1.0.1", "5.1.1", "5.9.9",    "5.10",     "6"};
    for (const std::string& a : ascending) {
        for (const std::string& b : ascending)
            EXPECT_EQ(order(a, b), std::tuple(&a < &b, &a <= &b, &a == &b)) << a << " and " << b;
    }
    const std::string equal[][2] = {{"", "0.0."}, {"beta", "0.beta"}, {"5.1", "05.01.0.0"}, {"5.1.b", "5.1.0.b"}};
    for (const auto& [a, b] : equal) {
        EXPECT_EQ(order(a, b), std::tuple(false, true, true)) << b;
        EXPECT_EQ(order(b, a), std::tuple(false, true, true)) << b;
    }
}

TEST(Version, HoldsVersionsInRanges) {
    EXPECT_EQ(ranges(""), "");
    EXPECT_EQ(ranges("{5-6.0x},{1.a-2-3},, {1-2}"), "5 to 6.0; 1.a to 2;  to ; . {1-2} to ; ");
    for (const char* const spec : {"{", "{}", "{5.0}", "{5.0-}", "{-6.0}", "{5-6", "x.y,{5-6"})
        EXPECT_EQ(ranges(spec), kNoRange + spec);
    EXPECT_EQ(ranges("1,{2-x.y}"), kNoVersion + "x.y");

    const auto held = KestVersion::createRangeVector("4.0,{5.0-6.0},");
    const auto holds = [&](std::size_t range, const std::string& v) { return KestVersion::inRange(held.at(range), v); };
    for (const std::string v : {"", "3.9", "4", "4.0.1", "5", "5.0.beta", "5.9.9", "6.0", "6.1"}) {
        EXPECT_EQ(holds(0, v), v == "4") << v;
        EXPECT_EQ(holds(1, v), v.starts_with('5')) << v;
        EXPECT_EQ(holds(2, v), v.empty()) << v;
    }
}

}  // namespace
