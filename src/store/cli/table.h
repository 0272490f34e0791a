// SPDX-License-Identifier: Apache-2.0
// Rows of text in aligned columns.
#pragma once

#include "store/cli/terminal.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vexil {

// How a piece of text looks on a terminal with colours; plain elsewhere.
enum class TextStyle { plain, faint, strong, accent };

struct TextPiece {
    TextPiece(std::string words, TextStyle look = TextStyle::plain) : text(std::move(words)), style(look) {}
    TextPiece(const char* words, TextStyle look = TextStyle::plain) : text(words), style(look) {}

    std::string text;
    TextStyle style;
};

// May be made of anything: what would command a terminal, or break the line, is made visible when it is printed.
using TableCell = std::vector<TextPiece>;

class Table {
public:
    struct Column {
        enum class Align { left, right };
        Align align = Align::left;
        // Left out where the last column would have less room than this on a terminal, unless it wants no more.
        std::size_t roomForLast = 0;
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // One cell a column.
    void addRow(std::vector<TableCell> cells);

    // One line a row, two blanks between columns, none at the end. Cut to the width of the terminal where there is one,
    // else whole.
    [[nodiscard]] std::string text(const std::optional<Terminal>& terminal) const;

private:
    [[nodiscard]] std::vector<std::size_t> widths() const;
    [[nodiscard]] std::vector<bool> shownColumns(std::size_t columns) const;

    std::vector<Column> columns_;
    std::vector<std::vector<TableCell>> rows_;
};

} // namespace vexil
