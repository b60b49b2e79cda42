// Tables with aligned columns.
#pragma once

#include <string>
#include <vector>

namespace kestsc {

using Row = std::vector<std::string>;

/// Returns the rows as lines. Each column is as wide as its widest cell; two blanks separate columns. Cells are made
/// printable. No line ends in blanks.
std::string formatTable(const std::vector<Row>& rows);

}  // namespace kestsc
