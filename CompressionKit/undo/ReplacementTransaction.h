// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/undo/Displacement.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {

/// One replacement of a user's file, or one new file beside it, from the backup to the committed record:
///
///     prepare (constructor)  backup and prepared record are on the disk
///     swap                   the new bytes stand under the name, what stood there is in our hands
///     verify                 what stands there is what was judged
///     commit                 the record says so; what was displaced goes
///
/// Until `commit` has returned, the destructor rolls back: the original's bytes stand under the name again,
/// unless somebody else's do, which are never touched. Record and backup go with the attempt if our bytes
/// never kept the name or the original stands there; else both stay, so that a restore remains possible.
///
/// Every step throws `CompressionError` or `FileError`; the only thing left to do then is to let go.
/// Belongs to one thread; nobody else of us may work on the same file.
class ReplacementTransaction {
 public:
  struct Request {
    URL original;              ///< the user's file
    std::string originalHash;  ///< what it was when it was read
    URL candidate;             ///< finished, on the same file system; `swap` moves it away
    UUID sessionID;            ///< the batch
    std::optional<URL> destination =
        std::nullopt;  ///< a new file's name; without one the original is replaced
    std::optional<files::Times> times = std::nullopt;  ///< which the candidate gets
  };

  ReplacementTransaction(const UndoStore& undo, Request request);
  ReplacementTransaction(const ReplacementTransaction&) = delete;
  ReplacementTransaction& operator=(const ReplacementTransaction&) = delete;
  ~ReplacementTransaction();

  /// False when the destination's name is taken, and then nothing was moved.
  bool swap();
  /// What has the hash of what was judged needs no second look. Anything else is given to `inspect`, under
  /// its new name, which throws unless it will do; bytes that are not the record's fail after that.
  void verify(const std::string& judgedHash, const std::function<void(const URL&)>& inspect);
  void commit();

  /// As it was prepared.
  const UndoRecord& record() const { return record_; }

 private:
  const URL& target() const { return request_.destination ? *request_.destination : request_.original; }
  void requireOriginal(const URL& url) const;
  void requireJudged(const URL& candidate) const;
  void requireUntouchedSince(const files::ResourceValues& found) const;
  void replace();
  void removeNewFile();
  void putOriginalBack();
  void putCopyBack();

  const UndoStore& undo_;
  const Request request_;
  const UndoRecord record_;
  std::optional<Displacement> displaced_;  ///< of a replacement in place, once our bytes wait for the swap
  bool originalInHand_ = false;            ///< the original itself lies in `displaced_`
  bool kept_ = false;                      ///< our bytes took the name, and it has not been given back
  bool committed_ = false;
};

}  // namespace tidewell
