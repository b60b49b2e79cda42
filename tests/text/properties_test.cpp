// What a property map holds after any changes, the bytes of its files, and what it reports.
#include "support/properties.h"

#include <filesystem>
#include <locale>
#include <random>
#include <set>

#include "kit/allocations.h"
#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "kit/system.h"
#include "text/properties/property_table.h"

using namespace KestSupport;
using namespace std::string_literals;

namespace {

// Text of any of the types with the same units.
template <typename To, typename From>
To text(const From& from) {
    To result;
    for (const std::make_unsigned_t<typename From::value_type> unit : from)
        result += static_cast<typename To::value_type>(unit);
    return result;
}

void add(KestProperties<wstring16>& properties, const std::u16string& name, const std::u16string& value) {
    properties.addProperty(text<wstring16>(name), text<wstring16>(value));
}

// All entries of any of the types, as "name:value:value;name:value;".
template <typename StringType>
std::u16string flat(const KestProperties<StringType>& properties) {
    std::u16string result;
    for (const auto& [name, values] : properties.getProperties()) {
        result += text<std::u16string>(name);
        for (const auto& value : values)
            result += u':' + text<std::u16string>(value);
        result += u';';
    }
    return result;
}

// The bytes of UTF-16 little-endian with its mark.
std::string utf16File(std::u16string_view from) {
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : from)
        bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    return bytes;
}

template <typename StringType>
std::u16string loaded(const std::string& bytes) {
    const kit::TemporaryFolder folder;
    KestProperties<StringType> properties;
    EXPECT_TRUE(properties.loadProperties(folder.write("file", bytes)));
    return flat(properties);
}

template <typename StringType>
std::string saved(KestProperties<StringType> properties) {
    const kit::TemporaryFolder folder;
    EXPECT_TRUE(properties.saveProperties(folder.pathOf("file")));
    const std::string bytes = folder.read("file");
    return bytes.starts_with("\xFF\xFE") ? bytes : folder.readText("file");
}

// Counts how often names are compared.
struct CountingTraits : std::char_traits<char> {
    inline static int s_compared = 0;
    static int compare(const char* a, const char* b, std::size_t n) {
        ++s_compared;
        return std::char_traits<char>::compare(a, b, n);
    }
};

}  // namespace

template <>
struct KestSupport::internal::CharacterOrder<CountingTraits> : CharacterOrder<std::char_traits<char>> {
    static constexpr bool kIsPlain = true;
};

TEST(Properties, ComparesFewCollidingNames) {
    // Each block of these names has two forms with one hash, if the hash multiplies, with any seed.
    using Table = internal::PropertyTable<std::basic_string<char, CountingTraits>>;
    Table table;
    constexpr int kNames = 4096;
    for (int i = 0; i < kNames; ++i) {
        std::string name(12 * 16, 'a');
        for (std::size_t block = 0; block < 12; ++block)
            for (const std::size_t byte : {7U, 11U, 15U})
                if ((i >> block & 1) != 0) name[16 * block + byte] = static_cast<char>('a' ^ 0x80);
        EXPECT_TRUE(table.findOrAdd(Table::Key({name.data(), name.size()})).second);
    }
    EXPECT_LT(CountingTraits::s_compared, 2 * kNames);
    const std::string message = "\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16"s;  // the example of the hash's authors
    const internal::HashKey key{0x0706050403020100, 0x0F0E0D0C0B0A0908};
    EXPECT_EQ((internal::hashBytes<internal::SipHash<2, 4>>(key, message.data(), 15)), 0xA129CA6149BE45E5);
    std::set<std::uint64_t> hashes;
    for (std::size_t size = 1; size <= message.size(); ++size) {
        for (std::size_t i = 0; i < size; ++i) {
            std::string changed = message;
            changed[i] = '!';
            hashes.insert(internal::hashBytes<internal::SipHash<1, 3>>(key, changed.data(), size));
        }
    }
    EXPECT_EQ(hashes.size(), 15U * 16 / 2) << "every byte counts";
}

