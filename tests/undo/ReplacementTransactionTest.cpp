// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// What tests/faults, which lets everything else happen to a replacement, does not tell apart.

#include "CompressionKit/undo/ReplacementTransaction.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "CompressionKit/platform/Digest.h"
#include "support/Failure.h"
#include "support/Faults.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using Case = CompressionError::Case;

/// A photo, its finished replacement, a store, and what another program or a failing disk does to them.
struct Setting {
  const test::TemporaryFolder folder;
  const URL photo = folder.write("photos/photo.jpg", "original");
  const URL png = folder / "photos/photo.png";
  const URL candidate = folder.write("photos/working/candidate.jpg", "smaller");
  const UndoStore undo{folder / "Undo"};
  Descriptor opened;

  static void write(const URL& url, std::string_view text) {
    files::writeAtomically(url, text, files::Durability::cached);
  }
  void remove() { files::removeItem(photo); }
  void link() {
    files::copyItem(photo, folder / "copy");
    remove();
    ASSERT_EQ(symlink((folder / "copy").path().c_str(), photo.path().c_str()), 0);
  }
  void open(int access) { opened = Descriptor(::open(photo.path().c_str(), access | O_CLOEXEC)); }

  /// Every file among the photos, the hidden ones of ours included, with its content.
  std::string photos() const {
    std::set<std::string> found;
    for (const URL& url : files::contentsOfDirectory(folder / "photos")) {
      const std::string name = url.lastPathComponent();
      if (name == "working") continue;
      found.insert(name + "=" + (files::resourceValues(url).isRegularFile ? files::read(url) : "?"));
    }
    std::string text;
    for (const auto& entry : found) text += (text.empty() ? "" : " ") + entry;
    return text;
  }
};

TEST(Replacement, LosesNothingThatHappensMeanwhile) {
  enum Moment { prepared, swapped, inspected };
  constexpr auto changed = Case::changedDuringCompression, invalid = Case::validationFailed;
  using S = Setting;
  const struct {
    const char* what;
    Moment moment;
    std::function<void(S&)> happens;
    std::optional<Case> error;
    const char* photos;
    bool recordStays;
    bool beside = false;
  } cases[] = {
      {"the same bytes in a new file", prepared, &S::link, changed, "photo.jpg=?", false},
      {"removed before the swap", prepared, &S::remove, changed, "", false},
      {"the backup is damaged", prepared,
       [](S& s) { S::write(s.undo.backupURL(s.undo.records().at(0)), "0riginal"); }, changed,
       "photo.jpg=original", false},
      {"the candidate is damaged", prepared, [](S& s) { S::write(s.candidate, "sma11er"); }, invalid,
       "photo.jpg=original", false},
      {"open for writing", prepared, [](S& s) { s.open(O_WRONLY); }, changed, "photo.jpg=original", false},
      {"open for reading", prepared, [](S& s) { s.open(O_RDONLY); }, {}, "photo.jpg=smaller", true},
      {"removed after the swap", swapped, &S::remove, invalid, "photo.jpg=original", false},
      {"a link after the swap", swapped, &S::link, invalid, "photo.jpg=?", true},
      {"a save after the inspection", inspected, [](S& s) { S::write(s.photo, "edited"); }, invalid,
       "photo.jpg=edited", true},
      {"the new name is taken", prepared, [](S& s) { S::write(s.png, "taken"); }, std::nullopt,
       "photo.jpg=original photo.png=taken", false, true},
      {"the new file is damaged", prepared, [](S& s) { S::write(s.candidate, "sma11er"); }, invalid,
       "photo.jpg=original", false, true},
      {"the new file is edited", swapped, [](S& s) { S::write(s.png, "edited"); }, invalid,
       "photo.jpg=original photo.png=edited", true, true},
  };
  const auto attempt = [](Setting& s, const auto& c) {
    ReplacementTransaction transaction(s.undo,
                                       {.original = s.photo,
                                        .originalHash = hash(s.photo),
                                        .candidate = s.candidate,
                                        .sessionID = UUID::random(),
                                        .destination = c.beside ? std::optional(s.png) : std::nullopt});
    if (c.moment == prepared) c.happens(s);
    if (!transaction.swap()) return;
    if (c.moment == swapped) c.happens(s);
    // What was judged before is not inspected again, as long as it stands there.
    transaction.verify(c.moment == inspected ? "" : transaction.record().replacementHash, [&](const URL&) {
      if (c.moment == inspected) c.happens(s);
      if (c.moment == swapped) throw CompressionError::validationFailed();  // as any inspection would
    });
    transaction.commit();
  };
  for (const bool exchanges : {true, false}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.what) + (exchanges ? "" : ", without exchange"));
      test::Faults faults;
      if (!exchanges) faults.refuseExchange();
      Setting s;
      EXPECT_EQ(test::caseOf([&] { attempt(s, c); }), c.error);
      EXPECT_EQ(s.photos(), c.photos);
      const auto records = s.undo.readRecords();
      EXPECT_EQ(records.size(), c.recordStays ? 1U : 0U);
      for (const auto& record : records) EXPECT_EQ(files::read(s.undo.backupURL(record)), "original");
    }
  }
}

}  // namespace
}  // namespace tidewell
