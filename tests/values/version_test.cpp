#include <gtest/gtest.h>
#include <support/exceptions.h>
#include <support/version.h>

#include <functional>
#include <string>

namespace {

using KestSupport::KestVersion;

const std::string kNoVersion = "KestVersion::parse: invalid version string: ";
const std::string kNoRange = "KestVersion::createRangeVector: Invalid range specification: ";

// What the action gives, or the text of what it throws.
std::string outcome(const std::function<std::string()>& action) {
    try {
        return action();
    } catch (const KestSupport::KestException& refusal) {
        EXPECT_EQ(0, refusal.getCode());
        return refusal.getText();
    }
}

std::string ranges(const std::string& spec) {
    return outcome([&] {
        std::string text;
        for (const auto& [low, high] : KestVersion::createRangeVector(spec))
            text += low.toString() + " to " + high.toString() + "; ";
        return text;
    });
}

TEST(VersionTest, TextsAreReadAndWritten) {
    KestVersion version(nullptr);
    EXPECT_FALSE(version.isInit());
    const auto expectRead = [&](const std::string& expected, const std::string& text) {
        EXPECT_EQ(expected, outcome([&] { return (version = text).toString(); }));
        EXPECT_EQ(!text.empty(), version.isInit());
    };
    expectRead("5.1.0", "5.1.0");
    expectRead("", "");
    expectRead("5.1", "5.1.");
    expectRead("7.12", "007.12rc");
    expectRead(".beta", "beta");
    expectRead("5.-3", "5.-3");
    expectRead({"1.2.a\0b", 7}, {"1\0002.2.a\0b", 9});
    expectRead("2147483647.2147483647", "2147483647.18446744073709551617");
    for (const char* const text : {"5.x.1", "5..1", "5. .", "5.\xC2\xB2.1"}) {
        expectRead(kNoVersion + text, text);
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
    ASSERT_EQ(3U, held.size());
    const auto holds = [&](std::size_t range, const std::string& v) { return KestVersion::inRange(held[range], v); };
    for (const char* const inside : {"5", "5.0.0", "5.9.9", "5.0.beta"})
        EXPECT_TRUE(holds(1, inside)) << inside;
    for (const char* const outside : {"6.0", "6", "4.9", "", "6.1"})
        EXPECT_FALSE(holds(1, outside)) << outside;
    EXPECT_TRUE(holds(0, "4") && holds(2, ""));
    EXPECT_FALSE(holds(0, "4.0.1") || holds(0, "3.9") || holds(2, "4"));
}

}  // namespace
