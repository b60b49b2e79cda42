#include "table.h"

#include <algorithm>

#include "text.h"

namespace kestsc {

std::string formatTable(const std::vector<Row>& rows) {
    std::vector<Row> shown = rows;
    std::vector<std::size_t> widths;
    for (Row& row : shown) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            row[i] = printable(row[i]);
            widths[i] = std::max(widths[i], displayWidth(row[i]));
        }
    }
    std::string lines;
    for (const Row& row : shown) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        lines += line + '\n';
    }
    return lines;
}

}  // namespace kestsc
