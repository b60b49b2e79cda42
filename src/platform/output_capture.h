// Collects what programs write to a standard handle, in memory or in a temporary file. Unlike a pipe it is never full,
// and the programs that hold it open delay no reader.
//
// Threads: one thread at a time may use an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/error.h"
#include "platform/process.h"

namespace KestSupport::platform {

class OutputCapture {
  public:
    OutputCapture() noexcept = default;
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture();

    /// Returns 0 or an error number. May be called once. Throws only std::bad_alloc.
    ErrorCode open();
    /// For ProcessRequest::standardHandles. The object still owns it.
    std::intptr_t handle() const noexcept { return m_handle; }
    /// The number of bytes that were written until now.
    std::uint64_t size() const noexcept;
    /// Returns these bytes, at most the first `most`. Throws only std::bad_alloc.
    std::string text(std::size_t most) const;

  private:
    /// Back end: reads bytes from the position on, and returns their number; 0 if there are none, or the system
    /// refuses.
    std::size_t read(std::uint64_t position, char* block, std::size_t size) const noexcept;

    std::intptr_t m_handle = kInheritHandle;
};

}  // namespace KestSupport::platform
