// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/UndoRecord.h"

#include "support/Target.h"

using namespace tidewell;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto record = UndoRecord::parse(fuzz::text({data, size}));
  if (!record) return 0;
  fuzz::require(UndoRecord::parse(record->json()) == record, "a record reads back as it was written");
  const auto isAbsolute = [](const std::string& path) {
    return path.starts_with('/') && path.find('\0') == std::string::npos;
  };
  fuzz::require(isAbsolute(record->originalPath) && isAbsolute(record->convertedPath.value_or("/")),
                "a record names files by absolute paths");
  const std::string& name = record->backupName;
  fuzz::require(!name.empty() && name != "." && name != ".." &&
                    name.find_first_of(std::string_view("/\0", 2)) == std::string::npos,
                "a backup lies in its session's folder");
  return 0;
}
