// A folder for the files of a measurement.
#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace KestBench {

/// A new folder among the system's temporary files. The destructor removes it with its contents.
class TemporaryFolder {
  public:
    TemporaryFolder() { std::filesystem::create_directories(m_path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() { std::filesystem::remove_all(m_path); }

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + '/' + name; }

  private:
    const std::string m_path =
        (std::filesystem::temp_directory_path() / ("kest_bench_" + std::to_string(std::random_device{}()))).string();
};

}  // namespace KestBench
