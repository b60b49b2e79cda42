// What a replaced file keeps on Linux: its permissions, and the links that lead to it.

#include <filesystem>

#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"
#include "platform/file_replacement.h"

namespace {

namespace fs = std::filesystem;
using namespace KestSupport;

// Returns whether the text was written.
bool replace(const std::string& path, const std::string& text) {
    platform::FileReplacement replacement;
    platform::Stream stream = replacement.open(path.c_str(), platform::StreamMode::writeBinary);
    return stream != nullptr && platform::writeStream(stream.get(), text.data(), text.size()) &&
           platform::closeStream(std::move(stream)) && replacement.commit();
}

fs::perms permissions(const std::string& path) {
    return fs::status(path).permissions();
}

TEST(FileReplacement, KeepsPermissionsAndLinks) {
    const kit::TemporaryFolder folder;
    const std::string file = folder.write("file", "old"), link = folder.pathOf("link");
    const fs::perms usual = permissions(file);
    const auto own = fs::perms(0601);
    fs::permissions(file, own);
    fs::create_directory(folder.pathOf("inner"));
    fs::create_symlink("../file", folder.pathOf("inner/second"));
    fs::create_symlink("inner/second", link);
    EXPECT_TRUE(replace(link, "1"));
    EXPECT_EQ(folder.read("file"), "1");
    EXPECT_TRUE(fs::is_symlink(link) && fs::is_symlink(folder.pathOf("inner/second")));
    EXPECT_EQ(permissions(file), own);
    fs::remove(file);
    EXPECT_TRUE(replace(link, "2")) << "the file at the end of links need not exist";
    EXPECT_EQ(folder.read("file"), "2");
    EXPECT_EQ(permissions(file), usual);
    fs::create_symlink("loop", folder.pathOf("loop"));
    EXPECT_FALSE(replace(folder.pathOf("loop"), ""));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(replace("/dev/null", ""));
    EXPECT_EQ(errno, EINVAL);
    {
        const kit::FailingCalls failing("copyAccess");
        EXPECT_FALSE(replace(file, "3"));
    }
    EXPECT_EQ(folder.read("file"), "2");
    const kit::FailingCalls failing("flushReplacement", 2);
    EXPECT_FALSE(replace(file, "4"));
    EXPECT_EQ(folder.read("file"), "4") << "only the flush of the folder has failed";
}

}  // namespace
