#include <gtest/gtest.h>
#include <support/version.h>

#include <string>

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

TEST(VersionTest, TextsAreReadAndWritten) {
    KestVersion version(nullptr);
    const auto written = [&](const std::string& text) { return (version = text).toString(); };
    EXPECT_EQ("5.1", written("5.1."));
    EXPECT_EQ("7.12", written("007.12rc"));
    EXPECT_EQ("5.-3", written("5.-3"));
    EXPECT_EQ(std::string("1.2.a\0b", 7), written({"1\0002.2.a\0b", 9}));
    EXPECT_EQ("2147483647.2147483647", written("2147483647.18446744073709551617"));
    EXPECT_TRUE(written("beta") == ".beta" && version.isInit());
    EXPECT_TRUE(written("").empty() && !version.isInit());
    for (const char* const text : {"5.x.1", "5..1", "5. .", "5.\xC2\xB2.1"}) {
        EXPECT_EQ(kNoVersion + text, kit::failureOf([&] { written(text); }));
        EXPECT_EQ("5", version.toString());
    }
}

TEST(VersionTest, OrdersByNumbersThenBySuffixAndIgnoresZerosAtTheEnd) {
    const std::string ascending[] = {"",         "beta",    "5.1",   "5.1.Beta", "5.1.beta", "5.1.beta2", "5.1.gamma",
                                     "5.1.\xE4", "5.1.0.1", "5.1.1", "5.9.9",    "5.10",     "6"};
    for (const std::string& a : ascending) {
        for (const std::string& b : ascending) {
            const KestVersion x(a);
            EXPECT_TRUE((x < b) == (&a < &b) && (x <= b) == (&a <= &b) && (x == b) == (&a == &b)) << a << " and " << b;
        }
    }
    const std::string equal[][2] = {{"", "0.0."}, {"beta", "0.beta"}, {"5.1", "05.01.0.0"}, {"5.1.b", "5.1.0.b"}};
    for (const auto& [a, b] : equal)
        EXPECT_TRUE(KestVersion(a) == b && KestVersion(b) == a) << b;
}

TEST(VersionTest, RangesHoldTheirLowEndAndNotTheirHighOne) {
    EXPECT_EQ("", ranges(""));
    EXPECT_EQ("5 to 6.0; 1.a to 2;  to ; . {1-2} to ; ", ranges("{5-6.0x},{1.a-2-3},, {1-2}"));
    for (const char* const spec : {"{", "{}", "{5.0}", "{5.0-}", "{-6.0}", "{5-6", "x.y,{5-6"})
        EXPECT_EQ(kNoRange + spec, ranges(spec));
    EXPECT_EQ(kNoVersion + "x.y", ranges("1,{2-x.y}"));

    const auto held = KestVersion::createRangeVector("4.0,{5.0-6.0},");
    const auto holds = [&](std::size_t range, const std::string& v) { return KestVersion::inRange(held.at(range), v); };
    for (const std::string v : {"", "4.9", "5", "5.0.beta", "5.9.9", "6.0", "6.1"})
        EXPECT_EQ(v.starts_with('5'), holds(1, v)) << v;
    EXPECT_TRUE(holds(0, "4") && holds(2, "") && !holds(0, "4.0.1") && !holds(0, "3.9") && !holds(2, "4"));
}

}  // namespace
