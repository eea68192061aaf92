// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <set>
#include <string>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/UndoStore.h"
#include "support/Faults.h"
#include "support/PlantedRecord.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

constexpr off_t gibibyte = off_t{1} << 30;

class BackupMaintenanceTest : public testing::Test {
 protected:
  UndoRecord plant(double createdAt, off_t bytes, UndoRecord::State state = UndoRecord::State::committed) {
    return test::plantRecord(store_, {createdAt}, bytes, state);
  }
  bool hasBackup(const UndoRecord& record) const { return files::exists(store_.backupURL(record)); }

  test::TemporaryFolder folder_;
  UndoStore store_{folder_ / "Undo"};
};

TEST_F(BackupMaintenanceTest, CleansUpByAgeAndSize) {
  constexpr std::int64_t limit = 5LL * gibibyte;
  const UndoRecord waiting = plant(0, 9 * gibibyte, UndoRecord::State::prepared);
  const UndoRecord old = plant(1000, 1);
  EXPECT_FALSE(store_.maintain(14400, limit, {1000 + 14399}).changed);
  EXPECT_TRUE(hasBackup(old));
  EXPECT_TRUE(store_.maintain(14400, limit, {1000 + 14400}).changed);
  EXPECT_FALSE(hasBackup(old));
  EXPECT_TRUE(hasBackup(waiting));
  EXPECT_EQ(store_.records().size(), 2U);  // the record stays

  const UndoRecord three = plant(2000, 3 * gibibyte), two = plant(2001, 2 * gibibyte);
  store_.cleanup(14400, limit, {2100});
  EXPECT_TRUE(hasBackup(three));                // exactly the limit
  const UndoRecord one = plant(9e9, gibibyte);  // from a clock that was set back
  const auto pass = store_.maintain(14400, limit, {2100});
  EXPECT_TRUE(pass.changed && !pass.overdue);
  EXPECT_FALSE(hasBackup(three));
  EXPECT_TRUE(hasBackup(two) && hasBackup(one));

  EXPECT_EQ(pass.nextExpiration, Date{2001 + 14400.0});
  EXPECT_EQ(store_.nextBackupExpiration(), pass.nextExpiration);
  for (const URL& root : {folder_ / "nowhere", folder_.write("file", "")}) {
    UndoStore(root).cleanup(1, 1, {0});
    EXPECT_FALSE(UndoStore(root).nextBackupExpiration());
  }
}

TEST_F(BackupMaintenanceTest, CountsPlainFilesOnlyAndOfALinkTheLinkItself) {
  const URL large = folder_.write("large", "");
  ASSERT_EQ(truncate(large.path().c_str(), 9 * gibibyte), 0);
  const UndoRecord link = plant(1, 1), directory = plant(2, 1), kept = plant(3, 2 * gibibyte);
  files::removeItem(store_.backupURL(link));
  ASSERT_EQ(symlink(large.path().c_str(), store_.backupURL(link).path().c_str()), 0);
  files::removeItem(store_.backupURL(directory));
  files::createDirectory(store_.backupURL(directory));
  EXPECT_FALSE(store_.maintain(14400, 2 * gibibyte, {100}).changed);
  EXPECT_TRUE(hasBackup(link) && hasBackup(directory) && hasBackup(kept));
  EXPECT_TRUE(store_.maintain(14400, 2 * gibibyte - 1, {100}).changed);
  EXPECT_FALSE(hasBackup(link) || hasBackup(directory) || hasBackup(kept));
  EXPECT_TRUE(files::exists(large));
}

TEST_F(BackupMaintenanceTest, TellsOfWhatItCouldNotRemove) {
  const UndoRecord expired = plant(1000, 1);
  plant(1500, gibibyte);
  test::Faults faults;
  faults.fail(1, EIO, true, test::FileCall::changes);
  const auto byAge = store_.maintain(14400, gibibyte + 1, {1000 + 14400});
  EXPECT_TRUE(byAge.overdue && !byAge.changed);
  EXPECT_EQ(byAge.nextExpiration, expired.createdAt.adding(14400));
  EXPECT_FALSE(store_.maintain(14400, 1, {1000 + 14399}).overdue) << "its time is yet to come";
}

/// A number as a name that `prepare` gives.
std::string uuid(int number) {
  return "0000000" + std::to_string(number) + "-0000-4000-8000-ABCDEFABCDEF";
}

