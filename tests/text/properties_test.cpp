#include "support/properties.h"

#include <gtest/gtest.h>

#include <locale>
#include <random>
#include <stdexcept>
#include <thread>

#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"
#include "support/exceptions.h"
#include "support/logging.h"

using namespace KestSupport;
using namespace std::string_literals;

namespace {

template <typename StringType>
using Map = std::map<StringType, std::vector<StringType>>;

// Text of any of the types; a char becomes the unit of the same value.
template <typename StringType = wstring16>
StringType text(std::string_view bytes) {
    StringType result;
    for (const char c : bytes)
        result.push_back(static_cast<typename StringType::value_type>(static_cast<unsigned char>(c)));
    return result;
}

wstring16 units(std::u16string_view from) {
    return {from.begin(), from.end()};
}

// The bytes of UTF-16 little-endian with its mark.
std::string utf16File(std::u16string_view from) {
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : from) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    return bytes;
}

template <typename StringType>
Map<StringType> loaded(const std::string& bytes) {
    const kit::TemporaryFolder folder;
    KestProperties<StringType> properties;
    EXPECT_TRUE(properties.loadProperties(folder.write("file", bytes)));
    return properties.getProperties();
}

template <typename StringType>
std::string saved(KestProperties<StringType> properties) {
    const kit::TemporaryFolder folder;
    EXPECT_TRUE(properties.saveProperties(folder.pathOf("file")));
    return folder.read("file");
}

template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
    } catch (const KestException& e) {
        return e.getCode() == 0 ? e.getText() : "another code than 0";
    }
    return "no failure";
}

class GlobalLocale {
  public:
    explicit GlobalLocale(const char* name) : m_before(std::locale::global(std::locale(name))) {}
    ~GlobalLocale() { std::locale::global(m_before); }

  private:
    const std::locale m_before;
};

}  // namespace

