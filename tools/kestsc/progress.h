// The progress line of a terminal: says what kestsc waits for. Each text replaces the last one, and the end clears it.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace kestsc {

class Progress {
  public:
    /// Writes nothing unless `shown`.
    Progress(std::FILE* stream, bool shown) : m_stream(stream), m_shown(shown) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { show(""); }

    /// Replaces the shown text. The new text is printable; it is cut to the line of a narrow terminal.
    void show(const std::string& text);

  private:
    std::FILE* const m_stream;
    const bool m_shown;
    std::string m_text;
};

}  // namespace kestsc
