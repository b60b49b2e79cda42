// The names that a search pattern matches.
#include "platform/found_names.h"

namespace {

TEST(FileSearch, MatchesWholeNames) {
    const kit::TemporaryFolder folder;
    const std::string longName(200, 'a');
    for (const char* name : {"a", "ab", "aab", "b.txt", "c.d.txt", "[x]", longName.c_str()})
        folder.write(name, "");
    std::string stars;
    for (int i = 0; i < 40; ++i)
        stars += "a*";  // a search that tried all combinations would never end
    // Each pattern is followed by the names that match.
    const std::string rows[] = {"a",         "a ",       "a*b",    "aab ab ", "?b", "ab ",    "*.txt", "b.txt c.d.txt ",
                                "*.*.*t",    "c.d.txt ", "[x]",    "[x] ",    "??", ".. ab ", "?",     ". a ",
                                ".*",        ". .. ",    "?**?.t", "",        "",   "",       stars,   longName + ' ',
                                stars + "b", ""};
    for (std::size_t i = 0; i < std::size(rows); i += 2)
        EXPECT_EQ(found(folder.pathOf(rows[i])), rows[i + 1]) << rows[i];
}

}  // namespace