TEST(Properties, ReadsEightBitLinesAndUtf16) {
    const struct {
        std::string bytes;
        std::u16string narrow, wide = narrow;
    } rows[] = {
        {"", u""},
        {"\n\r\n=x\n#a=1\n #a=b\na=1\na=2", u"\r:; #a:b;a:1:2;"},
        {"key = value\nother=  value  \ntab=\tx\na==b=\nc=   \n", u"a:=b=;c:;key :value;other:value  ;tab:\tx;"},
        {"a=1\r\nalone\r\na\rb=c\rd\nx=1\r2\r\n", u"a:1;a\rb:c\rd;alone\r:;x:1;"},
        {"\xFF=\xFE\na\0b=c\0d\n\xC3\xA4=\x80"s, u"a\0b:c\0d;\u00C3\u00A4:\u0080;\u00FF:\u00FE;"s},
        {"\xEF\xBB\xBF#a=1", u"\u00EF\u00BB\u00BF#a:1;"},
        {utf16File(u"a=1\r\nalone\r\nlast\r"), u"a:1;alone:;last\r:;"},
        {utf16File(u"\u0161=\u4F20 \u0120x\nb=1\u010Ac=2"), u"a:x;b:1;c:2;", u"b:1\u010Ac=2;\u0161:\u4F20 \u0120x;"},
        {utf16File(u"\u0A0A=\u0A61\n\U0001F600=\xD800"), u"", u"\u0A0A:\u0A61;\U0001F600:\xD800;"},
        {utf16File(u"a\0=b"s) + "\n", u"a\0:b;"s}};
    const kit::TemporaryFolder folder;
    for (const auto& row : rows) {
        EXPECT_EQ(loaded<std::string>(row.bytes), row.narrow) << row.bytes;
        EXPECT_EQ(loaded<wstring16>(row.bytes), row.wide) << row.bytes;
        const bool isUtf16 = row.bytes.starts_with("\xFF\xFE");
        KestProperties<wstring16> unmarked;
        unmarked.loadPropertiesWithoutMark(folder.write("file", (isUtf16 ? "" : "\xEF\xBB\xBF") + row.bytes));
        EXPECT_EQ(flat(unmarked), row.wide) << row.bytes;
    }
}

TEST(Properties, FindsLineEndsAcrossBlocks) {
    constexpr std::size_t kBlock = 65536;
    for (std::size_t length = kBlock - 6; length < kBlock + 4; ++length) {
        const std::u16string narrow(length, u'x'), wide(length / 2, u'\u0A78');
        EXPECT_TRUE(loaded<std::string>("a=" + text<std::string>(narrow) + "\r\nb=2") == u"a:" + narrow + u";b:2;");
        EXPECT_TRUE(loaded<wstring16>(utf16File(u"a=" + wide + u"\r\nb=2")) == u"a:" + wide + u";b:2;") << length;
    }
}

TEST(Properties, TakesLinesWithAnySeparator) {
    const std::tuple<std::string, char, std::u16string> rows[] = {
        {"a=b\nc", '=', u"a:b;"},      {"a\nb=c\nd", '=', u"a\nb:c\nd;"}, {"a=b\nc\rd", '=', u"a:b\nc;"},
        {"a\rb\rc", '\r', u"a:b\rc;"}, {"a\0b"s, '\0', u"a:b;"},          {"a  b", '\t', u"a  b:;"}};
    for (auto [line, separator, expected] : rows) {
        KestProperties<std::string> properties(false), fromArguments;
        properties.addProperty(line, separator);
        EXPECT_EQ(flat(properties), expected) << line;
        properties.loadProperties(std::vector<std::string>{line, "#"}, separator);
        char* argv[] = {line.data(), nullptr};
        fromArguments.loadProperties(1, argv, separator);
        EXPECT_EQ(flat(properties), expected) << line;
        EXPECT_EQ(flat(fromArguments), separator == '\0' ? u"a:;" : expected) << line;
    }
}

TEST(Properties, LooksUpValuesAndCopiesThem) {
    KestProperties<std::string> properties(false), assigned;
    for (const char* const name : {"", "b"})
        properties.setProperty(name, "4");
    properties.addProperty("", "ignored");
    for (const char* const line : {"c=x", "# x", ""})
        properties.addPropertyforWSmanDA(line);
    std::string value = "unchanged";
    EXPECT_FALSE(properties.getPropertyValue("c", value));
    EXPECT_EQ(properties.getProperty("c", value), "unchanged");
    EXPECT_TRUE(properties.getPropertyValue("b", value));
    EXPECT_EQ(value + properties.getProperty("b") + properties.getProperty("b", "5"), "444");
    EXPECT_EQ(kit::failureOf([&] { properties.getProperty("a"); }), "Property not found: a");
    assigned = properties;
    assigned = *&assigned;
    KestProperties<std::string> copy(assigned);
    copy.addProperty("b", "5");  // replaces the value, as in the original
    assigned.addProperty("b", "6");
    EXPECT_EQ(flat(properties) + flat(copy) + flat(assigned), u"b:4;c=x:;b:5;c=x:;b:6;c=x:;");
}

