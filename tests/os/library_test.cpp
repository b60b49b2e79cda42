// Tests the loads, copies, unloads and failures of KestLibrary.
#include "support/library.h"

#include <cerrno>
#include <filesystem>

#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/system.h"
#include "kit/temporary_folder.h"

namespace {

using namespace KestSupport;

TEST(Library, UnloadsWithTheLastLoad) {
    const kit::TemporaryFolder folder;
    const std::string path = folder.pathOf("libfixture.so");
    std::error_code noLinks;
    std::filesystem::create_symlink(KEST_LIBRARY_FIXTURE, path, noLinks);  // temporary folders may forbid to run files
    if (noLinks) std::filesystem::copy_file(KEST_LIBRARY_FIXTURE, path);
    int unloads = 0;
    auto first = std::make_unique<KestLibrary>(path, true);
    EXPECT_EQ(first->getProcAddr("countUnload"), nullptr);
    reinterpret_cast<void (*)(int*)>(first->getProcAddr("countUnloads"))(&unloads);
    auto second = std::make_unique<KestLibrary>(path, true);
    auto copy = std::make_unique<KestLibrary>(*second);
    KestSmartPointer<KestLibrary> assigned(new KestLibrary(kit::kSystemLibrary, false));
    std::filesystem::rename(path, folder.pathOf("elsewhere"));  // a copy must not use the path
    *assigned = *copy;
    *assigned = *assigned;
    {
        const kit::FailingCalls calls("loadLibrary");
        EXPECT_EQ(kit::failureOf([&] { *copy = *assigned; }),
                  "KestLibrary::KestLibrary: failed to load: " + path + ".  " + kit::systemText(8, ENOMEM));
    }
    *second = KestLibrary(kit::kSystemLibrary, false);
    first.reset();
    copy.reset();
    EXPECT_EQ(unloads, 0);
    assigned = KestSmartPointer<KestLibrary>();
    EXPECT_EQ(unloads, 1);
}

TEST(Library, ReportsFailedLoads) {
    const kit::TemporaryFolder folder;
    const std::string absent = folder.pathOf("absent.so");
    const std::string broken = folder.write("broken.so", "text");
    for (const std::string& path : {absent, broken, std::string()})
        EXPECT_EQ(kit::failureOf([&] { KestLibrary(path, true); }),
                  "KestLibrary::KestLibrary: failed to load: " + path + ".  " + kit::loadFailure(path));
}

}  // namespace
