// Tests kest-words: the counts of several files, and a file that cannot be read.
#include "kit/child_process.h"
#include "kit/temporary_folder.h"

namespace {

TEST(Pipeline, CountsEachLineOnce) {
    const kit::TemporaryFolder folder;
    std::string lines;
    for (int i = 0; i < 5000; ++i)
        lines += "once twice twice\n";
    std::vector<std::string> files;
    for (const char* name : {"a", "b", "c", "d"}) {
        folder.write(name, lines + name);
        files.push_back(folder.pathOf(name));
    }
    kit::ChildProcess words(KEST_WORDS, files);
    EXPECT_EQ(words.wait(), 0);
    EXPECT_EQ(words.output(), "1 a\n1 b\n1 c\n1 d\n20000 once\n40000 twice\n");
    files.push_back(folder.pathOf("none"));
    kit::ChildProcess broken(KEST_WORDS, files);
    EXPECT_EQ(broken.wait(), 2);
    EXPECT_EQ(broken.output(), "");
    EXPECT_EQ(broken.errors(), "kest-words: cannot read " + files.back() + "\n");
}

}  // namespace
