// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/diagnostics/ReportDirectory.h"

#include <algorithm>
#include <iterator>

#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// "^[0-9]+-[A-Fa-f0-9-]+\.json$" by hand: a regular expression for each of a hundred names at every listing
/// would cost more than the rest of it.
bool isReportName(std::string_view name) {
  constexpr std::string_view ending = ".json";
  if (!name.ends_with(ending)) return false;
  name.remove_suffix(ending.size());
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const auto dash = std::ranges::find_if_not(name, isDigit);
  if (dash == name.begin() || dash == name.end() || *dash != '-' || dash + 1 == name.end()) return false;
  return std::all_of(dash + 1, name.end(), [&](char c) {
    return isDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f') || c == '-';
  });
}

}  // namespace

void ReportDirectory::add(const std::string& name, std::string_view report) {
  files::createDirectories(url_, 0777, files::Durability::cached);
  files::writeAtomically(url_.appending(name), report, files::Durability::cached);

  const std::lock_guard lock(mutex_);
  names_.insert(name);
  // Listed at every save, a hundred names cost as much as the rest of a refused file, and a batch may hold
  // thousands of them.
  const auto now = std::chrono::steady_clock::now();
  if (!listedAt_ || now - *listedAt_ >= listingLifetime) {
    const auto names = files::namesInDirectory(url_);
    names_.clear();
    std::ranges::copy_if(names, std::inserter(names_, names_.end()), isReportName);
    listedAt_ = now;
  }
  while (names_.size() > reportsKept) {
    files::removeItemIfPossible(url_.appending(*names_.begin()));
    names_.erase(names_.begin());
  }
}

}  // namespace tidewell
