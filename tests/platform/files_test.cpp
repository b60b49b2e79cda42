#include "platform/files.h"

#include <algorithm>

#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"

namespace {

using Names = std::vector<std::string>;

Names found(const std::string& pattern) {
    Names names;
    KestSupport::platform::FileSearch search;
    if (!search.start(pattern)) return {"not started"};
    for (std::string name; search.next(name);)
        names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Files, ASearchFindsTheNamesThatThePatternStandsFor) {
    const kit::TemporaryFolder folder;
    const std::string longName(200, 'a');
    for (const std::string name :
         {"a", "ab", "aab", "A", "b.txt", "c.d.txt", "[x]", "\xC3\xA4", "\xC3", "*", "b\\", longName.c_str()})
        folder.write(name, "");
    std::string stars;
    for (int i = 0; i < 40; ++i)
        stars += "a*";
    const std::pair<std::string, Names> rows[] = {
        {"a", {"a"}},
        {"a*b", {"aab", "ab"}},
        {"*b", {"aab", "ab"}},
        {"?b", {"ab"}},
        {"*.txt", {"b.txt", "c.d.txt"}},
        {"*.*.*t", {"c.d.txt"}},
        {"[x]", {"[x]"}},
        {"??", {"..", "ab", "b\\"}},
        {"?", {"*", ".", "A", "a", "\xC3", "\xC3\xA4"}},
        {".*", {".", ".."}},
        {"?**?.t", {}},
        {"", {}},
        {stars, {longName}},
        {stars + "b", {}},  // tried in every way, this would take for good
    };
    for (const auto& [pattern, names] : rows)
        EXPECT_EQ(found(folder.pathOf(pattern)), names) << pattern;
    EXPECT_EQ(found(folder.path() + "\\*.txt").size(), 2u);
    EXPECT_EQ(found(folder.pathOf("none/*")), Names{"not started"});
    const kit::FailingCalls calls("getdents64");
    EXPECT_EQ(found(folder.pathOf("*")), Names{});
}

}  // namespace