TEST_F(BackupMaintenanceTest, SweepsWhatKilledProcessesLeft) {
  const std::string temporary = ".tidewell-" + uuid(0) + ".tmp", lower = asciiLowercased(uuid(1));
  UndoRecord record;
  record.id = *UUID::parse(uuid(1));
  record.sessionID = *UUID::parse(uuid(1));
  record.backupName = uuid(1) + ".jpg";
  record.originalPath = "/a.jpg";
  UndoRecord elsewhere = record;  // lies in another directory than it names
  elsewhere.sessionID = *UUID::parse(uuid(6));
  const struct {
    std::string name;
    std::string content;  ///< "/" for a directory, "->" for a link
    bool goes;
  } cases[] = {
      // Beside a record: what it does not name goes, what we never make stays.
      {"Undo/" + uuid(1) + "/" + uuid(1) + ".json", record.json(), false},
      {"Undo/" + uuid(1) + "/" + uuid(1) + ".jpg", "named", false},
      {"Undo/" + uuid(1) + "/" + uuid(2) + ".jpg", "x", true},
      {"Undo/" + uuid(1) + "/" + temporary, "x", true},
      {"Undo/" + uuid(1) + "/" + uuid(3) + ".JPG", "x", false},
      {"Undo/" + uuid(1) + "/" + lower + ".jpg", "x", false},
      {"Undo/" + uuid(1) + "/" + uuid(4) + ".gif", "->", false},
      {"Undo/" + uuid(1) + "/" + uuid(5) + ".png", "/", false},
      {"Undo/" + uuid(1) + "/" + uuid(6), "x", false},
      {"Undo/" + uuid(1) + "/photo.jpg", "x", false},
      {"Undo/" + uuid(1) + "/.json", "x", false},
      {"Undo/" + uuid(1) + "/.tidewell-1.tmp", "x", false},
      // Sessions that end with what is swept, or were empty.
      {"Undo/" + uuid(2), "/", true},
      {"Undo/" + uuid(2) + "/" + uuid(2) + ".heic", "x", true},
      {"Undo/" + uuid(3), "/", true},
      // A record that cannot be decoded, read or found may name anything in its session.
      {"Undo/" + uuid(4) + "/" + uuid(4) + ".json", "{", false},
      {"Undo/" + uuid(4) + "/" + uuid(5) + ".jpg", "x", false},
      {"Undo/" + uuid(4) + "/" + temporary, "x", false},
      {"Undo/" + uuid(5) + "/x.json", "/", false},
      {"Undo/" + uuid(5) + "/" + uuid(5) + ".jpg", "x", false},
      {"Undo/" + uuid(7) + "/x.json", "->", false},
      {"Undo/" + uuid(7) + "/" + uuid(5) + ".jpg", "x", false},
      // Named by a record in a directory that is no session.
      {"Undo/others/x.json", elsewhere.json(), false},
      {"Undo/" + uuid(6) + "/" + uuid(1) + ".jpg", "named", false},
      // Not a session's.
      {"Undo/others/" + uuid(2) + ".jpg", "x", false},
      {"Undo/others/" + temporary, "x", false},
      {"Undo/" + lower + "/" + uuid(2) + ".jpg", "x", false},
      {"Undo/empty", "/", false},
      {"Undo/" + uuid(2) + ".jpg", "x", false},
      {"Undo/" + temporary, "x", true},
      {"CompressionDiagnostics/" + temporary, "x", true},
      {"CompressionDiagnostics/1-A.json", "x", false},
  };
  std::set<std::string> stays;
  for (const auto& c : cases) {
    const URL url = folder_ / c.name;
    files::createDirectories(c.content == "/" ? url : url.deletingLastPathComponent(), 0700,
                             files::Durability::cached);
    if (c.content == "->") {
      ASSERT_EQ(symlink("/nowhere", url.path().c_str()), 0);
    } else if (c.content != "/") {
      folder_.write(c.name, c.content);
    }
    // Whoever copies a file keeps its time: it only looks old.
    const timespec longAgo[2] = {};
    ASSERT_EQ(utimensat(AT_FDCWD, url.path().c_str(), longAgo, AT_SYMLINK_NOFOLLOW), 0);
    if (!c.goes) stays.insert(c.name);
  }
  const auto tree = [&] {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.url().path())) {
      const std::string name = entry.path().native().substr(folder_.url().path().size() + 1);
      // Directories that hold something show in what they hold.
      if (!entry.is_directory() || entry.is_symlink() || std::filesystem::is_empty(entry)) names.insert(name);
    }
    return names;
  };
  const auto before = tree();
  const Date now = Date::now();
  store_.cleanup(14400, 1, now.adding(14400 - 60));
  EXPECT_EQ(tree(), before);
  EXPECT_FALSE(store_.maintain(14400, 1, now.adding(14400 + 1)).changed) << "no record lost its backup";
  EXPECT_EQ(tree(), stays);
}

TEST_F(BackupMaintenanceTest, SweepsASessionOfOneFile) {
  for (const auto& [name, goes] :
       {std::pair(std::string(".hidden"), false), {".tidewell-" + uuid(0) + ".tmp", true}}) {
    const URL file = folder_.write("Undo/" + uuid(1) + "/" + name, "x");
    store_.cleanup(14400, 1, Date::now().adding(14400 + 1));
    EXPECT_EQ(!files::exists(file), goes) << name;
  }
}

TEST_F(BackupMaintenanceTest, KnowsABackupByARecordThatLiesElsewhere) {
  const UndoRecord record = plant(1000, 1);
  const URL session = store_.backupURL(record).deletingLastPathComponent();
  const std::string name = record.id.string() + ".json";
  files::createDirectory(folder_ / "Undo/others");
  std::filesystem::rename(session.appending(name).path(), (folder_ / "Undo/others/x.json").path());
  EXPECT_EQ(store_.nextBackupExpiration(), Date{1000 + 14400.0});
  EXPECT_TRUE(store_.maintain(14400, 1, {1000 + 14400}).changed);
  EXPECT_FALSE(hasBackup(record));
}

TEST(BackupMaintenanceDelay, StaysBetweenASecondAndAnHour) {
  const Date now{1000};
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    std::optional<Date> until;
    double seconds;
  } cases[] = {{std::nullopt, 12},  {Date{970}, 1},       {Date{1090}, 90},     {Date{1000.5}, 1},
               {Date{19000}, 3600}, {Date{infinity}, 60}, {Date{-infinity}, 60}};
  for (const auto& c : cases) EXPECT_EQ(BackupMaintenanceDelay::seconds(c.until, now, 12), c.seconds);
}

}  // namespace
}  // namespace tidewell
