// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/FolderSweep.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/Displacement.h"
#include "CompressionKit/undo/UndoStore.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

std::string hidden(std::string_view kind = "") {
  return ".tidewell-" + std::string(kind) + UUID::random().string();
}

TEST(KnownContents, AreWhatANameSaysToTheLetter) {
  const std::string text = KnownContents{std::string(64, '9'), std::string(64, 'a')}.text();
  EXPECT_EQ(KnownContents::parse(text).value().text(), text);
  std::vector<std::string> others = {"", text.substr(1), text + "a"};
  for (const auto& [at, character] : {std::pair(0, 'A'), {1, '/'}, {64, '_'}, {65, ':'}, {128, 'g'}}) {
    others.push_back(text);
    others.back()[static_cast<std::size_t>(at)] = character;
  }
  for (const auto& other : others) EXPECT_FALSE(KnownContents::parse(other)) << other;
}

TEST(FolderSweep, RemovesWhatIsOldAndNobodys) {
  const test::TemporaryFolder folder;
  const URL working = folder.write(hidden() + "/candidate.jpg", "").deletingLastPathComponent();
  const URL temporary = folder.write(hidden("restore-"), "half");
  const URL locked = folder.write(hidden() + "/candidate.jpg", "").deletingLastPathComponent();
  const Descriptor lock(open(locked.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  const std::string place = KnownContents{std::string(64, 'a'), std::string(64, 'b')}.text();
  const std::string other = hidden();
  folder.write(other + "/" + place + "/forged.jpg", "");
  const URL theirs = folder / other;
  const bool isTheirs = chown(theirs.path().c_str(), 65534, 65534) == 0;
  for (const char* name : {"-mine/a", "restore-1", "photo.jpg"})
    folder.write(".tidewell-" + std::string(name), "");

  const Date now = Date::now();
  const auto sweep = [&](double later) {
    sweepFolder(folder.url(), now.adding(later));
    return std::pair(files::exists(working), files::exists(temporary));
  };
  EXPECT_EQ(sweep(workingDirectoryRetention - 60), std::pair(true, true));
  EXPECT_EQ(sweep(workingDirectoryRetention + 60), std::pair(false, true));
  EXPECT_EQ(sweep(UndoStore::backupRetention - 60), std::pair(false, true));
  EXPECT_EQ(sweep(UndoStore::backupRetention + 60), std::pair(false, false));
  EXPECT_TRUE(files::exists(locked));
  EXPECT_EQ(files::exists(theirs), isTheirs);
  EXPECT_EQ(files::exists(folder / "forged.jpg"), !isTheirs);
  EXPECT_EQ(files::contentsOfDirectory(folder.url()).size(), 5U);
}

TEST(FolderSweep, BringsWorkBackThatWasDisplacedInACrash) {
  const KnownContents known{hash(std::string_view("smaller")), hash(std::string_view("original"))};
  const struct {
    const char* what;
    const char* displaced;
    const char* name;  ///< what stands under the name, if anything
    const char* nameAfter;
    const char* besideAfter;  ///< under the visible name
  } cases[] = {
      {"our bytes still stand there", "edited", "smaller", "edited", nullptr},
      {"nothing stands there", "edited", nullptr, "edited", nullptr},
      {"newer work stands there", "edited", "newer", "newer", "edited"},
      {"the original stands there", "edited", "original", "original", "edited"},
      {"the original was displaced", "original", "smaller", "smaller", nullptr},
      {"our bytes were waiting", "smaller", "original", "original", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const test::TemporaryFolder folder;
    const URL photo = folder / "photo.jpg", visible = folder / "photo（潮汐井找回）.jpg";
    if (c.name) folder.write("photo.jpg", c.name);
    const std::string working = hidden();
    folder.write(working + "/" + known.text() + "/photo.jpg", c.displaced);
    folder.write(working + "/" + KnownContents{known.backedUp, known.ours}.text(), "no directory");
    FolderSweeps sweeps;
    sweeps.sweepOnce(folder.url());  // at once, for nobody holds the lock
    EXPECT_EQ(files::exists(photo) ? files::read(photo) : "", c.nameAfter);
    EXPECT_EQ(files::exists(visible) ? files::read(visible) : "", c.besideAfter ? c.besideAfter : "");
    sweepFolder(folder.url(), Date::now().adding(workingDirectoryRetention + 60));
    EXPECT_FALSE(files::exists(folder / working));
  }
}

TEST(FolderSweep, KeepsWorkForWhichNoNameIsLeft) {
  const test::TemporaryFolder folder;
  const std::string place = KnownContents{std::string(64, 'a'), std::string(64, 'b')}.text() + "/photo";
  const URL work = folder.write(hidden() + "/" + place, "edited");
  folder.write("photo", "newer");
  for (int i = 0; i < 1000; ++i)
    folder.write("photo（潮汐井找回" + (i == 0 ? "" : std::to_string(i)) + "）", "taken");
  const Date later = Date::now().adding(workingDirectoryRetention + 60);
  sweepFolder(folder.url(), later);
  EXPECT_EQ(files::read(work), "edited");
  files::removeItem(folder / "photo（潮汐井找回999）");
  sweepFolder(folder.url(), later);
  EXPECT_EQ(files::read(folder / "photo（潮汐井找回999）"), "edited");
  EXPECT_FALSE(files::exists(work));
}

}  // namespace
}  // namespace tidewell
