// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "ipfcctl/style.h"

#include <string>
#include <vector>

namespace ipfcctl {

enum class Align { left, right };

/// Rows below headings, each column as wide as its widest cell.
class Table {
public:
    struct Column {
        std::string heading;
        Align align = Align::left;
    };
    struct Cell {
        std::string text;
        Style style = Style::plain;
    };

    explicit Table(std::vector<Column> columns, std::string indent = {})
        : columns_(std::move(columns)), indent_(std::move(indent))
    {
    }

    /// A cell for each column.
    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
    /// Without the last line's end; no blanks at the ends of lines.
    [[nodiscard]] std::string text(bool color) const;

private:
    [[nodiscard]] std::vector<size_t> widths() const;
    [[nodiscard]] std::string line(const std::vector<Cell>& cells,
                                   const std::vector<size_t>& widths, bool color) const;

    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
    std::string indent_;
};

} // namespace ipfcctl