TEST(Properties, ReadsEightBitLines) {
    const struct {
        std::string bytes;
        Map<std::string> narrow;
    } rows[] = {
        {"", {}},
        {"\n\r\n=x\n#a=1\n", {{"\r", {""}}}},
        {"a=1\na=2", {{"a", {"1", "2"}}}},
        {"key = value\nother=  value  \ntab=\tx\n", {{"key ", {"value"}}, {"other", {"value  "}}, {"tab", {"\tx"}}}},
        {" #a=b\n", {{" #a", {"b"}}}},
        {"a=1\r\nalone\r\n", {{"a", {"1"}}, {"alone\r", {""}}}},
        {"a\rb=c\rd\nx=1\r2\r\n", {{"a\rb", {"c\rd"}}, {"x", {"1"}}}},
        {"a==b=\nc=   \n", {{"a", {"=b="}}, {"c", {""}}}},
        {"a\0b=c\0d\n"s, {{"a\0b"s, {"c\0d"s}}}},
        {"\xFF", {{"\xFF", {""}}}},
        {"\xFF=\xFE\n\xC3\xA4=\x80", {{"\xFF", {"\xFE"}}, {"\xC3\xA4", {"\x80"}}}},
        {"\xEF\xBB\xBF#a=1", {{"\xEF\xBB\xBF#a", {"1"}}}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(loaded<std::string>(row.bytes), row.narrow) << row.bytes;
        Map<wstring16> wide;
        for (const auto& [name, values] : row.narrow) {
            for (const auto& value : values)
                wide[text(name)].push_back(text(value));
        }
        EXPECT_EQ(loaded<wstring16>(row.bytes), wide) << row.bytes;
    }
}

TEST(Properties, ReadsUtf16WholeOrByItsLowBytes) {
    const struct {
        std::string bytes;
        Map<std::string> narrow;
        std::map<std::u16string, std::u16string> wide;
    } rows[] = {
        {utf16File(u""), {}, {}},
        {utf16File(u"a=1\r\nalone\r\nlast\r"),
         {{"a", {"1"}}, {"alone", {""}}, {"last\r", {""}}},
         {{u"a", u"1"}, {u"alone", u""}, {u"last\r", u""}}},
        {utf16File(u"\u0161=\u4F20 \u0120x"), {{"a", {"x"}}}, {{u"\u0161", u"\u4F20 \u0120x"}}},
        {utf16File(u"a=1\u010Ab=2"), {{"a", {"1"}}, {"b", {"2"}}}, {{u"a", u"1\u010Ab=2"}}},
        {utf16File(u"\u0A0A=\u0A61"), {}, {{u"\u0A0A", u"\u0A61"}}},
        {utf16File(u"\U0001F600=\xD800"), {}, {{u"\U0001F600", u"\xD800"}}},
        {utf16File(u"a=b") + "\n", {{"a", {"b"}}}, {{u"a", u"b"}}},
        {utf16File(u"a\0=b"s), {{"a\0"s, {"b"}}}, {{u"a\0"s, u"b"}}},
    };
    for (const auto& row : rows) {
        Map<wstring16> wide;
        for (const auto& [name, value] : row.wide)
            wide[units(name)] = {units(value)};
        EXPECT_EQ(loaded<wstring16>(row.bytes), wide) << row.bytes;
        EXPECT_EQ(loaded<std::string>(row.bytes), row.narrow) << row.bytes;
    }
}

TEST(Properties, FindsLineEndsWhereverABlockOfTheFileEnds) {
    for (const std::size_t border : {std::size_t{65536}, std::size_t{262144}}) {
        for (std::size_t length = border - 6; length < border + 4; ++length) {
            const std::string value(length, 'x');
            const Map<std::string> expected{{"a", {value}}, {"b", {"2"}}};
            ASSERT_EQ(loaded<std::string>("a=" + value + "\r\nb=2"), expected) << length;
            const std::u16string half(length / 2, u'\u0A78');
            const auto wide = loaded<wstring16>(utf16File(u"a=" + half + u"\r\nb=2"));
            ASSERT_EQ(wide, (Map<wstring16>{{text("a"), {units(half)}}, {text("b"), {text("2")}}})) << length;
        }
    }
}

TEST(Properties, TakesLinesFromTheCallerWithAnySeparator) {
    const struct {
        std::string line;
        char separator;
        Map<std::string> expected;
    } rows[] = {
        {"a=b\nc", '=', {{"a", {"b"}}}},       {"a\nb=c\nd", '=', {{"a\nb", {"c\nd"}}}},
        {"a=b\nc\rd", '=', {{"a", {"b\nc"}}}}, {"a b=c", ' ', {{"a", {"b=c"}}}},
        {"a\rb\rc", '\r', {{"a", {"b\rc"}}}},  {"#a", '#', {}},
        {"a\0b"s, '\0', {{"a", {"b"}}}},       {"a  b", '\t', {{"a  b", {""}}}},
    };
    for (const auto& row : rows) {
        KestProperties<std::string> one;
        one.addProperty(row.line, row.separator);
        EXPECT_EQ(one.getProperties(), row.expected) << row.line;
        KestProperties<std::string> several;
        several.loadProperties(std::vector<std::string>{row.line, "#"}, row.separator);
        EXPECT_EQ(several.getProperties(), row.expected) << row.line;
    }
    std::string first = "a:1";
    std::string second = "a:2";
    char* argv[] = {first.data(), second.data(), nullptr};
    KestProperties<std::string> properties(false);
    properties.loadProperties(2, argv, ':');
    properties.addPropertyforWSmanDA("# x");
    properties.addPropertyforWSmanDA("");
    properties.addPropertyforWSmanDA("b=c");
    EXPECT_EQ(properties.getProperties(), (Map<std::string>{{"a", {"2"}}, {"b=c", {""}}}));
}

TEST(Properties, KeepsLooksUpAndRemovesValues) {
    for (const bool multiValued : {true, false}) {
        KestProperties<std::string> properties(multiValued);
        properties.addProperty(""s, "ignored"s);
        properties.setProperty("", "ignored");
        properties.addProperty("a"s, "1"s);
        properties.addProperty("a"s, "2"s);
        properties.addProperty("a"s, properties.getProperty("a"));
        properties.setProperty("a", "3");
        properties.setProperty("b", "4");
        using Values = std::vector<std::string>;
        const Values expected = multiValued ? Values{"3", "2", "1"} : Values{"3"};
        EXPECT_EQ(properties.getPropertyValues("a"), expected);
        EXPECT_EQ(properties.getProperty("a"), "3");
        EXPECT_EQ(properties.getProperties(), (Map<std::string>{{"a", expected}, {"b", {"4"}}}));

        const std::string standby = "standby";
        std::string value = "untouched";
        EXPECT_EQ(&properties.getProperty("c", standby), &standby);
        EXPECT_FALSE(properties.getPropertyValue("c", value));
        EXPECT_EQ(value, "untouched");
        EXPECT_TRUE(properties.getPropertyValue("b", value));
        EXPECT_EQ(value, "4");
        EXPECT_EQ(&properties.getProperty("b", standby), &properties.getProperty("b", value));
        properties.removeProperty("a");
        properties.removeProperty("c");
        EXPECT_EQ(properties.getPropertyValues("a"), Values());
        EXPECT_EQ(failureOf([&] { properties.getProperty("a"); }), "Property not found: a");

        KestProperties<std::string> copy(properties);
        KestProperties<std::string> assigned(!multiValued);
        assigned.addProperty("x"s, "y"s);
        assigned = properties;
        assigned = *&assigned;
        for (KestProperties<std::string>* other : {&copy, &assigned}) {
            other->addProperty("b"s, "5"s);
            EXPECT_EQ(other->getPropertyValues("b"), multiValued ? Values({"4", "5"}) : Values({"5"}));
            EXPECT_EQ(other->getProperties().size(), 1u);
        }
        EXPECT_EQ(properties.getProperty("b"), "4");
    }
    const KestProperties<wstring16_ci> wide;
    EXPECT_EQ(failureOf([&] { wide.getProperty(text<wstring16_ci>("port")); }), "Property not found: port");
}

template <typename StringType>
class CaseInsensitiveProperties : public testing::Test {};
using CaseInsensitiveTypes = testing::Types<string_ci, wstring16_ci>;
TYPED_TEST_SUITE(CaseInsensitiveProperties, CaseInsensitiveTypes);

TYPED_TEST(CaseInsensitiveProperties, FoldNamesAndSeparatorAndSaveInFoldedOrder) {
    KestProperties<TypeParam> properties;
    for (const char* line : {"abX1", "A_Bx2", "AbX3", "BX4", "aCx5"})
        properties.addProperty(text<TypeParam>(line), 'x');
    EXPECT_EQ(properties.getPropertyValues(text<TypeParam>("AB")).size(), 2u);
    properties.setProperty(text<TypeParam>("aB"), text<TypeParam>("6"));
    EXPECT_EQ(saved(properties), "A_B=2\nab=6\naC=5\nB=4\n");
}

template <typename StringType>
class PropertiesOfAnyType : public testing::Test {};
using AllTypes = testing::Types<std::string, string_ci, wstring16, wstring16_ci>;
TYPED_TEST_SUITE(PropertiesOfAnyType, AllTypes);

TYPED_TEST(PropertiesOfAnyType, HoldWhatAPlainMapHoldsThroughAnyChanges) {
    std::mt19937 random(7);
    Map<TypeParam> model;
    KestProperties<TypeParam> properties;
    for (int step = 0; step < 30000; ++step) {
        const auto key = static_cast<unsigned>(random() % 600);
        const char* const initial[] = {"a", "A", "\xE4", "_", ""};
        const auto name = text<TypeParam>(initial[key % 5] + std::string(key % 7 * 20, 'n') + std::to_string(key / 5));
        const auto value = text<TypeParam>(std::string(key % 3 * 30, 'v') + std::to_string(step));
        const auto change = static_cast<unsigned>(random() % 10);
        if (change < 4) {
            properties.addProperty(name, value);
            model[name].push_back(value);
        } else if (change < 5) {
            properties.setProperty(name, value);
            if (model[name].empty()) model[name].resize(1);
            model[name].front() = value;
        } else if (change < 9 || step % 5000 > 4000) {  // now and then nearly everything goes
            properties.removeProperty(name);
            model.erase(name);
        }
        const auto found = model.find(name);
        ASSERT_EQ(properties.getPropertyValues(name), found == model.end() ? std::vector<TypeParam>() : found->second);
        if (step % 1000 != 0) continue;
        ASSERT_EQ(properties.getProperties(), model) << step;
        ASSERT_EQ(KestProperties<TypeParam>(properties).getProperties(), model) << step;
    }
}

TEST(Properties, VisitsEntriesInOrderWhileTheVisitorChangesThem) {
    class Visitor : public KestPropertyIterator<std::string> {
      public:
        explicit Visitor(KestProperties<std::string>& properties) : m_properties(properties) {}
        void handleProperty(const std::pair<const std::string, std::vector<std::string>>& entry) override {
            m_seen += entry.first + entry.second.back() + ' ';
            if (entry.first != "b") return;
            for (const char* name : {"a", "b", "c"})
                m_properties.removeProperty(name);
            m_properties.addProperty("aa"s, "0"s);
            m_properties.addProperty("e"s, "5"s);
            m_seen += entry.first + ' ';
        }
        KestProperties<std::string>& m_properties;
        std::string m_seen;
    };
    KestProperties<std::string> properties;
    properties.forEach(*std::make_unique<KestPropertyIterator<std::string>>());
    for (const char* line : {"d=4", "\xE4=6", "b=2", "a=1", "c=3", "a=9"})
        properties.addProperty(line, '=');
    properties.forEach(*std::make_unique<KestPropertyIterator<std::string>>());
    Visitor visitor(properties);
    properties.forEach(visitor);
    EXPECT_EQ(visitor.m_seen, "a9 b2 b d4 \xE4\x36 ");
}

TEST(Properties, SavesFirstValuesUpToTheirFirstNul) {
    EXPECT_EQ(saved(KestProperties<std::string>()), "");
    KestProperties<std::string> narrow;
    for (const auto& line : {"z = 1"s, "a=1"s, "a=2"s, "b\0c=d"s, "n=x\0y"s, "\xE4=\xFF"s, "alone"s})
        narrow.addProperty(line, '=');
    const std::string expected = "a=1\nalone=\nb=d\nn=x\nz =1\n\xE4=\xFF\n";
    EXPECT_EQ(saved(narrow), expected);
    KestProperties<wstring16> wide;
    wide.addProperty(units(u"b"), units(u"\u00E4\0\u4E00"s));
    EXPECT_EQ(saved(wide), "b=\xE4\n") << "what is cut off does not count";
    wide.addProperty(units(u"\u4E00"), units(u"\U0001F600 \xDC00"));
    EXPECT_EQ(saved(wide), utf16File(u"b=\u00E4\n\u4E00=\U0001F600 \xDC00\n"));
    wide.setProperty(units(u"b"), wstring16(200000, 0x0A0D));
    EXPECT_EQ(loaded<wstring16>(saved(wide)), wide.getProperties());
    narrow.setProperty("a", std::string(200000, 'x'));
    EXPECT_EQ(saved(narrow).size(), expected.size() + 199999);
}

TEST(Properties, ReadAndWriteWideTextByTheGlobalLocale) {
    const GlobalLocale locale("C.UTF-8");
    const Map<wstring16> expected{{units(u"\u00E4"), {units(u"\u4E00\U0001F600")}},
                                  {units(u"b"), {units(u"\u00C3x\u00F0\u009F")}}};
    EXPECT_EQ(loaded<wstring16>("\xC3\xA4=\xE4\xB8\x80\xF0\x9F\x98\x80\nb=\xC3x\xF0\x9F"), expected);
    EXPECT_EQ(loaded<std::string>("\xC3\xA4=\xFF"), (Map<std::string>{{"\xC3\xA4", {"\xFF"}}}));
    KestProperties<wstring16> properties;
    properties.addProperty(units(u"\u00E4"), units(u"\u4E00\U0001F600"));
    EXPECT_EQ(saved(properties), "\xC3\xA4=\xE4\xB8\x80\xF0\x9F\x98\x80\n");
    properties.addProperty(units(u"lone"), units(u"\xD83D"));
    EXPECT_EQ(loaded<wstring16>(saved(properties)), properties.getProperties());
}

TEST(Properties, SayWhichFileFailedAndKeepWhatTheyHave) {
    const kit::TemporaryFolder folder;
    const std::string good = folder.write("good", "a=1\n");
    const struct {
        const char* failingCall;
        std::string file;
        std::string load, save;
    } rows[] = {
        {"none", folder.pathOf("no/such"), "couldn't open file ", "couldn't open file "},
        {"none", folder.path(), "couldn't open file ", "couldn't open file "},
        {"none", "", "couldn't open file ", "couldn't open file "},
        {"open", good, "couldn't open file ", "couldn't open file "},
        {"fread", good, "couldn't read file ", ""},
        {"fwrite", good, "", "couldn't write file "},
        {"fclose", good, "", "couldn't write file "},
    };
    KestProperties<wstring16> properties;
    properties.addProperty(text("b=2"), '=');
    for (const auto& row : rows) {
        const kit::FailingCalls failing(row.failingCall);
        const std::string prefix = "KestProperties<StringType>::";
        const auto expected = [&](const char* operation, const std::string& reason) {
            return reason.empty() ? "no failure" : prefix + operation + reason + row.file;
        };
        EXPECT_EQ(failureOf([&] { KestProperties(properties).loadProperties(row.file, '='); }),
                  expected("loadProperties: ", row.load))
            << row.failingCall << row.file;
        EXPECT_EQ(failureOf([&] { KestProperties(properties).saveProperties(row.file); }),
                  expected("saveProperties: ", row.save))
            << row.failingCall << row.file;
    }
    EXPECT_EQ(properties.getProperties().size(), 1u);
}

TEST(Properties, LogFileOperationsAtFiveAndEntriesAtExactlyNine) {
    const kit::TemporaryFolder folder;
    const std::string file = folder.write("file", "b=22\na=1\na=3\n");
    const std::string bad = folder.path();
    const std::string load = "KestProperties<StringType>::loadProperties: ";
    const std::string save = "KestProperties<StringType>::saveProperties: ";
    const std::string common = load + "from file " + file + "\n",
                      tail = save + "to file " + file + "\n" + load + "from file " + bad + "\n" + load +
                             "couldn't open file " + bad + "\n" + save + "to file " + bad + "\n" + save +
                             "couldn't open file " + bad + "\n";
    const struct {
        int level;
        std::string expected;
    } rows[] = {{4, ""},
                {5, common + tail},
                {8, common + tail},
                {10, common + tail},
                {9, common + "DebugPrintProperty: a=1 (1)\nDebugPrintProperty: b=22 (2)\n" + tail}};
    for (const auto& row : rows) {
        testing::internal::CaptureStdout();
        {
            KestLogging logging("unused", KestLogging::standardOutputTarget, row.level);
            logging.enableRecordData(false);
            KestLogging::setInstance(logging);
            KestProperties<string_ci> properties;
            properties.loadProperties(file);
            properties.saveProperties(file);
            EXPECT_THROW(properties.loadProperties(bad), KestException);
            EXPECT_THROW(properties.saveProperties(bad), KestException);
        }
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.expected) << row.level;
        folder.write("file", "b=22\na=1\na=3\n");
    }
}

TEST(Properties, TakeFilesAndChangesFromSeveralThreads) {
    const kit::TemporaryFolder folder;
    constexpr int kLines = 2000;
    std::string lines;
    for (int i = 0; i < kLines; ++i)
        lines += "n" + std::to_string(i) + "=v\n";
    const std::string file = folder.write("file", lines);
    KestProperties<std::string> properties;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            properties.loadProperties(file);
            for (int i = 0; i < kLines; ++i) {
                const std::string own = "own" + std::to_string(t);
                properties.setProperty(own, std::to_string(i));
                if (properties.getProperty(own) != std::to_string(i)) throw std::logic_error("a change was lost");
                if (i % 2 == 0) properties.removeProperty(own);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const auto all = properties.getProperties();
    EXPECT_EQ(all.size(), kLines + 3u);
    for (const auto& [name, values] : all)
        EXPECT_EQ(values.size(), name.starts_with("own") ? 1u : 3u) << name;
}
