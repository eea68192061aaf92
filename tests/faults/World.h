// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CompressionKit/undo/UndoStore.h"
#include "support/TemporaryFolder.h"

namespace tidewell::test {

/// A folder with photos, a store, and what must never happen to them.
class World {
 public:
  static constexpr const char* oldBytes = "the bytes of the original photo";
  static constexpr const char* newBytes = "the smaller bytes";

  World();

  const TemporaryFolder folder;
  const URL photos = folder / "photos";
  const URL photo = photos.appending("photo.jpg");
  const URL png = photos.appending("photo.png");
  const UUID session = UUID::random();
  const UndoStore store{folder / "Undo"};
  std::optional<UndoRecord> record;  ///< of what the operation under test begins with
  bool isFinal = false;              ///< nobody wants the original back

  // --- What operations begin with ---
  void write(const URL& url, const std::string& bytes) const;
  /// A replacement, or a conversion to `png`, that took place without faults.
  void replace();
  void convert();

  // --- Another program ---
  enum class Save { rename, write, append, unlink };
  /// Saves new work under the name, in one of the ways in which programs do, or one step of them.
  void save(const URL& url, Save way);
  /// Nobody could have noticed what was saved.
  void giveUpWorks() { worksAreGivenUp_ = true; }
  bool somebodySaved() const { return saves_ > 0; }
  /// Work of somebody else that lies at `url` and must come to light.
  void displace(const URL& url, const std::string& work);
  /// What other programs did in a child of this process.
  void recall();
  /// The disk loses what the backups held.
  void damageBackups() const;

  // --- What must hold ---
  std::optional<std::string> at(const URL& url) const;
  /// A record of ours by which the old bytes can come back.
  std::optional<UndoRecord> restorable() const;
  using Contents = std::set<std::string>;  ///< that may stand under a name; "" for none
  /// The first thing that is wrong, or nothing: bytes that are neither old, new nor somebody's under a name;
  /// old bytes that are nowhere; work of others that is not visible (after a crash only once `sweep` ran).
  std::string wrong(const Contents& photoMayBe, const Contents& pngMayBe, bool worksMayHide) const;
  /// Hidden files beside the photos, and files in the store that no record names. Empty when all is swept.
  std::string leftOvers() const;
  /// What a later run and a maintenance pass do.
  void sweep(Date now, std::int64_t maxBytes = std::int64_t{5} << 30) const;
  /// The neighbour's photo, backup and record are as they were.
  bool neighbourIsWell() const;

 private:
  Contents visible() const;
  void remember() const;

  UndoRecord neighbour_;
  int saves_ = 0;
  Contents works_;  ///< of other programs, and not given up by themselves
  bool worksAreGivenUp_ = false;
  bool oldIsGivenUp_ = false;  ///< somebody else overwrote or removed the original
};

}  // namespace tidewell::test
