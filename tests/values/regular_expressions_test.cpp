// Tests how patterns compile, find and replace, and compares the fast search and the one with traces with a naive one.
#include "support/regular_expressions.h"

#include <random>
#include <tuple>

#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "values/naive_expression_matcher.h"
#include "values/pattern/trace.h"

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

// The characters of a literal, or all members of a set.
template <typename S>
S segmentOf(const ExpressionToken<S>& token) {
    S segment = token.segment;
    for (const auto& range : token.ranges) {
        for (int place = range.first; place <= range.last; ++place)
            segment += static_cast<typename S::value_type>(place);
    }
    return segment;
}

// For each token the letter of its type, its segment and the letter of its factor; then the failure.
template <typename S>
std::string compiled(const S& pattern) {
    std::string message, all;
    for (const auto& token : tokensOf(pattern, message)) {
        all += "iola^$"[static_cast<int>(token.type)];
        for (const auto c : segmentOf(token))
            all += static_cast<char>(c);
        all += "1?*+"[static_cast<int>(token.factor)];
        all += ' ';
    }
    return all + message;
}

// Returns the offset and the length after a search, and checks that all operations agree about the match.
template <typename S>
std::string found(const std::string& pattern, const std::string& text, std::size_t start = 0) {
    const Expression<S> expression(pattern);
    std::size_t length = 99;
    const std::size_t offset = expression.find(as<S>(text), length, start);
    const S match = offset == npos ? S() : as<S>(text).substr(offset, length);
    EXPECT_EQ(expression.find(as<S>(text), start), offset) << pattern;
    EXPECT_EQ(expression.match(as<S>(text), start), match) << pattern;
    return (offset == npos ? "none" : std::to_string(offset)) + " " + std::to_string(length);
}

template <typename S>
class RegularExpressions : public testing::Test {};
using Instantiations = testing::Types<std::string, wstring16>;
TYPED_TEST_SUITE(RegularExpressions, Instantiations, );

using Texts = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

// Letters of the types: i in set, o out of set, l literal, a any, ^ begin, $ end.
TYPED_TEST(RegularExpressions, CompilePatternsIntoTokens) {
    const auto compile = [](const std::string& failure, const Pairs& rows) {
        for (const auto& [pattern, tokens] : rows)
            EXPECT_EQ(compiled(as<TypeParam>(pattern)), tokens + failure) << pattern;
    };
    compile("", {{"", ""}, {"abc*", "lab1 lc* "}, {"[a-c]+x", "iaabc+ lx1 "}, {"^[^0-9]", "^1 o001234567891 "}});
    compile("", {{"a.b$", "la1 a1 lb1 $1 "}, {"[ab*]", "ia1 lb* l]1 "}});
    compile("", {{"[a.b]", "ia1 a1 lb]1 "}, {"[a\\.b]", "ia.b1 "}, {"[\\]\\-\\$]", "i]-$1 "}, {"\\x41", "l411 "}});
    compile("", {{"[abc", "iabc1 "}, {"a\\.*\\**", "la1 l.* l** "}, {"a\\e*b\\e+", "la* lb+ "}});
    compile("", {{"^*a^b?^", "^* la^1 lb? l^1 "}, {"a***]-", "la* l** l]-1 "}, {".?.+*", "a? a+ l*1 "}});
    compile("", {{"[^^][-a][^-]?", "o^1 i-a1 o-? "}, {"[X-]][Z-\\]", "iXXYZ[\\]1 iZZ[\\1 "}});
    compile("", {{"\\b\\f\\n\\r\\t\\0\\^", "l\b\f\n\r\t1 "}, {"\\e\\\\", "l\\1 "}});
    compile("end token found inside expression", {{"ab$c", "lab1 "}, {"a$*", "la1 "}, {"$$", ""}});
    compile("empty set in pattern", {{"[", ""}, {"a[]b]", "la1 "}, {"[^]a]", ""}, {".[^", "a1 "}, {"[.[", "i1 a1 "}});
    compile("bad escape expression", {{"\\", ""}, {".\\", "a1 "}});
    compile("bad regular expression", {{"a\\", ""}, {"[\\", ""}});
    compile("end of expression found in pattern", {{"a*[a-", "la* "}, {"[-", ""}, {".[^-", "a1 "}});
    compile("invalid endpoint in range", {{"[b-a]", ""}, {"x[a-]", "lx1 "}});
}

