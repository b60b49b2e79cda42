// Aligned columns for people.
#pragma once

#include <string>
#include <vector>

namespace kestsc {

using Row = std::vector<std::string>;

/// The rows as lines, each column as wide as its widest cell, with two blanks between. Cells may hold anything; they
/// are made printable here. No line ends in blanks.
std::string formatTable(const std::vector<Row>& rows);

}  // namespace kestsc
