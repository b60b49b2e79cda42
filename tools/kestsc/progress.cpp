#include "progress.h"

#include <algorithm>

#include "text.h"

namespace kestsc {

// Blanks overwrite the rest of the last text, because not every terminal can clear a line.
void Progress::show(const std::string& text) {
    constexpr std::size_t kMostCharacters = 72;
    std::string next = shortened(text, kMostCharacters);
    if (!m_shown || next == m_text) return;
    const std::size_t before = displayWidth(m_text);
    const std::size_t now = displayWidth(next);
    const std::string rest(before - std::min(before, now), ' ');
    std::fprintf(m_stream, "\r%s%s%s", next.c_str(), rest.c_str(), next.empty() ? "\r" : "");
    std::fflush(m_stream);
    m_text = std::move(next);
}

}  // namespace kestsc
