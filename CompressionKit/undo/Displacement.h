// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/WorkingDirectory.h"

namespace tidewell {

/// The two contents that may stand under a user's name while we change it, and that may be lost there: one is
/// of our making, the other has a proven backup. Everything else is somebody's work.
struct KnownContents {
  std::string ours;      ///< SHA-256 as `hash(URL)` gives it
  std::string backedUp;  ///< the same

  /// "<ours>-<backedUp>", and back; nothing for any other text.
  std::string text() const;
  static std::optional<KnownContents> parse(std::string_view text);

  /// A regular file with one of the two contents stands there. False where that cannot be found out.
  bool include(const URL& url) const noexcept;
};

/// The same for one content.
bool stands(const URL& url, std::string_view content) noexcept;

/// The place into which a file is moved from under a user's name:
///
///     .tidewell-<UUID>/<ours>-<backedUp>/<name of the file>
///
/// beside it. The place says by its path what lies in it, so that after a crash the next run in the folder
/// knows what to do: a known content goes with the directory; anything else is somebody's work, saved in the
/// moment between our last look and our move, and is brought back.
///
/// Before the exchange the new bytes wait in the place; they go with it whatever they are.
class Displacement {
 public:
  /// Makes the place, which is empty. Throws `FileError`.
  Displacement(const URL& file, KnownContents known);
  Displacement(const Displacement&) = delete;
  Displacement& operator=(const Displacement&) = delete;
  /// Brings back what must not be lost; where that fails, the place stays.
  ~Displacement();

  const URL& place() const { return place_; }
  /// A name for a file that lives no longer than the place.
  URL scratch(const std::string& name) const { return directory_.url().appending(name); }

  /// Moves a file from elsewhere on the same file system into the place. Throws `FileError`.
  void put(const URL& source);
  /// Moves the file from under its name into the place; false when nothing stands there. Throws `FileError`.
  bool take();
  /// Lets the file in the place, flushed by the caller, and what stands under the name change places.
  Exchange exchange();

  /// Somebody's work lies in the place.
  bool holdsForeignWork();
  /// Brings it back; throws what the renames throw.
  void bringBack();
  /// After an exchange that displaced a known content: gives the name back to it where our bytes, or nothing,
  /// stand there.
  void undo();

 private:
  URL file_;
  KnownContents known_;
  WorkingDirectory directory_;
  URL place_;
  bool displaced_ = false;                       ///< what lies in the place stood under the name
  std::optional<files::ResourceValues> proven_;  ///< of the place when its content was found to be known
};

/// Brings what lies at `place` back to `file`, where it was displaced from, if it is somebody's work: onto
/// the name, where nothing or our content stands there, else beside it under a visible name
/// ("photo（潮汐井找回）.jpg"). Throws `CompressionError`; the work then lies in the place.
void bringBack(const URL& place, const URL& file, const KnownContents& known);

/// Something lies at `place` and is, or may be, no known content.
bool isForeignWork(const URL& place, const KnownContents& known) noexcept;

/// Exchanges the two. What comes out from under the name may be newer work, saved a moment ago: then that
/// stands there in the end.
void exchangeBack(const URL& place, const URL& file, const KnownContents& known);

}  // namespace tidewell
