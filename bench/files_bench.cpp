// Folders: removing a tree, and finding names by a pattern.
#include <fnmatch.h>
#include <support/utilities.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "bench_kit.h"
#include "temporary_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFolders = 100;
constexpr int kFilesInEach = 1000;

// The files are hard links to one file, because a link is created faster than a file.
void makeFiles(const std::string& folder, int count) {
    fs::create_directories(folder);
    const std::string first = folder + "/file_0.txt";
    mknod(first.c_str(), S_IFREG | 0600, 0);
    for (int i = 1; i < count; ++i) {
        const std::string name = folder + "/file_" + std::to_string(i) + (i % 2 == 0 ? ".txt" : ".dat");
        if (link(first.c_str(), name.c_str()) != 0) mknod(name.c_str(), S_IFREG | 0600, 0);
    }
}

template <typename Remove>
void removeTree(benchmark::State& state, Remove remove) {
    const KestBench::TemporaryFolder folder;
    const std::string tree = folder.file("tree");
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < kFolders; ++i)
            makeFiles(tree + "/folder_" + std::to_string(i), kFilesInEach);
        state.ResumeTiming();
        remove(tree);
    }
}

// One folder with many files, which exists until the program ends.
const std::string& manyFiles() {
    static const struct Folder : KestBench::TemporaryFolder {
        Folder() { makeFiles(path(), kFolders * kFilesInEach); }
    } folder;
    return folder.path();
}

void find(benchmark::State& state) {
    const std::string pattern = manyFiles() + "/file_*5.dat";
    std::size_t found = 0;
    for (auto _ : state) {
        for (KestSupport::KestFindFile search(pattern); search.hasMore(); ++found)
            benchmark::DoNotOptimize(search.next());
    }
    if (found == 0) state.SkipWithError("nothing found");
}

void findByIterator(benchmark::State& state) {
    const std::string& folder = manyFiles();
    std::size_t found = 0;
    for (auto _ : state) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename().string();
            if (fnmatch("file_*5.dat", name.c_str(), 0) != 0) continue;
            ++found;
            benchmark::DoNotOptimize(entry.path().string());
        }
    }
    if (found == 0) state.SkipWithError("nothing found");
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("files/remove a tree of 100000 files")
        .iterations(1)
        .ours([](benchmark::State& state) {
            removeTree(state, [](const std::string& tree) { KestSupport::KestRemoveDirectory(tree, true); });
        })
        .peer("std::filesystem::remove_all", 1.2, [](benchmark::State& state) {
            removeTree(state, [](const std::string& tree) { fs::remove_all(tree); });
        });
    Comparison("files/find in a folder of 100000").ours(find).peer("std::filesystem and fnmatch", 1.1, findByIterator);
}
