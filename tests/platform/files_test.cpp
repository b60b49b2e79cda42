#include "platform/files.h"

#include <set>

#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"

namespace {

// The names that a pattern finds, each followed by a blank.
std::string found(const std::string& pattern) {
    std::set<std::string> names;
    KestSupport::platform::FileSearch search;
    if (const int error = search.start(pattern); error != 0) return "not started: " + std::to_string(error);
    for (std::string name; search.next(name);)
        names.insert(name + ' ');
    std::string all = search.error() == 0 ? "" : "failed: " + std::to_string(search.error());
    for (const std::string& name : names)
        all += name;
    return all;
}

TEST(Files, ASearchFindsTheNamesThatThePatternStandsFor) {
    const kit::TemporaryFolder folder;
    const std::string longName(200, 'a');
    for (const char* name :
         {"a", "ab", "aab", "A", "b.txt", "c.d.txt", "[x]", "\xC3\xA4", "*", "b\\", longName.c_str()})
        folder.write(name, "");
    std::string stars;
    for (int i = 0; i < 40; ++i)
        stars += "a*";  // tried in every way, they would take for good
    // A pattern and what it finds, in turn.
    const std::string rows[] = {
        "a",         "a ",       "a*b",    "aab ab ", "?b", "ab ",        "*.txt", "b.txt c.d.txt ",
        "*.*.*t",    "c.d.txt ", "[x]",    "[x] ",    "??", ".. ab b\\ ", "?",     "* . A a \xC3\xA4 ",
        ".*",        ". .. ",    "?**?.t", "",        "",   "",           stars,   longName + ' ',
        stars + "b", ""};
    for (std::size_t i = 0; i < std::size(rows); i += 2)
        EXPECT_EQ(found(folder.pathOf(rows[i])), rows[i + 1]) << rows[i];
    EXPECT_EQ(found(folder.path() + "\\*.txt"), "b.txt c.d.txt ");
    EXPECT_EQ(found(folder.pathOf("none/*")), "not started: " + std::to_string(ENOENT));
    const kit::FailingCalls calls("readDirectory");
    EXPECT_EQ(found(folder.pathOf("*")), "failed: " + std::to_string(ENOMEM));
}

}  // namespace
