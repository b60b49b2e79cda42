#include "file_checks.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "bad_input.h"
#include "messages.h"
#include "system.h"

namespace agent {
namespace {

constexpr std::size_t kLargestText = 1 << 20;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OwnedFile = std::unique_ptr<std::FILE, FileCloser>;

std::string reasonOf(int error) {
    return std::generic_category().message(error);
}

}  // namespace

void requireReadableText(const std::string& what, const std::string& file) {
    std::error_code error;
    const auto status = std::filesystem::status(pathOf(file), error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        throw BadInput(what, say("error.notRegular"));
    }
    const OwnedFile opened(std::fopen(file.c_str(), "rb"));
    if (opened == nullptr) throw BadInput(what, reasonOf(errno));

    std::string text(kLargestText + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), opened.get()));
    if (std::ferror(opened.get()) != 0) throw BadInput(what, reasonOf(errno));
    if (text.size() > kLargestText) throw BadInput(what, say("error.tooLarge", {std::to_string(kLargestText)}));
    if (text.rfind("\xFF\xFE", 0) == 0) return;  // UTF-16, where every other byte may be 0
    const auto nul = std::find(text.begin(), text.end(), '\0');
    if (nul == text.end()) return;
    const auto line = std::count(text.begin(), nul, '\n') + 1;
    throw BadInput(what, say("error.notText", {std::to_string(line)}));
}

// With "x" fopen creates the file, so it does not follow a link that another program puts there.
void makeEmptyFile(const std::string& what, const std::string& file) {
    std::remove(file.c_str());
    const OwnedFile made(std::fopen(file.c_str(), "wx"));
    if (made == nullptr) throw BadInput(what, reasonOf(errno));
}

void requireCreatable(const std::string& what, const std::string& probe) {
    makeEmptyFile(what, probe);
    std::remove(probe.c_str());
}

void requireAppendable(const std::string& what, const std::string& file) {
    std::error_code error;
    const auto status = std::filesystem::symlink_status(pathOf(file), error);
    if (!std::filesystem::exists(status)) return requireCreatable(what, file + ".kest-agent-probe");
    if (!std::filesystem::is_regular_file(status)) throw BadInput(what, say("error.notRegular"));
    if (OwnedFile(std::fopen(file.c_str(), "ab")) == nullptr) throw BadInput(what, reasonOf(errno));
}

}  // namespace agent
