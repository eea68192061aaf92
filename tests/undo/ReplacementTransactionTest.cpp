#include "CompressionKit/undo/ReplacementTransaction.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "support/Faults.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using Case = CompressionError::Case;

/// A photo, its finished replacement and a store, on a file system with or without exchange.
class Replacement : public testing::TestWithParam<bool> {
 protected:
  Replacement() {
    if (!GetParam()) faults.refuseExchange();
  }
  ReplacementTransaction begin(bool beside = false) {
    candidate = folder.write("photos/working/candidate.jpg", "smaller");
    return {undo,
            {.original = photo,
             .originalHash = tidewell::hash(photo),
             .candidate = candidate,
             .sessionID = UUID::random(),
             .destination = beside ? std::optional(png) : std::nullopt}};
  }
  static void accept(const URL&) {}
  static void refuse(const URL&) { throw CompressionError::validationFailed(); }
  void save(std::string_view text) const { files::writeAtomically(photo, text, files::Durability::cached); }

  /// Every file among the photos, the hidden ones of ours included, with its content.
  std::string photos() const {
    std::vector<std::string> found;
    for (const URL& url : files::contentsOfDirectory(folder / "photos")) {
      const std::string name = url.lastPathComponent();
      if (name == "working") continue;
      found.push_back(name + "=" + (files::resourceValues(url).isRegularFile ? files::read(url) : "?"));
    }
    std::ranges::sort(found);
    std::string text;
    for (const auto& entry : found) text += (text.empty() ? "" : " ") + entry;
    return text;
  }
  std::size_t records() const { return undo.readRecords().size(); }
  URL backup() const { return undo.backupURL(undo.readRecords().at(0)); }

  test::Faults faults;
  const test::TemporaryFolder folder;
  const URL photo = folder.write("photos/photo.jpg", "original");
  const URL png = folder / "photos/photo.png";
  const UndoStore undo{folder / "Undo"};
  URL candidate = photo;
};

TEST_P(Replacement, CommitsARecordWithItsBackup) {
  {
    ReplacementTransaction transaction = begin();
    EXPECT_EQ(undo.readRecords().at(0).state, UndoRecord::State::prepared);
    EXPECT_TRUE(transaction.swap());
    transaction.verify([&](const URL& url) { EXPECT_EQ(url, photo); });
    transaction.commit();
  }
  EXPECT_EQ(photos(), "photo.jpg=smaller");
  EXPECT_EQ(undo.readRecords().at(0).state, UndoRecord::State::committed);
  EXPECT_EQ(files::read(backup()), "original");
  undo.restore(undo.readRecords().at(0));
  EXPECT_EQ(photos(), "photo.jpg=original");
  EXPECT_EQ(records(), 0U);
}

