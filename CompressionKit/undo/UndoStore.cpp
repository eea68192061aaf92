// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/UndoStore.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"

namespace tidewell {
namespace {

/// A file where a directory should be is not a missing one.
bool isMissing(const FileError& error) {
  return error.code() == ENOENT;
}

}  // namespace

UndoStore::UndoStore(std::optional<URL> root) : root_(root ? *std::move(root) : locations::undoStore()) {}

bool UndoStore::isBackup(const URL& file) {
  const URL session = file.deletingLastPathComponent();
  return UUID::isCanonical(file.stem()) && UUID::isCanonical(session.lastPathComponent()) &&
         files::exists(session.appending(file.stem() + ".json"));
}

URL UndoStore::backupURL(const UndoRecord& record) const {
  return root_.appending(record.sessionID.string()).appending(record.backupName);
}

URL UndoStore::recordURL(const UndoRecord& record) const {
  return root_.appending(record.sessionID.string()).appending(record.id.string() + ".json");
}

URL UndoStore::diagnosticsDirectory() const {
  return locations::compressionDiagnostics(root_);
}

std::vector<UndoRecord> UndoStore::readRecords() const {
  return scanRecords(true);
}

std::vector<UndoRecord> UndoStore::records() const {
  try {
    return scanRecords(false);
  } catch (const std::exception&) {
    return {};
  }
}

std::vector<UndoRecord> UndoStore::scanRecords(bool checked) const {
  std::vector<URL> sessions;
  try {
    sessions = files::contentsOfDirectory(root_);
  } catch (const FileError& error) {
    if (isMissing(error)) return {};
    throw;
  }

  std::vector<UndoRecord> records;
  for (const URL& session : sessions) {
    std::vector<URL> children;
    try {
      if (!files::resourceValues(session).isDirectory) continue;
    } catch (const FileError&) {
      continue;
    }
    try {
      children = files::contentsOfDirectory(session);
    } catch (const FileError&) {
      if (checked) throw;
      continue;
    }
    for (const URL& child : children) {
      if (child.pathExtension() != "json") continue;
      try {
        if (auto record = UndoRecord::read(child)) records.push_back(*std::move(record));
      } catch (const FileError& error) {
        if (checked && !isMissing(error)) throw;
      }
    }
  }
  std::ranges::stable_sort(records, [](const auto& a, const auto& b) { return a.createdAt > b.createdAt; });
  return records;
}

void UndoStore::removeAll() const {
  std::exception_ptr first;
  for (const auto& record : readRecords()) {
    if (record.state != UndoRecord::State::committed) continue;
    try {
      deleteRecord(record);
    } catch (...) {
      if (!first) first = std::current_exception();
    }
  }
  if (first) std::rethrow_exception(first);
}

}  // namespace tidewell
