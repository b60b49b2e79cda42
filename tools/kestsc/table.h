// Tables with aligned columns, and how they look on a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kestsc {

using Row = std::vector<std::string>;

struct TableStyle {
    std::size_t width = 0;  ///< columns of a line: longer cells are cut, then columns at the end left out; 0: no limit
    bool colours = false;   ///< cells that are the word of a state get its colour
};

/// Returns the style for standard output: without limit and colour unless it is a terminal, and without colour if
/// $NO_COLOR is set and not empty.
TableStyle outputStyle();

/// Returns the rows as lines. Each column is as wide as its widest cell; two blanks separate columns. Cells are made
/// printable. No line ends in blanks.
std::string formatTable(const std::vector<Row>& rows, const TableStyle& style = {});

}  // namespace kestsc