// What another program, or a failing disk, does between two steps, and what becomes of it.
TEST_P(Replacement, LosesNothingThatHappensMeanwhile) {
  enum Moment { prepared, swapped };
  const struct {
    const char* what;
    Moment moment;
    std::function<void()> happens;
    Case error;
    const char* photos;
    bool recordStays;
  } cases[] = {
      {"nothing, but the inspection refuses", swapped, [] {}, Case::validationFailed, "photo.jpg=original",
       false},
      {"a save before the swap", prepared, [&] { save("edited"); }, Case::changedDuringCompression,
       "photo.jpg=edited", false},
      {"the same bytes in a new file", prepared,
       [&] {
         const URL copy = folder / "copy";
         files::copyItem(photo, copy);
         files::removeItem(photo);
         ASSERT_EQ(symlink(copy.path().c_str(), photo.path().c_str()), 0);
       },
       Case::changedDuringCompression, "photo.jpg=?", false},
      {"removed before the swap", prepared, [&] { files::removeItem(photo); }, Case::changedDuringCompression,
       "", false},
      {"the backup is damaged", prepared,
       [&] { files::writeAtomically(backup(), "0riginal", files::Durability::cached); },
       Case::changedDuringCompression, "photo.jpg=original", false},
      {"the candidate is damaged", prepared,
       [&] { files::writeAtomically(candidate, "sma11er", files::Durability::cached); },
       Case::validationFailed, "photo.jpg=original", false},
      {"a save after the swap", swapped, [&] { save("edited"); }, Case::validationFailed, "photo.jpg=edited",
       true},
      {"removed after the swap", swapped, [&] { files::removeItem(photo); }, Case::validationFailed,
       "photo.jpg=original", false},
      {"a link after the swap", swapped,
       [&] {
         files::removeItem(photo);
         ASSERT_EQ(symlink("photo.jpg", photo.path().c_str()), 0);
       },
       Case::validationFailed, "photo.jpg=?", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    folder.write("photos/photo.jpg", "original");
    try {
      ReplacementTransaction transaction = begin();
      if (c.moment == prepared) c.happens();
      transaction.swap();
      if (c.moment == swapped) c.happens();
      transaction.verify(refuse);
      ADD_FAILURE() << "accepted";
    } catch (const CompressionError& error) {
      EXPECT_EQ(error.kind(), c.error);
    }
    EXPECT_EQ(photos(), c.photos);
    EXPECT_EQ(records(), c.recordStays ? 1U : 0U);
    for (const auto& record : undo.readRecords()) {
      EXPECT_EQ(files::read(undo.backupURL(record)), "original");
      undo.deleteRecord(record);
    }
    files::removeItemIfPossible(photo);
    files::removeItemIfPossible(folder / "copy");
  }
}

TEST_P(Replacement, ChecksTheBytesAfterTheInspection) {
  const auto attempt = [&] {
    ReplacementTransaction transaction = begin();
    transaction.swap();
    transaction.verify([&](const URL&) { save("edited"); });
  };
  EXPECT_THROW(attempt(), CompressionError);
  EXPECT_EQ(photos(), "photo.jpg=edited");
  EXPECT_EQ(records(), 1U) << "the original is in the backup only";
}

TEST_P(Replacement, RollsBackWhenTheRecordCannotBeCommitted) {
  const auto attempt = [&] {
    ReplacementTransaction transaction = begin();
    transaction.swap();
    transaction.verify(accept);
    const URL record =
        backup().deletingLastPathComponent().appending(transaction.record().id.string() + ".json");
    files::removeItem(record);
    files::createDirectory(record);  // in the way
    transaction.commit();
  };
  EXPECT_THROW(attempt(), FileError);
  EXPECT_EQ(photos(), "photo.jpg=original");
}

TEST_P(Replacement, LeavesAFileThatIsOpenForWriting) {
  const auto attempt = [&] { begin().swap(); };
  Descriptor writer(open(photo.path().c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_THROW(attempt(), CompressionError);
  EXPECT_EQ(photos(), "photo.jpg=original");
  EXPECT_EQ(records(), 0U);
  writer = Descriptor(open(photo.path().c_str(), O_RDONLY | O_CLOEXEC));
  attempt();  // a reader is no hindrance
}

TEST_P(Replacement, SavesANewFileBesideTheOriginal) {
  const auto attempt = [&](const std::function<void()>& meanwhile, const auto& inspect) {
    ReplacementTransaction transaction = begin(true);
    if (!transaction.swap()) return false;
    meanwhile();
    transaction.verify(inspect);
    transaction.commit();
    return true;
  };
  folder.write("photos/photo.png", "taken");
  EXPECT_FALSE(attempt([] {}, accept));
  EXPECT_EQ(records(), 0U);
  EXPECT_EQ(photos(), "photo.jpg=original photo.png=taken");
  files::removeItem(png);

  EXPECT_THROW(attempt([] {}, refuse), CompressionError);
  EXPECT_THROW(
      {
        ReplacementTransaction transaction = begin(true);
        files::writeAtomically(candidate, "sma11er", files::Durability::cached);
        transaction.swap();
      },
      CompressionError);
  EXPECT_EQ(photos(), "photo.jpg=original");
  EXPECT_EQ(records(), 0U);

  EXPECT_THROW(attempt([&] { folder.write("photos/photo.png", "edited"); }, accept), CompressionError);
  EXPECT_EQ(photos(), "photo.jpg=original photo.png=edited");
  EXPECT_EQ(records(), 1U);
  undo.deleteRecord(undo.readRecords().at(0));
  files::removeItem(png);

  EXPECT_TRUE(attempt([] {}, accept));
  EXPECT_EQ(photos(), "photo.jpg=original photo.png=smaller");
  undo.restore(undo.readRecords().at(0));
  EXPECT_EQ(photos(), "photo.jpg=original");
}

INSTANTIATE_TEST_SUITE_P(, Replacement, testing::Bool(),
                         [](const auto& test) { return test.param ? "Exchange" : "Rename"; });

}  // namespace
}  // namespace tidewell
