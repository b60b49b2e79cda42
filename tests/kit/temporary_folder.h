// A new folder, which is removed with its content at the end, and whole files as bytes.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace kit {

class TemporaryFolder {
  public:
    TemporaryFolder() { std::filesystem::create_directories(m_path); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        // A service that ends may remove its own files at the same time; remove_all reports them as missing and stops.
        std::error_code error;
        for (int tries = 0; tries < 3; ++tries) {
            std::filesystem::remove_all(m_path, error);
            if (!error) return;
        }
    }

    std::string path() const { return m_path.string(); }
    std::string pathOf(const std::string& name) const { return (m_path / name).string(); }

    /// Writes a file and returns its path.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(pathOf(name), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return pathOf(name);
    }
    std::string read(const std::string& name) const { return contents(name, std::ios::binary); }
    /// The file as text: the system's line ends are read as line feeds.
    std::string readText(const std::string& name) const { return contents(name, std::ios::in); }

  private:
    std::string contents(const std::string& name, std::ios::openmode mode) const {
        std::ifstream file(pathOf(name), mode);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::filesystem::path m_path =
        std::filesystem::temp_directory_path() / ("kest_" + std::to_string(std::random_device{}()));
};

}  // namespace kit
