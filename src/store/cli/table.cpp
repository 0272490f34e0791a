// SPDX-License-Identifier: Apache-2.0
#include "store/cli/table.h"

#include "base/text_columns.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <string_view>

namespace vexil {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::string_view kCutMark = "…";

std::size_t widthOf(const TableCell& cell) {
    std::size_t width = 0;
    for (const TextPiece& piece : cell)
        width += text::columnCount(piece.text);
    return width;
}

std::string_view codeOf(TextStyle style) {
    switch (style) {
    case TextStyle::faint:
        return "\x1B[2m";
    case TextStyle::strong:
        return "\x1B[1m";
    case TextStyle::accent:
        return "\x1B[33m";
    case TextStyle::plain:
        break;
    }
    return "";
}

void appendStyled(std::string& line, std::string_view words, TextStyle style, bool hasColors) {
    const std::string_view code = hasColors && !words.empty() ? codeOf(style) : "";
    line += code;
    line += words;
    if (!code.empty())
        line += "\x1B[0m";
}

void removeBlanksAtEnd(TableCell& line) {
    while (!line.empty()) {
        std::string& last = line.back().text;
        last.erase(last.find_last_not_of(' ') + 1);
        if (!last.empty())
            return;
        line.pop_back();
    }
}

std::string printed(const TableCell& line, std::size_t columns, bool hasColors) {
    std::string text;
    const bool isCut = widthOf(line) > columns;
    std::size_t left = isCut ? columns - std::min<std::size_t>(columns, 1) : columns;
    for (const TextPiece& piece : line) {
        const std::string_view part = text::cutToColumns(piece.text, left);
        appendStyled(text, part, piece.style, hasColors);
        left -= text::columnCount(part);
        if (part.size() < piece.text.size())
            break;
    }
    if (isCut)
        text += kCutMark;
    return text + "\n";
}

} // namespace

void Table::addRow(std::vector<TableCell> cells) {
    assert(cells.size() == columns_.size());
    for (TableCell& cell : cells) {
        for (TextPiece& piece : cell)
            piece.text = text::withVisibleControls(piece.text);
    }
    rows_.push_back(std::move(cells));
}

std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> widths(columns_.size());
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    return widths;
}

std::vector<bool> Table::shownColumns(std::size_t columns) const {
    const std::vector<std::size_t> wanted = widths();
    std::vector<bool> shown(columns_.size());
    std::size_t before = 0;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        shown[i] = wanted[i] > 0; // a column in which there is nothing takes no room
        before += shown[i] && i + 1 < shown.size() ? wanted[i] + kGap : 0;
    }
    // The one that asks for the most room goes first.
    for (;;) {
        std::size_t greediest = columns_.size();
        for (std::size_t i = 0; i + 1 < columns_.size(); ++i) {
            const bool isTooMuch = before + std::min(wanted.back(), columns_[i].roomForLast) > columns;
            const bool asksMore =
                greediest == columns_.size() || columns_[i].roomForLast > columns_[greediest].roomForLast;
            if (shown[i] && columns_[i].roomForLast > 0 && isTooMuch && asksMore)
                greediest = i;
        }
        if (greediest == columns_.size())
            break;
        shown[greediest] = false;
        before -= wanted[greediest] + kGap;
    }
    return shown;
}

std::string Table::text(const std::optional<Terminal>& terminal) const {
    if (rows_.empty())
        return {};
    const std::size_t columns = terminal ? terminal->columns : std::numeric_limits<std::size_t>::max();
    const std::vector<std::size_t> widths = this->widths();
    const std::vector<bool> shown = shownColumns(columns);
    std::string text;
    for (const auto& row : rows_) {
        TableCell line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (!shown[i])
                continue;
            const std::string padding(widths[i] - widthOf(row[i]), ' ');
            if (columns_[i].align == Column::Align::right)
                line.emplace_back(padding);
            line.insert(line.end(), row[i].begin(), row[i].end());
            if (columns_[i].align == Column::Align::left)
                line.emplace_back(padding);
            line.emplace_back(std::string(kGap, ' '));
        }
        removeBlanksAtEnd(line);
        text += printed(line, columns, terminal && terminal->hasColors);
    }
    return text;
}

} // namespace vexil