TEST(RegularExpressionRanges, FollowTheOrderOfCharacters) {
    std::string message;
    EXPECT_EQ(segmentOf(tokensOf("[\x80-\x7F]"s, message)[0]).size(), 129u) << "-128 to -1; zero ends the set";
    EXPECT_EQ(compiled("[a-\x80]"s), "invalid endpoint in range");
    EXPECT_EQ(compiled(as<wstring16>("[\x80-\x7F]")), "invalid endpoint in range");
    EXPECT_EQ(segmentOf(tokensOf(wstring16{'[', 0xFFF0, '-', 0xFFFF, ']'}, message)[0]).size(), 17u);
    Expression<wstring16> wide;
    wide.setPattern({'x', '[', '^', 0x100, '-', 0x102, ']', '+'});
    EXPECT_EQ(wide.match({'x', 0xFF, 0x103, 'a', 0x200, 0x101}, 0), (wstring16{'x', 0xFF, 0x103, 'a', 0x200}));
    // Ranges that overlap, then others, in no order; at the end there are enough for one bit per code.
    wstring16 many{'['};
    for (unsigned i = 0; i < 70; ++i) {
        const auto low = static_cast<unsigned short>(0xF8 + i * 37 % 70 * (i < 35 ? 2 : 9));
        many += {low, '-', static_cast<unsigned short>(low + 4)};
        const auto token = tokensOf(many + wstring16{']'}, message)[0];
        wide.setPattern(many + wstring16{']'});
        for (unsigned short c = 0xF0; c < 0x380; c = static_cast<unsigned short>(c + 1))
            ASSERT_EQ(wide.find({c}, 0), token.hasMember(c) ? 0 : npos) << c;
        EXPECT_LE(token.ranges.size(), 2 * (i + 1));
    }
}

TYPED_TEST(RegularExpressions, FindTheFirstMatch) {
    const auto find = [](const std::string& match, std::size_t start, const Pairs& rows) {
        for (const auto& [pattern, text] : rows)
            EXPECT_EQ(found<TypeParam>(pattern, text, start), match) << pattern << " on " << text;
    };
    find("none 99", 0,
         {{"", "abc"}, {".*abc", "abc"}, {"[abc]x", "zzax"}, {"x?abc", "abc"}, {"^$", ""}, {"a[bc]+c", "ac"}});
    find("none 99", npos, {{"[^x]?", "aa"}, {"\\e+", "aa"}});
    find("none 3", 0, {{"^abc", "xabc"}, {"abc$", "abcabc"}});
    find("0 0", 0, {{"\\e", ""}, {"\\e+", "ab"}, {"\\e?$", ""}});
    find("0 1", 0, {{"a+b?a+", "ab"}, {"a+a+", "a"}});
    find("0 3", 0, {{"a*a", "aaa"}, {"^*abc", "abc"}, {"abc$", "abc"}});
    find("1 3", 0, {{"abc$", "xabc"}, {"a?bc+", "xabcd"}});
    find("3 3", 3, {{"^abc", "abcabc"}, {"[^x].+", "xyzabc"}, {"a.c", "axxabc"}});
    find("2 2", 0, {{"[abc]*x", "zzax"}});
    find("0 5", 0, {{".*abc", "xxabcyy"}});
    Expression<TypeParam> refused;
    EXPECT_EQ(refused.find(as<TypeParam>("abc"), 0), npos);
    EXPECT_EQ(kit::failureOf([&] { refused.setPattern(as<TypeParam>("ab$c")); }), "end token found inside expression");
    EXPECT_EQ(refused.find(as<TypeParam>("xabc"), 0), 1u) << "the tokens before the error";
}

