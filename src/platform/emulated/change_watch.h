// Asks whether a file may have changed, at a lower price than to look at it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace KestSupport::platform {

/// Watches a file and its folder. A change that it cannot see, such as that of a folder above or of a file of another
/// machine, is noticed after one second, since a watch is valid that long.
class ChangeWatch {
  public:
    ChangeWatch() = default;
    ChangeWatch(ChangeWatch&& other) noexcept { *this = std::move(other); }
    ChangeWatch& operator=(ChangeWatch&& other) noexcept {
        std::swap(m_path, other.m_path);
        std::swap(m_descriptor, other.m_descriptor);
        std::swap(m_inode, other.m_inode);
        std::swap(m_forks, other.m_forks);
        std::swap(m_started, other.m_started);
        std::swap(m_asked, other.m_asked);
        return *this;
    }
    ~ChangeWatch() { stop(); }

    /// Back end: returns true if the file and the path to it have not changed since start, as far as the watch sees.
    bool sawNoChange(const std::string& path) noexcept;
    /// Back end: starts the watch again. Called before a look at the file. Has no effect for a file that is rarely
    /// asked for, so that few processes need the system's resources, and if the system refuses.
    void start(const std::string& path);

  private:
    void stop() noexcept;

    std::string m_path;
    int m_descriptor = -1;
    std::uint64_t m_inode = 0;   // of the descriptor
    std::uint32_t m_forks = 0;   // the process that started the watch
    std::int64_t m_started = 0;  // in milliseconds
    int m_asked = 0;             // times without a watch
};

}  // namespace KestSupport::platform
