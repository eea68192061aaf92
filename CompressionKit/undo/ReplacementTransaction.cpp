// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/ReplacementTransaction.h"

#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/AtomicRename.h"

namespace tidewell {

ReplacementTransaction::ReplacementTransaction(const UndoStore& undo, Request request)
    : undo_(undo),
      request_(std::move(request)),
      record_(
          undo.prepare(request_.original, request_.candidate, request_.sessionID,
                       request_.destination ? std::optional(request_.destination->path()) : std::nullopt)) {}

ReplacementTransaction::~ReplacementTransaction() {
  if (committed_) return;
  try {
    if (kept_) request_.destination ? removeNewFile() : putOriginalBack();
  } catch (const std::exception&) {  // then backup and record are what the user has
  }
  if (!kept_) undo_.discard(record_);
}

void ReplacementTransaction::requireOriginal(const URL& url) const {
  if (hash(url) != request_.originalHash) throw CompressionError::changedDuringCompression();
}

void ReplacementTransaction::requireJudged(const URL& candidate) const {
  if (!stands(candidate, record_.replacementHash)) throw CompressionError::validationFailed();
}

bool ReplacementTransaction::swap() {
  try {
    requireOriginal(undo_.backupURL(record_));
    if (request_.destination) {
      if (request_.times) files::setTimes(request_.candidate, *request_.times);
      requireJudged(request_.candidate);
      requireOriginal(request_.original);
      kept_ = atomicRenameIfAbsent(request_.candidate, *request_.destination);
      return kept_;
    }
    replace();
    return true;
  } catch (const FileError& error) {
    if (error.isNoSuchFile() && !files::exists(request_.original)) {
      throw CompressionError::changedDuringCompression();
    }
    throw;
  }
}

/// Seconds may have passed since the original was hashed. The exchange loses nothing, but what a last look
/// sees need not be moved at all; and a program that has the file open would go on writing into what was
/// displaced.
void ReplacementTransaction::requireUntouchedSince(const files::ResourceValues& found) const {
  if (!found.isRegularFile || files::isOpenForWriting(request_.original) ||
      files::resourceValues(request_.original) != found) {
    throw CompressionError::changedDuringCompression();
  }
}

void ReplacementTransaction::replace() {
  const auto found = files::resourceValues(request_.original);
  requireOriginal(request_.original);
  files::copyAttributes(request_.original, request_.candidate);
  if (request_.times) files::setTimes(request_.candidate, *request_.times);
  files::flush(request_.candidate);
  displaced_.emplace(request_.original, KnownContents{record_.replacementHash, request_.originalHash});
  displaced_->put(request_.candidate);
  requireJudged(displaced_->place());
  requireUntouchedSince(found);
  switch (displaced_->exchange()) {
    case Exchange::vanished:
      throw CompressionError::changedDuringCompression();
    case Exchange::unsupported:
      files::flush(displaced_->place());  // now, so that the rename follows a last look at once
      requireUntouchedSince(found);
      atomicRename(displaced_->place(), request_.original);
      kept_ = true;
      return;
    case Exchange::done:
      break;
  }
  kept_ = true;
  if (displaced_->holdsForeignWork()) {
    displaced_->bringBack();
    kept_ = stands(request_.original, record_.replacementHash);
    throw CompressionError::changedDuringCompression();
  }
  originalInHand_ = true;
}

void ReplacementTransaction::verify(const std::string& judgedHash,
                                    const std::function<void(const URL&)>& inspect) {
  if (record_.replacementHash == judgedHash && stands(target(), judgedHash)) return;
  inspect(target());
  if (hash(target()) != record_.replacementHash) throw CompressionError::validationFailed();
}

void ReplacementTransaction::commit() {
  undo_.commit(record_);
  committed_ = true;
}

/// Moves the new file out of sight before it goes, so that it is ours for certain.
void ReplacementTransaction::removeNewFile() {
  if (!stands(target(), record_.replacementHash)) return;
  Displacement taken(target(), {record_.replacementHash, record_.replacementHash});
  if (taken.take() && !taken.holdsForeignWork()) kept_ = false;
}

void ReplacementTransaction::putOriginalBack() {
  if (!originalInHand_) {
    // With somebody's work in the place, and so an exchange, the next run in the folder mends it.
    if (!displaced_->holdsForeignWork()) putCopyBack();
  } else {
    displaced_->undo();
  }
  kept_ = !stands(target(), request_.originalHash);
}

/// For file systems without an exchange: the original was overwritten.
void ReplacementTransaction::putCopyBack() {
  const std::string extension = target().pathExtension();
  const URL copy = displaced_->scratch("rollback." + extension);
  files::copyItem(undo_.backupURL(record_), copy);
  if (!stands(copy, request_.originalHash)) return;
  if (stands(target(), record_.replacementHash)) {
    atomicRename(copy, target());
  } else {
    atomicRenameIfAbsent(copy, target());
  }
}

}  // namespace tidewell