TYPED_TEST(RegularExpressions, ReplaceMatches) {
    const std::tuple<const char*, const char*, std::string, int, std::size_t> rows[] = {
        {"xabb<> abb", "ab*", "<>", 2, 3}, {"x<><> <>", "ab*", "<>", 1, 0}, {"xabab ab", "ab*", "ab", 1, 0},
        {"xaba a", "b", "", 1, 3},         {"x-- abb", "^ab*", "-", 1, 1},  {"xabb-ab abb", "\\e", "-", 1, 4},
        {"xabbab abb", "\\e", "", 1, 0},   {"xabbab abb", "a", "-", 1, 99}};
    for (const auto& [result, pattern, replacement, mode, start] : rows) {
        const Expression<TypeParam> expression(pattern);
        const TypeParam text = as<TypeParam>("xabbab abb"), with = as<TypeParam>(replacement);
        for (const int level : {0, 9}) {  // without and with traces
            const kit::LogCapture log(level);
            EXPECT_EQ(expression.replace(text, with, mode, start), as<TypeParam>(result)) << pattern;
        }
    }
}

TEST(RegularExpressionTraces, LogEachStep) {
    const Expression<wstring16> printed("^a[b]?[^c]+.*$"), searched("^a.*c?$");
    const auto logged = [&](int level, bool isSearch) {
        const kit::LogCapture log(level);
        isSearch ? static_cast<void>(searched.find(as<wstring16>("xab"), 0)) : printed.print();
        std::string all;
        for (const std::string& line : log.messages())
            all += line + "|";
        return all;
    };
    const std::string type = "ExpressionToken: type=", engine = "KestRegularExpressionImplementation::";
    const std::string a = type + "literal segment=a factor=one|", any = type + "any factor=zero or more|";
    EXPECT_EQ(logged(9, false), "regular expression: ^a[b]?[^c]+.*$|" + type + "begin factor=one|" + a + type +
                                    "in set factor=zero or one|" + type + "not in set factor=one or more|" + any +
                                    type + "end factor=one|");
    const std::string matchOfA = a + "\tmatch token:|\t\tsegment: a:1:1:-1|";
    const std::string matchOfAny = any + "\tmatch token:|\t\tsegment: b:2:1:0|";
    const std::string begin = engine + "addMatch: begin|", end = engine + "addMatch: end|";
    const std::string triedA = "xab.find (a, 0) = 1|", triedC = "xab.find (c, 3) = -1|";
    const std::string result = engine + "find: match found at -1:2|";
    EXPECT_EQ(logged(9, true), triedA + begin + matchOfA + end + begin + matchOfAny + end + triedC + engine +
                                   "find: match stack begin|" + matchOfA + matchOfAny + engine +
                                   "find: match stack end|" + result);
    EXPECT_EQ(logged(10, true), triedA + triedC + result);
    EXPECT_EQ(logged(10, false) + logged(8, false) + logged(8, true), "");
}

// Compares the fast search and the one with traces with the naive one.
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
        SCOPED_TRACE(testing::Message() << pattern << " on " << narrowText << " from " << start);
        ASSERT_EQ(expression.find(text, length[1], start), naive);
        ASSERT_EQ(expression.find(text, start), naive);
        ASSERT_EQ(KestSupport::internal::findWithTrace(tokens, text, length[2], start), naive);
        ASSERT_EQ(std::pair(length[1], length[2]), std::pair(length[0], length[0]));
    }
}

