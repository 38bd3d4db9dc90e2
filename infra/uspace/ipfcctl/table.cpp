// SPDX-License-Identifier: GPL-2.0-only
#include "ipfcctl/table.h"

#include <algorithm>

namespace ipfcctl {

std::vector<size_t> Table::widths() const
{
    std::vector<size_t> widths;
    for (size_t column = 0; column < columns_.size(); ++column) {
        size_t width = columns_[column].heading.size();
        for (const std::vector<Cell>& row : rows_) {
            width = std::max(width, row.at(column).text.size());
        }
        widths.push_back(width);
    }
    return widths;
}

std::string Table::line(const std::vector<Cell>& cells, const std::vector<size_t>& widths,
                        bool color) const
{
    std::string line = indent_;
    // Blanks wait until something follows them.
    std::string gap;
    for (size_t column = 0; column < cells.size(); ++column) {
        const Cell& cell = cells[column];
        const std::string padding(widths[column] - cell.text.size(), ' ');
        const bool right = columns_[column].align == Align::right;
        gap += right ? padding : "";
        if (!cell.text.empty()) {
            line += gap + painted(cell.style, cell.text, color);
            gap.clear();
        }
        gap += (right ? "" : padding) + "  ";
    }
    return line;
}

std::string Table::text(bool color) const
{
    const std::vector<size_t> all_widths = widths();
    std::vector<Cell> headings;
    for (const Column& column : columns_) {
        headings.push_back({column.heading, Style::heading});
    }
    std::string text = line(headings, all_widths, color);
    for (const std::vector<Cell>& row : rows_) {
        text += '\n' + line(row, all_widths, color);
    }
    return text;
}

} // namespace ipfcctl
