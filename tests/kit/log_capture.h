// The process's logger while the object lives. It writes to a new folder, and writes the name of the file to standard
// error. Threads: the texts contain the records that were complete when they were read.
#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "kit/temporary_folder.h"
#include "support/logging.h"

namespace kit {

/// A folder for log files.
struct LogFolder : TemporaryFolder {
    /// The contents of all files.
    std::string text() const {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(path()))
            all += readText(entry.path().filename().string());
        return all;
    }
};

class LogCapture : public LogFolder, public KestSupport::KestLogging {
  public:
    explicit LogCapture(int level = 9) : KestLogging(pathOf("log"), fileTarget, level) { setInstance(*this); }

    /// The lines without line ends, with or without their prefixes.
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
