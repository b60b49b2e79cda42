// Search patterns for names, and an error, that other systems do not have.
#include "platform/error.h"
#include "platform/found_names.h"

namespace {

TEST(FileSearch, KnowsCaseAndAnyCharacter) {
    const kit::TemporaryFolder folder;
    for (const char* name : {"a", "A", "\xC3\xA4", "*", "b\\"})
        folder.write(name, "");
    for (const auto& [pattern, names] :
         {std::pair("a", "a "), {"??", ".. b\\ "}, {"?", "* . A a \xC3\xA4 "}, {"\xC3*", "\xC3\xA4 "}})
        EXPECT_EQ(found(folder.pathOf(pattern)), names) << pattern;
    EXPECT_EQ(KestSupport::platform::errorFromErrno(ETXTBSY), KestSupport::platform::errorSharingViolation);
}

}  // namespace