TEST(Properties, HoldWhatAPlainMapHolds) {
    const auto check = []<typename StringType>(KestProperties<StringType> properties, bool multiValued) {
        std::mt19937 random(7);
        std::map<StringType, std::vector<StringType>> model;
        const std::string initials[] = {"a", "A", "\xE4", "_", ""};
        // At times an allocation fails. The change then has no effect.
        const auto succeeds = [&random](unsigned mostAllocations, const auto& change) {
            static thread_local int t_accepted = 0;
            t_accepted = static_cast<int>(random() % mostAllocations);
            const kit::AllocationHook hook([](std::size_t) { return t_accepted-- != 0; });
            try {
                change();
                return true;
            } catch (const std::bad_alloc&) {
                return false;
            }
        };
        for (int step = 0; step < 30000; ++step) {
            const std::size_t key = random() % 600, change = random() % 10;
            const std::size_t length = key % 7 == 6 ? 5000 : key % 7 * 20;  // an entry of 5000 has a block of its own
            const std::string suffix = std::string(length, key % 2 == 0 ? 'n' : '\0') + std::to_string(key / 5);
            const auto name = text<StringType>(initials[key % 5] + suffix);
            const auto value = text<StringType>(std::string(key % 3 * 30, 'v') + std::to_string(step));
            std::vector<StringType>& values = model[name];
            if (change < 4) {
                if (succeeds(16, [&] { properties.addProperty(name, value); })) {
                    if (!multiValued) values.clear();
                    values.push_back(value);
                }
            } else if (change < 5) {
                if (succeeds(16, [&] { properties.setProperty(name, value); })) {
                    values.resize(std::max<std::size_t>(values.size(), 1));
                    values.front() = value;
                }
            } else if (change < 9 || step % 5000 > 4000) {  // at times nearly all entries are removed
                if (succeeds(2, [&] { properties.removeProperty(name); })) values.clear();
            }
            ASSERT_EQ(properties.getPropertyValues(name), values);
            if (values.empty()) model.erase(name);
            if (step % 1000 != 0) continue;
            ASSERT_EQ(properties.getProperties(), model);
            ASSERT_EQ(decltype(properties)(properties).getProperties(), model);
        }
    };
    check(KestProperties<std::string>(), true);
    check(KestProperties<string_ci>(false), false);
    check(KestProperties<wstring16_ci>(true), true);
}

TEST(Properties, VisitsEntriesThatTheVisitorChanges) {
    struct Visitor : KestPropertyIterator<std::string> {
        KestProperties<std::string> properties;
        std::string seen;
        void handleProperty(const std::pair<const std::string, std::vector<std::string>>& entry) override {
            seen += entry.first + entry.second.back() + ' ';
            if (entry.first != "b") return;
            for (const std::string name : {"a", "b", "c"}) {
                properties.removeProperty(name);
                properties.addProperty(name + "z", "new");
            }
            seen += entry.first + ' ';
        }
    } visitor;
    for (const char* line : {"d=4", "\xE4=6", "b=2", "a=1", "c=3", "a=9"})
        visitor.properties.addProperty(line, '=');
    visitor.properties.forEach(visitor);
    EXPECT_EQ(visitor.seen, "a9 b2 b d4 \xE4\x36 ");
}

TEST(Properties, SavesFirstValuesInOrder) {
    KestProperties<std::string> narrow;
    for (const auto& line : {"z = 1"s, "a=1"s, "a=2"s, "b\0c=d"s, "n=x\0y"s, "\xE4=\xFF"s, "alone"s})
        narrow.addProperty(line, '=');
    EXPECT_EQ(narrow.getNames(), (std::vector{"a"s, "alone"s, "b\0c"s, "n"s, "z "s, "\xE4"s}));
    const std::string expected = "a=1\nalone=\nb=d\nn=x\nz =1\n\xE4=\xFF\n", many(200000, 'x');
    EXPECT_EQ(saved(narrow), expected);
    narrow.setProperty("a", many);
    EXPECT_TRUE(saved(narrow) == "a=" + many + expected.substr(3));
    KestProperties<wstring16> wide;
    add(wide, u"b", u"\u00E4\0\u4E00"s);
    EXPECT_EQ(saved(wide), "b=\xE4\n") << "what is cut off does not count";
    add(wide, u"\u4E00", u"\U0001F600 \xDC00");
    EXPECT_EQ(saved(wide), utf16File(u"b=\u00E4\n\u4E00=\U0001F600 \xDC00\n"));
    add(wide, u"long", std::u16string(200000, 0x0A0D));
    EXPECT_TRUE(loaded<wstring16>(saved(wide)) == u"b:\u00E4" + flat(wide).substr(5));
    KestProperties<wstring16_ci> folding;
    for (const auto& line : {"abX1"s, "A_Bx2"s, "AbX3"s, "BX4"s, "aCx5"s})
        folding.addProperty(text<wstring16_ci>(line), 'x');
    EXPECT_EQ(saved(folding), "A_B=2\nab=1\naC=5\nB=4\n");
}

