// The names that a search pattern matches, and files that replace others.
#include "platform/file_replacement.h"
#include "platform/found_names.h"
#include "platform/record_file.h"

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

TEST(FileReplacement, TakesPlaceOfOpenOrRemovedFile) {
    using namespace KestSupport::platform;
    const kit::TemporaryFolder folder;
    const std::string path = folder.write("file", "old");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    for (const std::string content : {"new", "newest"}) {
        FileReplacement replacement;
        Stream stream = replacement.open("file", StreamMode::writeBinary);
        ASSERT_TRUE(stream != nullptr && writeStream(stream.get(), content.data(), content.size()));
        EXPECT_TRUE(closeStream(std::move(stream)));
        const Stream reader = openStream(path.c_str(), StreamMode::readBinary);
        EXPECT_TRUE(content == "new" || renameRecordFile(path.c_str(), folder.pathOf("moved").c_str()) == 0);
        EXPECT_TRUE(replacement.commit()) << errno;
        EXPECT_EQ(folder.read("file"), content);
        char first = 0;
        bool failed = false;
        EXPECT_EQ(readStream(reader.get(), &first, 1, failed), 1u);
        EXPECT_EQ(first, content == "new" ? 'o' : 'n');
    }
    std::filesystem::current_path(before);
}

}  // namespace
