// The line that tells a person what is being waited for. It is written over and over in the same place, and gone at the
// end.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace kestsc {

class Progress {
  public:
    /// Writes nothing at all unless `shown`.
    Progress(std::FILE* stream, bool shown) : m_stream(stream), m_shown(shown) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { show(""); }

    /// Puts the printable text, cut to what a narrow terminal shows in one line, in the place of the last one.
    void show(const std::string& text);

  private:
    std::FILE* const m_stream;
    const bool m_shown;
    std::string m_text;
};

}  // namespace kestsc
