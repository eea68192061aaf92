// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/Date.h"

namespace tidewell {

class Terminal;

/// Columns that the text takes in a terminal: Chinese characters take two.
std::size_t displayWidth(std::string_view text);
/// As much of the text's start as `columns` hold, with "…" where something is left out.
std::string prefixOfWidth(std::string_view text, std::size_t columns);
/// The text in lines of so many columns, cut at spaces and behind Chinese characters; what has neither is
/// longer.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);
/// Lines of aligned cells.
class Table {
 public:
  enum class Align { left, right };
  struct Column {
    std::string title;
    Align align = Align::left;
  };
  explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// As many cells as columns.
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  bool empty() const { return rows_.empty(); }
  /// The titles (in bold) and the rows; nothing when there are none.
  void print(Terminal& terminal) const;

 private:
  std::string line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace tidewell
