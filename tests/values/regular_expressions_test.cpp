#include "support/regular_expressions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "values/naive_expression_matcher.h"
#include "values/regular_expression_trace.h"

namespace {

using namespace std::string_literals;
using KestSupport::wstring16;
using KestSupport::internal::ExpressionToken;

constexpr std::size_t npos = std::string::npos;

template <typename S>
S as(const std::string& text) {
    return S(text.begin(), text.end());
}

template <typename S>
struct Expression : KestSupport::KestRegularExpression<S> {
    Expression() = default;
    explicit Expression(const std::string& pattern) { this->setPattern(as<S>(pattern)); }
    using KestSupport::KestRegularExpression<S>::setPatternImpl;
};

template <typename S>
std::vector<ExpressionToken<S>> tokensOf(const S& pattern, std::string& message) {
    std::vector<ExpressionToken<S>> tokens;
    KestSupport::internal::compilePattern(pattern, tokens, message);
    return tokens;
}

// A type's and a factor's letter with the segment in between, and the failure.
template <typename S>
std::string compiled(const S& pattern) {
    std::string message, all;
    for (const auto& token : tokensOf(pattern, message)) {
        all += "iola^$"[static_cast<int>(token.type)];
        for (const auto c : token.segment)
            all += static_cast<char>(c);
        all += "1?*+"[static_cast<int>(token.factor)];
        all += ' ';
    }
    return all + message;
}

// Offset and length of the match, or the length that is there without one; all operations agree about it.
template <typename S>
std::string found(const std::string& pattern, const std::string& text, std::size_t start = 0) {
    const Expression<S> expression(pattern);
    std::size_t length = 99;
    const std::size_t offset = expression.find(as<S>(text), length, start);
    EXPECT_EQ(offset, expression.find(as<S>(text), start)) << pattern;
    const S match = offset == npos ? S() : as<S>(text).substr(offset, length);
    EXPECT_EQ(match, expression.match(as<S>(text), start)) << pattern;
    return (offset == npos ? "none" : std::to_string(offset)) + " " + std::to_string(length);
}

template <typename S>
class RegularExpressionsTest : public testing::Test {};
using Instantiations = testing::Types<std::string, wstring16>;
TYPED_TEST_SUITE(RegularExpressionsTest, Instantiations, );

using Pairs = std::vector<std::pair<std::string, std::string>>;

// The tokens are in-set, out of set, literal, any, begin and end.
TYPED_TEST(RegularExpressionsTest, PatternsAreCompiledIntoTokens) {
    const auto compile = [](const std::string& failure, const Pairs& rows) {
        for (const auto& [pattern, tokens] : rows)
            EXPECT_EQ(tokens + failure, compiled(as<TypeParam>(pattern))) << pattern;
    };
    compile("", {{"", ""}, {"abc*", "lab1 lc* "}, {"[a-c]+x", "iaabc+ lx1 "}, {"^[^0-9]", "^1 o001234567891 "}});
    compile("", {{"a.b$", "la1 a1 lb1 $1 "}, {"[ab*]", "ia1 lb* l]1 "}, {"[a*]", "ia* l]1 "}});
    compile("", {{"[a.b]", "ia1 a1 lb]1 "}, {"[a\\.b]", "ia.b1 "}, {"[\\]\\-\\$]", "i]-$1 "}, {"\\x41", "l411 "}});
    compile("", {{"[abc", "iabc1 "}, {"a\\.*\\**", "la1 l.* l** "}, {"a\\e*b\\e+", "la* lb+ "}});
    compile("", {{"^*a^b?^", "^* la^1 lb? l^1 "}, {"a***]-", "la* l** l]-1 "}, {".?.+*", "a? a+ l*1 "}});
    compile("", {{"[^^][-a][^-]?", "o^1 i-a1 o-? "}, {"[X-]][Z-\\]", "iXXYZ[\\]1 iZZ[\\1 "}});
    compile("", {{"\\b\\f\\n\\r\\t\\0\\^", "l\b\f\n\r\t1 "}, {"\\e\\\\", "l\\1 "}});
    compile("end token found inside expression", {{"ab$c", "lab1 "}, {"a$*", "la1 "}, {"$$", ""}});
    compile("empty set in pattern", {{"[", ""}, {"a[]b]", "la1 "}, {"[^]a]", ""}, {".[^", "a1 "}, {"[.[", "i1 a1 "}});
    compile("bad escape expression", {{"\\", ""}, {".\\", "a1 "}});
    compile("bad regular expression", {{"a\\", ""}, {"[\\", ""}});
    compile("end of expression found in pattern", {{"a*[a-", "la* "}});
    compile("invalid endpoint in range", {{"[b-a]", ""}, {"x[a-]", "lx1 "}});
}

TEST(RegularExpressionsOfBothTypesTest, RangesFollowTheOrderOfTheCharacters) {
    std::string message;
    EXPECT_EQ(129u, tokensOf("[\x80-\x7F]"s, message)[0].segment.size()) << "from -128 up to zero, which ends it";
    EXPECT_EQ("la1 lb* ", compiled("a\0b*"s));
    EXPECT_EQ("izz{|}~\x7F? ", compiled("[z-\x7F]?"s));
    EXPECT_EQ("invalid endpoint in range", compiled("[a-\x80]"s));
    EXPECT_EQ("invalid endpoint in range", compiled(as<wstring16>("[\x80-\x7F]")));
    EXPECT_EQ(17u, tokensOf(wstring16{'[', 0xFFF0, '-', 0xFFFF, ']'}, message)[0].segment.size());
    Expression<wstring16> wide;
    wide.setPattern({'x', '[', '^', 0x100, '-', 0x102, ']', '+'});
    EXPECT_EQ((wstring16{'x', 0xFF, 0x103, 'a', 0x200}), wide.match({'x', 0xFF, 0x103, 'a', 0x200, 0x101}, 0));
}

TYPED_TEST(RegularExpressionsTest, TheFirstMatchOfTheWalkIsFound) {
    const auto find = [](const std::string& match, std::size_t start, const Pairs& rows) {
        for (const auto& [pattern, text] : rows)
            EXPECT_EQ(match, found<TypeParam>(pattern, text, start)) << pattern << " on " << text;
    };
    find("none 99", 0, {{"", "abc"}, {".*abc", "abc"}, {"[abc]x", "zzax"}, {"x?abc", "abc"}});
    find("none 99", 0, {{"^$", ""}, {"[ac][^c]*d", "axxcd"}, {"a[bc]+c", "ac"}});
    find("none 99", 3, {{"a", "aaa"}, {".?", "aaa"}, {"\\e", "aa"}});
    find("none 99", npos, {{"[^x]?", "aa"}, {"a*", "aa"}, {"\\e+", "aa"}});
    find("none 3", 0, {{"^abc", "xabc"}, {"abc$", "abcabc"}});
    find("0 0", 0, {{"\\e", ""}, {"\\e+", "ab"}, {"\\e?$", ""}});
    find("0 1", 0, {{"a+b?a+", "ab"}, {"a+a+", "a"}});
    find("0 3", 0, {{"a*a", "aaa"}, {"^*abc", "abc"}, {"abc$", "abc"}});
    find("1 3", 0, {{"abc$", "xabc"}, {"a?bc+", "xabcd"}});
    find("3 3", 0, {{"a.c", "axxabc"}});
    find("3 3", 3, {{"^abc", "abcabc"}, {"[^x].+", "xyzabc"}});
    find("2 2", 0, {{"[abc]*x", "zzax"}});
    find("2 2", 2, {{"[abc]x", "zzax"}});
    EXPECT_EQ("0 2", found<TypeParam>("a.c", "acx"));
    EXPECT_EQ("0 5", found<TypeParam>(".*abc", "xxabcyy"));
}

TYPED_TEST(RegularExpressionsTest, APatternThatFailsLeavesTheTokensBeforeTheError) {
    Expression<TypeParam> expression;
    EXPECT_EQ(npos, expression.find(as<TypeParam>("abc"), 0));
    std::string message = "untouched";
    EXPECT_TRUE(expression.setPatternImpl(as<TypeParam>("c"), message));
    EXPECT_EQ("untouched", message);
    EXPECT_EQ("end token found inside expression",
              kit::failureOf([&] { expression.setPattern(as<TypeParam>("ab$c")); }));
    EXPECT_EQ(1u, expression.find(as<TypeParam>("xabc"), 0));
    const kit::LogCapture log;
    expression.print();
    EXPECT_EQ(
        (std::vector<std::string>{"regular expression: c", "ExpressionToken: type=literal segment=ab factor=one"}),
        log.messages());
}

TYPED_TEST(RegularExpressionsTest, MatchesAreReplaced) {
    const auto expect = [](const char* result, const char* pattern, const char* replacement, int mode,
                           std::size_t start) {
        const Expression<TypeParam> expression(pattern);
        for (const int level : {0, 9}) {
            const kit::LogCapture log(level);
            const TypeParam text = as<TypeParam>("xabbab abb");
            EXPECT_EQ(as<TypeParam>(result), expression.replace(text, as<TypeParam>(replacement), mode, start))
                << pattern;
        }
    };
    expect("x<>ab abb", "ab*", "<>", 0, 0);
    expect("xabb<> abb", "ab*", "<>", 2, 3);
    expect("x<><> <>", "ab*", "<>", 1, 0);
    expect("xabab ab", "ab*", "ab", 1, 0);
    expect("xaba a", "b", "", 1, 3);
    expect("x-- abb", "^ab*", "-", 1, 1);
    expect("xabb-ab abb", "\\e", "-", 1, 4);
    expect("xabbab abb", "\\e", "", 1, 0);
    expect("xabbab abb", "abb$", "", 1, 0);
    expect("xabbab abb", "a", "-", 1, 99);
}

TYPED_TEST(RegularExpressionsTest, StepsAreTraced) {
    const auto logged = [](int level) {
        const Expression<TypeParam> expression("^a[b]?.+c$");
        const kit::LogCapture log(level);
        expression.print();
        expression.find(as<TypeParam>("xabc"), 0);
        std::string all;
        for (const std::string& line : log.messages())
            all += line + "\n";
        return all;
    };
    const std::string engine = "KestRegularExpressionImplementation::", type = "ExpressionToken: type=",
                      one = " factor=one\n";
    const std::string segment = "\tmatch token:\n\t\tsegment: ", set = type + "in set factor=zero or one\n";
    const std::string any = type + "any factor=one or more\n", literal = type + "literal segment=";
    const std::string a = literal + "a" + one + segment + "a:1:1:-1\n", b = set + segment + "b:2:1:0\n";
    const std::string c = literal + "c" + one + segment + "c:3:1:1\n", triedA = "xabc.find (a, 0) = 1\n";
    const std::string triedC = "xabc.find (c, 4) = -1\nxabc.find (c, 3) = 3\n";
    std::string expected = "regular expression: ^a[b]?.+c$\n" + type + "begin" + one + literal + "a" + one + set + any +
                           literal + "c" + one + type + "end" + one + triedA;
    for (const std::string& match : {a, b, any + segment + "c:3:1:0\n", c})
        expected += (match == c ? triedC : "") + engine + "addMatch: begin\n" + match + engine + "addMatch: end\n";
    expected += engine + "find: match stack begin\n" + a + b + c + engine + "find: match stack end\n";
    const std::string result = engine + "find: match found at -1:3\n";
    EXPECT_EQ(expected + result, logged(9));
    EXPECT_EQ(triedA + triedC + result, logged(10));
    EXPECT_EQ("", logged(8));
}

// The quick walk, the one with traces and the naive one come to the same results.
template <typename S>
void expectAsNaively(const std::string& pattern, const std::vector<std::string>& texts, std::size_t start) {
    std::string message;
    const auto tokens = tokensOf(as<S>(pattern), message);
    Expression<S> expression;
    expression.setPatternImpl(as<S>(pattern), message);
    for (const std::string& narrowText : texts) {
        const S text = as<S>(narrowText);
        std::size_t length[] = {99, 99, 99};
        const std::size_t naive = KestTest::findNaively(tokens, text, length[0], start);
        const bool agree = naive == expression.find(text, length[1], start) && naive == expression.find(text, start) &&
                           naive == KestSupport::internal::findWithTrace(tokens, text, length[2], start) &&
                           length[0] == length[1] && length[0] == length[2];
        ASSERT_TRUE(agree) << pattern << " on " << narrowText << " from " << start;
    }
}

// Every text of up to so many parts.
std::vector<std::string> allTexts(const std::vector<std::string>& parts, std::size_t most) {
    std::vector<std::string> texts = {""};
    for (std::size_t last = 0; most > 0; --most) {
        const std::size_t end = texts.size();
        for (; last < end; ++last) {
            for (const std::string& part : parts)
                texts.push_back(texts[last] + part);
        }
    }
    return texts;
}

TYPED_TEST(RegularExpressionsTest, AllShortPatternsFindInAllShortTextsWhatTheNaiveWalkFinds) {
    std::vector<std::string> parts = {"^", "$"};
    for (const std::string part : {"a", "ab", ".", "[b-c]", "[^a]", "\\e"})
        parts.insert(parts.end(), {part, part + "?", part + "*", part + "+"});
    std::vector<std::string> patterns = allTexts(parts, 3);
    for (const std::string& pattern : allTexts({"a", "b", ".", "[", "]", "^", "$", "*", "+", "?", "\\", "-"}, 3))
        patterns.push_back(pattern);
    for (const std::string& pattern : patterns) {
        expectAsNaively<TypeParam>(pattern, allTexts({"a", "b"}, 4), 0);
        expectAsNaively<TypeParam>(pattern, allTexts({"a", "b"}, 3), 1);
        if (this->HasFailure()) return;
    }
}

TYPED_TEST(RegularExpressionsTest, RandomLongerPatternsDoSoInLongerTexts) {
    const char* const parts[] = {"a", "b", "c", "z", ".", "[ab]", "[bc]", "[^a]", "[^z]", "abc", "zz", "\\e"};
    const char* const factors[] = {"", "", "?", "*", "+"};
    std::minstd_rand random(4711);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    for (int round = 0; round < 5000 && !this->HasFailure(); ++round) {
        std::string pattern(below(8) == 0 ? "^" : ""), text;
        for (std::size_t count = 1 + below(15) / 2; count > 0; --count)
            pattern.append(parts[below(std::size(parts))]).append(factors[below(std::size(factors))]);
        if (below(8) == 0) pattern += "$";
        // Some letters are rare, and long stretches have no match.
        for (std::size_t size = below(300), letters = 1 + below(3); text.size() < size;)
            text += below(30) == 0 ? 'z' : "cba"[below(letters)];
        expectAsNaively<TypeParam>(pattern, {text}, below(3));
    }
}

TYPED_TEST(RegularExpressionsTest, TextsOfAnySizeAreSearched) {
    const std::string much(10000, 'a');
    EXPECT_EQ("none 99", found<TypeParam>("a*a*a*a*b", much));
    EXPECT_EQ("none 99", found<TypeParam>("a.*[b-c].*d", much + "b"));
    EXPECT_EQ("none 99", found<TypeParam>("a?a*.*[b-c]", much));
    EXPECT_EQ("none 99", found<TypeParam>("a[^c]?a*[b-c]", much));
    EXPECT_EQ("0 10002", found<TypeParam>(".*[^a]+a*b?", much + "xx"));
    EXPECT_EQ("10001 3", found<TypeParam>("[abc]?[^a]c", much + "bbxc"));
    std::string longPattern = "b";
    for (int i = 0; i < 20000; ++i)
        longPattern += i % 2 == 0 ? "a?" : "a*";
    EXPECT_EQ("0 10001", found<TypeParam>(longPattern, "b" + much));
}

TEST(RegularExpressionsOfBothTypesTest, SearchesSeeTheOldPatternOrTheNewOne) {
    Expression<std::string> expression("a+");
    std::atomic<bool> isDone{false};
    std::thread setter([&] {
        for (int i = 0; i < 20000; ++i)
            expression.setPattern(i % 2 == 0 ? "b[b]" : "a+");
        isDone = true;
    });
    bool isOneOfThem = true;
    while (!isDone && isOneOfThem) {
        std::size_t length = 0;
        const std::size_t offset = expression.find("aaabbb", length, 0);
        const std::string replaced = expression.replace("aaabbb", "-", 1, 0);
        isOneOfThem = offset + length == (offset == 0 ? 3 : 5) && (replaced == "-bbb" || replaced == "aaa-b");
    }
    EXPECT_TRUE(isOneOfThem);
    setter.join();
}

}  // namespace
