// What is logged, for tests to look at: a logger in a folder of its own that is the process's logger while it lives. It
// says on standard error where it logs to. Threads: what is read holds the records that were ended by then.
#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "kit/temporary_folder.h"
#include "support/logging.h"

namespace kit {

/// A folder for log files, removed at the end.
struct LogFolder : TemporaryFolder {
    /// The contents of all files, one after the other.
    std::string text() const {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(path()))
            all += read(entry.path().filename().string());
        return all;
    }
};

class LogCapture : public LogFolder, public KestSupport::KestLogging {
  public:
    explicit LogCapture(int level = 9) : KestLogging(pathOf("log"), fileTarget, level) { setInstance(*this); }

    /// The lines without their ends; without the prefixes, if wanted.
    std::vector<std::string> lines(bool withPrefix = true) const {
        std::vector<std::string> found;
        std::istringstream all(text());
        for (std::string line; std::getline(all, line);) {
            const std::size_t prefix = line.find("] ");
            found.push_back(withPrefix || prefix == std::string::npos ? line : line.substr(prefix + 2));
        }
        return found;
    }
    std::vector<std::string> messages() const { return lines(false); }
};

}  // namespace kit
