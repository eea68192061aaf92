// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Output.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// Calls `visit` with every character, its bytes and its columns; false ends the walk.
template <typename Visit>
void visitCharacters(std::string_view text, Visit visit) {
  while (!text.empty()) {
    utf8proc_int32_t character = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &character);
    const std::size_t size = length > 0 ? static_cast<std::size_t>(length) : 1;
    const int width = length > 0 ? std::max(utf8proc_charwidth(character), 0) : 1;
    if (!visit(character, text.substr(0, size), static_cast<std::size_t>(width))) return;
    text.remove_prefix(size);
  }
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  visitCharacters(text, [&](auto, auto, std::size_t columns) {
    width += columns;
    return true;
  });
  return width;
}

std::string prefixOfWidth(std::string_view text, std::size_t columns) {
  if (displayWidth(text) <= columns) return std::string(text);
  std::string result;
  std::size_t width = 1;  // of the sign for what is left out
  visitCharacters(text, [&](auto, std::string_view bytes, std::size_t more) {
    width += more;
    if (width > columns) return false;
    result += bytes;
    return true;
  });
  return columns == 0 ? result : result + "…";
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
  std::vector<std::string> lines(1);
  std::string piece;  // what must not be cut
  const auto place = [&] {
    if (displayWidth(lines.back()) + displayWidth(piece) > columns && !lines.back().empty())
      lines.emplace_back();
    if (lines.back().empty()) piece.erase(0, piece.find_first_not_of(' '));
    lines.back() += std::exchange(piece, {});
  };
  visitCharacters(text, [&](utf8proc_int32_t character, std::string_view bytes, std::size_t width) {
    const bool closes =
        utf8proc_category(character) >= UTF8PROC_CATEGORY_PD;  // punctuation stays where it is
    if (character == ' ' || (width == 2 && !closes)) place();
    piece += bytes;
    return true;
  });
  place();
  return lines;
}

std::string Table::line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const {
  std::string result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const std::string fill(widths[i] - displayWidth(cells[i]), ' ');
    const bool last = i + 1 == columns_.size();
    if (i > 0) result += "  ";
    if (columns_[i].align == Align::right) result += fill;
    result += cells[i];
    if (columns_[i].align == Align::left && !last) result += fill;
  }
  return result;
}

void Table::print(Terminal& terminal) const {
  if (rows_.empty()) return;
  std::vector<std::string> titles;
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    titles.push_back(columns_[i].title);
    std::size_t width = displayWidth(columns_[i].title);
    for (const auto& row : rows_) width = std::max(width, displayWidth(row[i]));
    widths.push_back(width);
  }
  terminal.print(terminal.styled(Terminal::Style::bold, line(titles, widths)));
  for (const auto& row : rows_) terminal.print(line(row, widths));
}

}  // namespace tidewell
