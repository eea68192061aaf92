// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <unistd.h>

#include <stdexcept>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell::test {

/// Puts a record of a given age into a store, with a backup of `bytes` (sparse) and no replaced file.
inline UndoRecord plantRecord(const UndoStore& store, Date createdAt, off_t bytes,
                              UndoRecord::State state = UndoRecord::State::committed) {
  UndoRecord record;
  record.id = UUID::random();
  record.sessionID = UUID::random();
  record.createdAt = createdAt;
  record.originalPath = "/somewhere/a.jpg";
  record.backupName = record.id.string() + ".jpg";
  record.originalBytes = bytes;
  record.replacementHash = "0";
  record.state = state;
  const URL backup = store.backupURL(record);
  const URL session = backup.deletingLastPathComponent();
  files::createDirectories(session);
  const auto write = [](const URL& url, std::string_view text) {
    files::writeAtomically(url, text, files::Durability::cached);
  };
  write(session.appending(record.id.string() + ".json"), record.json());
  write(backup, "");
  if (truncate(backup.path().c_str(), bytes) != 0) throw std::runtime_error("truncate");
  return record;
}

}  // namespace tidewell::test
