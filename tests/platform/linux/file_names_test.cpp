// Search patterns for names that other systems do not have.
#include <set>

#include "kit/environment_guard.h"
#include "kit/temporary_folder.h"
#include "platform/files.h"

namespace {

// Returns the names that match, each followed by a blank.
std::string found(const std::string& pattern) {
    std::set<std::string> names;
    KestSupport::platform::FileSearch search;
    EXPECT_EQ(search.start(pattern), 0);
    for (std::string name; search.next(name);)
        names.insert(name + ' ');
    std::string all;
    for (const std::string& name : names)
        all += name;
    return all;
}

TEST(FileSearch, KnowsCaseAndAnyCharacter) {
    const kit::TemporaryFolder folder;
    for (const char* name : {"a", "A", "\xC3\xA4", "*", "b\\"})
        folder.write(name, "");
    for (const auto& [pattern, names] :
         {std::pair("a", "a "), {"??", ".. b\\ "}, {"?", "* . A a \xC3\xA4 "}, {"\xC3*", "\xC3\xA4 "}})
        EXPECT_EQ(found(folder.pathOf(pattern)), names) << pattern;
}

}  // namespace