TYPED_TEST(RegularExpressions, AgreeWithTheNaiveSearch) {
    // Returns every text of up to `most` parts.
    const auto all = [](const std::vector<std::string>& parts, std::size_t most) {
        std::vector<std::string> texts = {""};
        for (std::size_t last = 0, end = 1; most > 0; --most, end = texts.size()) {
            for (; last < end; ++last) {
                for (const std::string& part : parts)
                    texts.push_back(texts[last] + part);
            }
        }
        return texts;
    };
    std::vector<std::string> parts = {"^", "$"};
    for (const std::string part : {"a", "ab", ".", "[b-c]", "[^a]", "\\e"})
        parts.insert(parts.end(), {part, part + "?", part + "*", part + "+"});
    std::vector<std::string> patterns = all({"a", "b", ".", "[", "]", "^", "$", "*", "+", "?", "\\", "-"}, 3);
    for (const std::string& pattern : all(parts, 3))
        patterns.push_back(pattern);
    for (const std::string& pattern : patterns) {
        expectAsNaively<TypeParam>(pattern, all({"a", "b"}, 4), 0);
        expectAsNaively<TypeParam>(pattern, all({"a", "b"}, 3), 1);
        if (this->HasFailure()) return;
    }
}

TYPED_TEST(RegularExpressions, AgreeWithTheNaiveSearchRandomly) {
    const char* const parts[] = {"a", "b", "c", "z", ".", "[ab]", "[bc]", "[^a]", "[^z]", "abc", "zz", "\\e", "^", "$"};
    const char* const factors[] = {"", "", "?", "*", "+"};
    std::minstd_rand random(4711);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    for (int round = 0; round < 5000 && !this->HasFailure(); ++round) {
        std::string pattern, text;
        for (std::size_t count = 1 + below(15) / 2; count > 0; --count)
            pattern.append(parts[below(std::size(parts))]).append(factors[below(std::size(factors))]);
        // Some letters are rare, and long stretches have no match.
        for (std::size_t size = below(300), letters = 1 + below(3); text.size() < size;)
            text += below(30) == 0 ? 'z' : "cba"[below(letters)];
        expectAsNaively<TypeParam>(pattern, {text}, below(3));
    }
}

TYPED_TEST(RegularExpressions, SearchLongTexts) {
    const std::string much(10000, 'a');
    for (const char* const slow : {"a*a*a*a*b", "a?a*.*[b-c]", "a[^c]?a*[b-c]"})
        EXPECT_EQ(found<TypeParam>(slow, much), "none 99") << slow;
    EXPECT_EQ(found<TypeParam>("a.*[b-c].*d", much + "b"), "none 99");
    EXPECT_EQ(found<TypeParam>(".*[^a]+a*b?", much + "xx"), "0 10002");
    EXPECT_EQ(found<TypeParam>("[abc]?[^a]c", much + "bbxc"), "10001 3");
    std::string longPattern = "b";
    for (int i = 0; i < 10000; ++i)
        longPattern += "a?a*";
    EXPECT_EQ(found<TypeParam>(longPattern, "b" + much), "0 10001");
}

TEST(RegularExpressionThreads, SeeOneOfTwoPatterns) {
    Expression<std::string> expression("a+");
    std::atomic<bool> isDone{false};
    std::thread setter([&] {
        for (int i = 0; i < 20000; ++i)
            expression.setPattern(i % 2 == 0 ? "b[b]" : "a+");
        isDone = true;
    });
    while (!isDone) {
        const std::string match = expression.match("aaabbb", 0);
        EXPECT_TRUE(match == "aaa" || match == "bb") << match;
        const std::string replaced = expression.replace("aaabbb", "-", 1, 0);
        EXPECT_TRUE(replaced == "-bbb" || replaced == "aaa-b") << replaced;
    }
    setter.join();
}

// Searches while its own record is open and another thread traces.
TEST(RegularExpressionThreads, HoldNoLockWhileTheyLog) {
    const Expression<std::string> expression("a+");
    const kit::LogCapture log;
    std::thread tracing([&] {
        for (int i = 0; i < 500; ++i)
            expression.replace("aaabbb", "-", 1, 0);
    });
    for (int i = 0; i < 500; ++i)
        log.getInstance() << KestSupport::setloglevel(9) << "a" << expression.replace("aaabbb", "-", 1, 0)
                          << &KestSupport::endrecord;
    tracing.join();
}

}  // namespace
