// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/FolderSweep.h"

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Leftovers.h"
#include "CompressionKit/undo/Displacement.h"
#include "CompressionKit/undo/RestoreTemporary.h"
#include "CompressionKit/undo/UndoStore.h"
#include "CompressionKit/undo/WorkingDirectory.h"

namespace tidewell {
namespace {

using files::EntryKind, files::isUntouchedSince;

/// Everything that can be told to be somebody's is back under a visible name.
bool bringWorkBack(const URL& directory, const URL& folder) {
  bool nothingIsLeft = true;
  for (const URL& child : files::contentsOfDirectory(directory)) {
    const auto known = KnownContents::parse(child.lastPathComponent());
    if (!known || !files::resourceValues(child).isDirectory) continue;
    for (const auto& name : files::namesInDirectory(child)) {
      const URL place = child.appending(name);
      bringBack(place, folder.appending(name), *known);
      nothingIsLeft = nothingIsLeft && !isForeignWork(place, *known);
    }
  }
  return nothingIsLeft;
}

void sweepWorkingDirectory(const URL& directory, const URL& folder, Date now) {
  // Asked first: what is brought back changes it.
  const bool isOld =
      isUntouchedSince(now.adding(-workingDirectoryRetention), directory, EntryKind::directory);
  const Descriptor lock = WorkingDirectory::adopt(directory);
  if (lock && bringWorkBack(directory, folder) && isOld) files::removeItemIfPossible(directory);
}

void sweepRestoreTemporary(const URL& file, Date now) {
  if (isUntouchedSince(now.adding(-UndoStore::backupRetention), file, EntryKind::regularFile)) {
    files::removeItemIfPossible(file);
  }
}

}  // namespace

void sweepFolder(const URL& folder, Date now) noexcept {
  try {
    for (const auto& name : files::namesInDirectory(folder)) {
      try {
        if (WorkingDirectory::isName(name)) sweepWorkingDirectory(folder.appending(name), folder, now);
        if (RestoreTemporary::isName(name)) sweepRestoreTemporary(folder.appending(name), now);
      } catch (const std::exception&) {  // it stays for another run
      }
    }
  } catch (const std::exception&) {  // a folder that can be written to but not listed
  }
}

void FolderSweeps::sweepOnce(const URL& folder) {
  {
    const std::lock_guard lock(mutex_);
    if (!swept_.insert(folder.path()).second) return;
  }
  sweepFolder(folder);
}

}  // namespace tidewell
