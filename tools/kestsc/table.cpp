#include "table.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "platform/console.h"
#include "text.h"

namespace kestsc {
namespace {

constexpr std::size_t kGap = 2;  // blanks between columns
constexpr std::size_t kNarrowest = 8;

// Takes from the widest columns until a line fits. Returns false if it does not fit although each column is narrow.
bool fit(std::vector<std::size_t>& widths, std::size_t limit) {
    std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
    while (total > limit) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= kNarrowest) return false;
        --*widest;
        --total;
    }
    return true;
}

// Leaves out columns at the end until the others fit. The first column stays.
std::vector<std::size_t> fittingColumns(std::vector<std::size_t> widths, std::size_t limit) {
    for (;; widths.pop_back()) {
        std::vector<std::size_t> fitted = widths;
        if (fit(fitted, limit) || widths.size() == 1) return fitted;
    }
}

std::string cut(const std::string& cell, std::size_t width) {
    constexpr std::size_t kDots = 3;  // that shortened appends
    return displayWidth(cell) <= width ? cell : shortened(cell, width - kDots);
}

// Returns the sequence that begins the colour of a state; an empty text for another word.
std::string_view colourOf(std::string_view word) {
    constexpr std::pair<std::string_view, std::string_view> kColours[] = {
        {"running", "\x1b[32m"}, {"stopped", "\x1b[31m"},       {"unknown", "\x1b[31m"},
        {"paused", "\x1b[33m"},  {"start pending", "\x1b[33m"}, {"stop pending", "\x1b[33m"}};
    for (const auto& [state, colour] : kColours) {
        if (state == word) return colour;
    }
    return "";
}

std::string coloured(const std::string& cell) {
    const std::string_view colour = colourOf(cell);
    return colour.empty() ? cell : std::string(colour) + cell + "\x1b[0m";
}

}  // namespace

TableStyle outputStyle() {
    namespace platform = KestSupport::platform;
    constexpr auto kOutput = platform::StandardStream::output;
    const char* const without = std::getenv("NO_COLOR");
    const bool isRefused = without != nullptr && *without != '\0';
    return {platform::terminalWidth(kOutput), !isRefused && platform::showsColours(kOutput)};
}

std::string formatTable(const std::vector<Row>& rows, const TableStyle& style) {
    std::vector<Row> shown = rows;
    std::vector<std::size_t> widths;
    for (Row& row : shown) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = printable(row[i]);
            widths[i] = std::max(widths[i], displayWidth(row[i]));
        }
    }
    if (style.width != 0 && !widths.empty()) widths = fittingColumns(std::move(widths), style.width);
    std::string lines;
    for (const Row& row : shown) {
        std::string line;
        std::size_t blanks = 0;  // after the last cell; no line ends with them
        for (std::size_t i = 0; i < std::min(row.size(), widths.size()); ++i) {
            const std::string cell = cut(row[i], widths[i]);
            if (!cell.empty()) {
                line += std::string(blanks, ' ') + (style.colours ? coloured(cell) : cell);
                blanks = 0;
            }
            blanks += widths[i] - displayWidth(cell) + kGap;
        }
        lines += line + '\n';
    }
    return lines;
}

}  // namespace kestsc
