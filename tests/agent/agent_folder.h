// A folder in which the tests start kest-agent.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "kit/child_process.h"
#include "kit/temporary_folder.h"

namespace {

using kit::ChildProcess;
using Texts = std::vector<std::string>;

struct Folder : kit::TemporaryFolder {
    Texts names() const {
        Texts found;
        for (const auto& entry : std::filesystem::directory_iterator(path())) {
            found.push_back(entry.path().filename().string());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    ChildProcess start(const Texts& arguments, const std::string& command = "") const {
        return ChildProcess(KEST_AGENT, arguments, {path(), command});
    }
};

std::size_t count(const std::string& text, const std::string& pattern) {
    const std::regex wanted(pattern);
    return static_cast<std::size_t>(
        std::distance(std::sregex_iterator(text.begin(), text.end(), wanted), std::sregex_iterator()));
}

}  // namespace
