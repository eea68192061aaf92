// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/Displacement.h"

#include <stdio.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/undo/AtomicRename.h"

namespace tidewell {
namespace {

constexpr std::size_t hashDigits = 64;

bool isHash(std::string_view text) {
  return text.size() == hashDigits &&
         std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

/// Nothing where no regular file stands, or where its content cannot be found out.
std::optional<std::string> contentAt(const URL& url) noexcept {
  try {
    if (files::resourceValues(url).isRegularFile) return hash(url);
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

void move(const URL& from, const URL& to, FileAction action) {
  if (rename(from.path().c_str(), to.path().c_str()) != 0) throw FileError(action, from.path(), errno);
}

void publishBeside(const URL& place, const URL& file) {
  const URL folder = file.deletingLastPathComponent();
  std::string end = "）";
  if (!file.pathExtension().empty()) end += "." + file.pathExtension();
  for (int i = 0; i < 1000; ++i) {
    std::string found = "（潮汐井找回";
    if (i > 0) found += std::to_string(i);
    const URL visible = folder.appending(fittingName(file.stem(), found.append(end)));
    if (atomicRenameIfAbsent(place, visible)) return;
  }
  throw CompressionError::fileOperation("无法找回文件：同名文件过多");
}

}  // namespace

std::string KnownContents::text() const {
  return ours + "-" + backedUp;
}

std::optional<KnownContents> KnownContents::parse(std::string_view text) {
  if (text.size() != 2 * hashDigits + 1 || text[hashDigits] != '-') return std::nullopt;
  const auto ours = text.substr(0, hashDigits), backedUp = text.substr(hashDigits + 1);
  if (!isHash(ours) || !isHash(backedUp)) return std::nullopt;
  return KnownContents{std::string(ours), std::string(backedUp)};
}

bool KnownContents::include(const URL& url) const noexcept {
  const auto found = contentAt(url);
  return found && (*found == ours || *found == backedUp);
}

bool stands(const URL& url, std::string_view content) noexcept {
  return contentAt(url) == content;
}

bool isForeignWork(const URL& place, const KnownContents& known) noexcept {
  try {
    files::resourceValues(place);
  } catch (const FileError& error) {
    if (error.isNoSuchFile()) return false;
  } catch (...) {
  }
  return !known.include(place);
}

void exchangeBack(const URL& place, const URL& file, const KnownContents& known) {
  if (atomicExchange(place, file) == Exchange::done && isForeignWork(place, known)) {
    atomicExchange(place, file);
  }
}

void bringBack(const URL& place, const URL& file, const KnownContents& known) {
  if (!isForeignWork(place, known) || atomicRenameIfAbsent(place, file)) return;
  if (stands(file, known.ours)) exchangeBack(place, file, known);
  if (isForeignWork(place, known)) publishBeside(place, file);
}

Displacement::Displacement(const URL& file, KnownContents known)
    : file_(file),
      known_(std::move(known)),
      directory_(file.deletingLastPathComponent()),
      place_(directory_.url().appending(known_.text()).appending(file.lastPathComponent())) {
  files::createDirectory(place_.deletingLastPathComponent(), 0700);
}

Displacement::~Displacement() {
  if (!displaced_) return;
  try {
    if (!holdsForeignWork()) return;
    bringBack();
    if (holdsForeignWork()) directory_.keep();
  } catch (...) {
    directory_.keep();
  }
}

void Displacement::put(const URL& source) {
  move(source, place_, "移动");
}

bool Displacement::take() {
  try {
    move(file_, place_, "删除");
  } catch (const FileError& error) {
    if (!error.isNoSuchFile()) throw;
    return false;
  }
  displaced_ = true;
  return true;
}

Exchange Displacement::exchange() {
  const Exchange outcome = atomicExchange(place_, file_);
  if (outcome == Exchange::done) displaced_ = true;
  return outcome;
}

bool Displacement::holdsForeignWork() {
  try {
    const auto found = files::resourceValues(place_);
    if (proven_ && *proven_ == found) return false;
    if (isForeignWork(place_, known_)) return true;
    proven_ = found;  // taken before the hash: a change meanwhile is noticed next time
    return false;
  } catch (const FileError& error) {
    return !error.isNoSuchFile();
  }
}

void Displacement::bringBack() {
  tidewell::bringBack(place_, file_, known_);
}

void Displacement::undo() {
  if (stands(file_, known_.ours)) {
    exchangeBack(place_, file_, known_);
  } else {
    atomicRenameIfAbsent(place_, file_);
  }
}

}  // namespace tidewell