TEST(Properties, ConvertByTheGlobalLocale) {
    const std::locale utf8 = kit::namedLocale();
    if (utf8 == std::locale::classic()) GTEST_SKIP() << "the C++ runtime has no other locale";
    const std::locale before = std::locale::global(utf8);
    EXPECT_EQ(loaded<wstring16>("\xC3\xA4=\xE4\xB8\x80\xF0\x9F\x98\x80\nb=\xC3x\xF0\x9F"),
              u"b:\u00C3x\u00F0\u009F;\u00E4:\u4E00\U0001F600;");
    KestProperties<wstring16> properties;
    add(properties, u"\u00E4", u"\u4E00\U0001F600");
    EXPECT_EQ(saved(properties), "\xC3\xA4=\xE4\xB8\x80\xF0\x9F\x98\x80\n");
    add(properties, u"lone", u"\xD83D");
    EXPECT_EQ(loaded<wstring16>(saved(properties)), flat(properties));
    std::locale::global(before);
}

TEST(Properties, LogFilesAndFailures) {
    const kit::TemporaryFolder folder;
    const std::string good = folder.pathOf("file"), load = "KestProperties<StringType>::loadProperties: ",
                      save = "KestProperties<StringType>::saveProperties: ", open = "couldn't open file ",
                      write = "couldn't write file ";
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        {"none", good, "", ""},           {"none", folder.path(), open, open},
        {"none", "", open, open},         {"readStream", good, "couldn't read file ", ""},
        {"writeStream", good, "", write}, {"closeStream", good, "", write}};
    for (const int level : {4, 5, 8, 9, 10}) {
        for (const auto& [failingCall, path, loading, saving] : rows) {
            const std::string& file = path;
            folder.write("file", "b=22\na=1\na=3\n");
            const kit::LogCapture log(level);
            KestProperties<string_ci> properties;
            std::vector<std::string> expected;
            const kit::FailingCalls failing(failingCall);
            expected.push_back(load + "from file " + file);
            const std::string failure = kit::failureOf([&] { properties.loadProperties(file); });
            EXPECT_EQ(failure, loading.empty() ? "no failure" : expected.emplace_back(load + loading + file));
            if (failure == "no failure" && level == 9)
                expected.insert(expected.end(), {"DebugPrintProperty: a=1 (1)", "DebugPrintProperty: b=22 (2)"});
            expected.push_back(save + "to file " + file);
            EXPECT_EQ(kit::failureOf([&] { properties.saveProperties(file); }),
                      saving.empty() ? "no failure" : expected.emplace_back(save + saving + file));
            EXPECT_EQ(log.messages(), level < 5 ? std::vector<std::string>() : expected) << level << failingCall;
        }
    }
}

TEST(Properties, ReplaceFilesAtomically) {
    namespace fs = std::filesystem;
    const kit::TemporaryFolder folder;
    const std::string file = folder.write("file", "old"),
                      failed = "KestProperties<StringType>::saveAtomically: couldn't ";
    KestProperties<std::string> properties;
    properties.addProperty("a=1", '=');
    const auto save = [&](const std::string& path) { return kit::failureOf([&] { properties.saveAtomically(path); }); };
    for (const char* step : {"openReplacement", "writeStream", "closeStream", "flushReplacement", "replaceFile"}) {
        const kit::FailingCalls failing(step);
        EXPECT_EQ(save(file), failed + (step == "openReplacement"s ? "open" : "write") + " file " + file) << step;
    }
    fs::create_directory(folder.pathOf("inner"));
    for (const std::string& path : {folder.pathOf("inner"), folder.pathOf("none/file"), ""s})
        EXPECT_EQ(save(path), failed + "open file " + path);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 2) << "no file is left";
    EXPECT_EQ(folder.read("file"), "old");
    EXPECT_EQ(save(file) + save(folder.pathOf("new")), "no failureno failure");
    EXPECT_EQ(folder.readText("file") + folder.readText("new"), "a=1\na=1\n");
}

TEST(Properties, TakeChangesFromSeveralThreads) {
    const kit::TemporaryFolder folder;
    const std::string file = folder.write("file", "a=v\nb=v\n");
    KestProperties<std::string> properties;
    const auto change = [&](const std::string& own) {
        for (int i = 0; i < 2000; ++i) {
            if (i % 100 == 0) properties.loadProperties(file);
            properties.setProperty(own, std::to_string(i));
            ASSERT_EQ(properties.getProperty(own), std::to_string(i)) << "a change was lost";
            if (i % 2 == 0) properties.removeProperty(own);
        }
    };
    std::thread other(change, "own1");
    change("own2");
    other.join();
    const auto all = properties.getProperties();
    EXPECT_EQ(std::tuple(all.size(), all.at("a").size(), all.at("own1").size()), std::tuple(4U, 40U, 1U));
}
