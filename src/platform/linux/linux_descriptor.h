// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace KestSupport::platform {

class Descriptor {
  public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const noexcept { return m_number; }
    bool isOpen() const noexcept { return m_number >= 0; }
    void close() noexcept {
        if (isOpen()) ::close(m_number);
        m_number = -1;
    }
    /// Passes the descriptor to the caller.
    int release() noexcept { return std::exchange(m_number, -1); }

  private:
    int m_number = -1;
};

}  // namespace KestSupport::platform
