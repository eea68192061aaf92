// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/UndoStore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <optional>
#include <utility>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "support/Failure.h"
#include "support/Faults.h"
#include "support/PlantedRecord.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::errnoOf;
using test::textOf;

class UndoStoreTest : public testing::Test {
 protected:
  /// What the engine does: back up, swap in, commit.
  UndoRecord replace(const URL& photo, std::string_view replacement) {
    const URL candidate = folder_.write("work/candidate", replacement);
    UndoRecord record = store_.prepare(photo, candidate, UUID::random(), std::nullopt);
    atomicRename(candidate, photo);
    store_.commit(record);
    return record;
  }
  UndoRecord plant(double createdAt, off_t bytes, UndoRecord::State state = UndoRecord::State::committed) {
    return test::plantRecord(store_, {createdAt}, bytes, state);
  }
  bool hasBackup(const UndoRecord& record) const { return files::exists(store_.backupURL(record)); }
  std::size_t sessions() const { return files::contentsOfDirectory(store_.root()).size(); }

  test::TemporaryFolder folder_;
  UndoStore store_{folder_ / "Undo"};
};

TEST_F(UndoStoreTest, PreparesCommitsAndDeletes) {
  const URL photo = folder_.write("photo.JPG", "original bytes");
  const URL candidate = folder_.write("candidate", "smaller");
  const UUID session = UUID::random();
  const auto failToPrepare = [&] { store_.prepare(photo, folder_ / "missing", session, std::nullopt); };
  EXPECT_THROW(failToPrepare(), FileError);
  EXPECT_EQ(sessions(), 0U);

  const UndoRecord record = store_.prepare(photo, candidate, session, std::nullopt);
  EXPECT_EQ(record.backupName, record.id.string() + ".jpg");
  EXPECT_EQ(files::read(store_.backupURL(record)), "original bytes");
  EXPECT_EQ(record.originalBytes, 14);
  EXPECT_EQ(record.replacementBytes, 7);
  EXPECT_EQ(record.originalHash, hash(photo));
  EXPECT_EQ(record.replacementHash, hash(candidate));
  EXPECT_THROW(failToPrepare(), FileError);  // which touches nothing else of the batch
  EXPECT_EQ(store_.records(), std::vector{record});
  EXPECT_TRUE(hasBackup(record));

  store_.commit(record);
  EXPECT_EQ(store_.records().front().state, UndoRecord::State::committed);
  store_.removeBackup(record);
  store_.deleteRecord(record);  // a backup that is gone already is no error
  EXPECT_EQ(sessions(), 0U);
}

TEST_F(UndoStoreTest, FlushesBackupThenRecordThenNamesAndEachOnce) {
  const URL photo = folder_.write("photo.jpg", "original"), candidate = folder_.write("candidate", "smaller");
  const auto nothing = [] {};
  for (const bool isNew : {true, false}) {
    std::string flushed;
    for (int point = 1, happened = 1; happened != 0; ++point) {
      const URL parent = folder_ / (isNew ? "new" + std::to_string(point) : "new1");
      const UndoStore store(parent.appending("Undo"));
      const UUID session = UUID::random();
      test::Faults faults;
      faults.at(point, nothing, test::FileCall::flushes);
      const UndoRecord record = store.prepare(photo, candidate, session, std::nullopt);
      const URL directory = store.root().appending(session.string());
      for (const auto& [name, url] : {std::pair("folder ", folder_.url()),
                                      {"parent ", parent},
                                      {"root ", store.root()},
                                      {"session ", directory},
                                      {"backup ", store.backupURL(record)}}) {
        if (faults.where() == "fsync " + url.path()) flushed += name;
      }
      if (faults.where().ends_with(".tmp")) flushed += "record ";
      happened = faults.happened();
    }
    EXPECT_EQ(flushed, std::string(isNew ? "folder parent " : "") + "backup record session root ");
  }
}

TEST_F(UndoStoreTest, NeverTakesABackupForAnOriginal) {
  const URL candidate = folder_.write("candidate", "smaller");
  const UndoRecord record = replace(folder_.write("photo.jpg", "original bytes"), "small");
  const std::string backup = record.sessionID.string() + "/" + record.backupName;
  ASSERT_EQ(symlink("Undo", (folder_ / "way").path().c_str()), 0);
  ASSERT_EQ(symlink(backup.c_str(), (store_.root().appending("link")).path().c_str()), 0);
  for (const std::string& name :
       {"Undo/" + backup, "way/" + backup, "way/../Undo/" + backup, std::string("Undo/link")}) {
    const auto prepared = [&](const char* root) {
      return errnoOf([&] {
        UndoStore(folder_ / root).prepare(folder_ / name, candidate, UUID::random(), std::nullopt);
      });
    };
    EXPECT_EQ(prepared("Undo"), EPERM) << name;
    EXPECT_EQ(prepared("way"), EPERM) << name;
    EXPECT_EQ(prepared("Undo2"), name == "Undo/link" ? 0 : EPERM) << "of another store";
  }
  EXPECT_EQ(store_.records().size(), 1U);
  EXPECT_EQ(sessions(), 2U) << "that of the record, and the link";
}

TEST_F(UndoStoreTest, PreparesWhileOthersMakeAndRemoveTheSessionDirectory) {
  const URL photo = folder_.write("photo.jpg", "x"), candidate = folder_.write("candidate", "y");
  for (const bool makeItAgain : {false, true}) {
    for (int point = 1, happened = 1; happened != 0; ++point) {
      const UUID session = UUID::random();
      const std::string directory = store_.root().appending(session.string()).path();
      test::Faults faults;
      faults.at(point, [&] { rmdir(directory.c_str()); });
      if (makeItAgain) faults.then().at(2, [&] { mkdir(directory.c_str(), 0700); });
      EXPECT_TRUE(hasBackup(store_.prepare(photo, candidate, session, std::nullopt)));
      happened = faults.happened();
    }
  }
  EXPECT_THROW(store_.prepare(folder_ / "missing.jpg", candidate, UUID::random(), std::nullopt), FileError);
}

TEST_F(UndoStoreTest, KeepsTheDiagnosticsBesideItsRoot) {
  for (const auto& [root, parent] : {std::pair("/a/Undo", "/a"),
                                     {"/a/b/.", "/a"},
                                     {"/a/b/c/..", "/a"},
                                     {"/a/./b/../c/", "/a"},
                                     {"/", ""}}) {
    const UndoStore store(URL::file(root));
    EXPECT_EQ(store.diagnosticsDirectory().path(), parent + std::string("/CompressionDiagnostics")) << root;
    EXPECT_EQ(store.root(), URL::file(root));
  }
}

TEST_F(UndoStoreTest, DeletionThatFailsNamesTheFile) {
  const UndoRecord record = replace(folder_.write("photo.jpg", "x"), "y");
  UndoStore(folder_ / "photo.jpg").deleteRecord(record);  // a file for a root: nothing to delete there
  UndoRecord odd = record;
  odd.backupName = std::string(300, 'n');
  EXPECT_TRUE(textOf([&] { store_.deleteRecord(odd); }).starts_with("无法删除 photo.jpg 的记录或备份："));
  EXPECT_EQ(store_.records().size(), 1U) << "a record must not go before its backup";
}

TEST_F(UndoStoreTest, RestoresOnlyWhatIsAsRecorded) {
  const char *edited = "文件已被修改，无法直接恢复", *damaged = "原图备份已损坏，无法恢复或对比";
  const auto nothing = [](const URL&, const URL&) {};
  const auto link = [](const URL& target, const URL& url) {
    files::removeItem(url);
    EXPECT_EQ(symlink(target.path().c_str(), url.path().c_str()), 0);
  };
  const struct {
    const char* name;
    std::function<void(const URL& photo, const URL& backup)> change;
    const char* message;
    double age = 0;
  } cases[] = {
      {"untouched, one second before expiry", nothing, "no error", 14399},
      {"replaced file deleted", [](auto& photo, auto&) { files::removeItem(photo); }, "no error"},
      {"expired", nothing, "原图备份已过期", 14400},
      {"edited", [](auto& photo, auto&) { files::writeAtomically(photo, "edited"); }, edited},
      {"a dangling link in its place", [&](auto& photo, auto&) { link(folder_ / "nowhere", photo); }, edited},
      {"backup gone", [](auto&, auto& backup) { files::removeItem(backup); }, "原图备份已不存在"},
      {"backup one byte short", [](auto&, auto& backup) { files::writeAtomically(backup, "origina"); },
       damaged},
      {"backup of other content", [](auto&, auto& backup) { files::writeAtomically(backup, "0riginal"); },
       damaged},
      {"backup replaced by a link",
       [&](auto&, auto& backup) { link(folder_.write("copy", "original"), backup); }, damaged},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const URL photo = folder_.write("p\xFFhoto.jpg", "original");
    ASSERT_EQ(chmod(photo.path().c_str(), 0604), 0);
    const timespec times[2] = {{.tv_sec = 7, .tv_nsec = 0}, {.tv_sec = 1'000'000, .tv_nsec = 3}};
    ASSERT_EQ(utimensat(AT_FDCWD, photo.path().c_str(), times, 0), 0);
    replace(photo, "smaller");
    ASSERT_EQ(chmod(photo.path().c_str(), 0640), 0);
    const UndoRecord record = store_.records().at(0);
    c.change(photo, store_.backupURL(record));
    const mode_t mode = files::exists(photo) ? 0640 : 0604;  // who closed a file meanwhile wants it closed
    const std::string before = files::exists(photo) ? files::read(photo) : "";
    const bool hadBackup = hasBackup(record);
    EXPECT_EQ(textOf([&] { store_.restore(record, record.createdAt.adding(c.age)); }), c.message);

    const bool restored = std::string_view(c.message) == "no error";
    EXPECT_EQ(files::exists(photo) ? files::read(photo) : "", restored ? "original" : before);
    EXPECT_EQ(store_.records().empty(), restored);
    struct stat info {};
    EXPECT_EQ(lstat(photo.path().c_str(), &info), 0);
    EXPECT_TRUE(!restored || ((info.st_mode & 07777) == mode && info.st_mtim.tv_sec == 1'000'000));
    EXPECT_EQ(hasBackup(record), hadBackup && !restored && c.age < 14400);
    store_.discard(record);
  }
}

TEST_F(UndoStoreTest, ABackupWithoutARecordedHashMustBeAnImageOfItsSize) {
  const URL photo = folder_ / "photo.png";
  test::writePNGFile(photo, test::photoRaster(8, 8));
  UndoRecord record = replace(photo, "smaller");
  const std::string expected = *std::exchange(record.originalHash, std::nullopt);
  EXPECT_EQ(store_.verifyBackup(record), expected);
  UndoRecord longer = record;
  ++longer.originalBytes;
  EXPECT_EQ(textOf([&] { store_.verifyBackup(longer); }), "原图备份已损坏，无法恢复或对比");
  const auto size = static_cast<std::size_t>(record.originalBytes);
  files::writeAtomically(store_.backupURL(record), std::string(size, 'x'));
  EXPECT_EQ(textOf([&] { store_.verifyBackup(record); }), "图片无法解码");
}

TEST_F(UndoStoreTest, RestoresNothingOfAConversionWhereSomethingElseStands) {
  const URL photo = folder_.write("photo.heic", "heic"), converted = folder_.write("photo.png", "png");
  const UndoRecord record = store_.prepare(photo, converted, UUID::random(), converted.path());
  folder_.write("photo.png", "edited");
  files::removeItem(photo);
  EXPECT_THROW(store_.restore(record), CompressionError);
  EXPECT_FALSE(files::exists(photo)) << "brought back although the other file may not go";
  EXPECT_EQ(files::read(converted), "edited");
  folder_.write("photo.png", "png");
  folder_.write("photo.heic", "another");
  EXPECT_THROW(store_.restore(record), CompressionError);
  EXPECT_EQ(files::read(photo), "another");
}

TEST_F(UndoStoreTest, ListsNewestFirstAndSkipsWhatIsNoRecord) {
  EXPECT_TRUE(store_.readRecords().empty());  // no root yet
  store_.removeAll();
  EXPECT_THROW(UndoStore(folder_.write("file", "")).readRecords(), FileError);
  const UndoRecord older = plant(10, 1), newer = plant(20, 1);
  folder_.write("Undo/file.json", newer.json());
  folder_.write("Undo/other/notes.json", "{}");
  folder_.write("Undo/other/" + older.id.string() + ".JSON", older.json());
  EXPECT_EQ(store_.readRecords(), (std::vector{newer, older}));

  // Like a record that goes between listing and reading.
  ASSERT_EQ(symlink("gone", (folder_ / "Undo/other/gone.json").path().c_str()), 0);
  EXPECT_EQ(store_.readRecords().size(), 2U);

  // What cannot be read stops the strict listing only. (A directory, since root reads every file.)
  files::createDirectory(folder_ / "Undo/other/x.json");
  EXPECT_THROW(store_.readRecords(), FileError);
  EXPECT_THROW(store_.removeAll(), FileError);
  EXPECT_EQ(store_.records().size(), 2U);
  files::removeItem(folder_ / "Undo/other");
  EXPECT_EQ(store_.readRecords().size(), 2U);
  files::createDirectory(folder_ / "Undo/closed", 0);
  for (const char* open : {"", "Undo"}) chmod((folder_ / open).path().c_str(), 0755);
  setfsuid(65534);  // in the eyes of root nothing is closed
  EXPECT_THROW(store_.readRecords(), FileError);
  EXPECT_NO_THROW(store_.records());
  setfsuid(geteuid());
}

TEST_F(UndoStoreTest, RemovesCommittedRecordsOnly) {
  const UndoRecord prepared = plant(1, 1, UndoRecord::State::prepared);
  plant(2, 1);
  plant(3, 1);
  std::vector<UndoRecord> stay;
  for (const double createdAt : {5.0, 4.0}) {  // the newest, and so the first
    stay.push_back(plant(createdAt, 1));
    stay.back().backupName = std::string(300, 'n');
    store_.commit(stay.back());
  }
  stay.push_back(prepared);
  EXPECT_THROW(store_.removeAll(), CompressionError);
  EXPECT_EQ(store_.records(), stay);
  EXPECT_TRUE(hasBackup(prepared));
  EXPECT_EQ(sessions(), 3U);
}

TEST(UndoRecord, RoundTripsAndRefusesWhatWeNeverWrite) {
  UndoRecord record;
  record.id = UUID::random();
  record.createdAt = {12.25};
  record.originalPath = "/a/照片/\xF0\x28.heic";
  record.backupName = "x.heic";
  record.replacementHash = "ab";
  record.convertedPath = "/a/b.png";
  const std::string text = record.json();
  EXPECT_EQ(UndoRecord::parse(text), record);
  EXPECT_EQ(text.find("originalHash"), std::string::npos);
  record.originalHash = "cd";
  EXPECT_EQ(UndoRecord::parse(record.json()), record);

  const auto changed = [&](const std::string& from, const std::string& to) {
    std::string copy = text;
    const auto at = copy.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return UndoRecord::parse(copy.replace(at, from.size(), to));
  };
  EXPECT_TRUE(changed("{", "{\"unknown\":[1],"));
  EXPECT_TRUE(changed("\"/a/b.png\"", "null"));
  // Of the path's exact bytes "L2Ev" is the beginning, "/a/".
  for (const char* noBytes : {"0,\"x\":\"", "\"!"})
    EXPECT_EQ(changed("\"L2Ev", noBytes).value().originalPath, repairedUTF8(record.originalPath)) << noBytes;
  EXPECT_FALSE(changed("L2Ev", "YWFh")) << "no absolute path";
  const std::pair<std::string, std::string> refused[] = {
      {"prepared", "Prepared"},       {"\"x.heic\"", "\"../x.heic\""},
      {"\"x.heic\"", "\"a/b\""},      {"\"x.heic\"", "\"..\""},
      {"\"x.heic\"", "\"\""},         {"\"x.heic\"", "\".\""},
      {"\"x.heic\"", "\"x\\u0000\""}, {"/a/b.png", "/a\\u0000b.png"},
      {"/a/b.png", "b.png"},          {"\"originalBytes\":0", "\"originalBytes\":\"0\""},
      {"12.25", "\"now\""},           {record.id.string(), "no-uuid"}};
  for (const auto& [from, to] : refused) EXPECT_FALSE(changed(from, to)) << to;
  for (const char* bad : {"", "[]", "null", "{\"id\":1}"}) EXPECT_FALSE(UndoRecord::parse(bad)) << bad;
}

TEST(AtomicRename, ReplacesOrRefuses) {
  for (const bool exclusive : {true, false}) {
    SCOPED_TRACE(exclusive ? "exclusive rename" : "link");
    test::Faults faults;
    if (!exclusive) faults.refuseExclusive();
    const test::TemporaryFolder folder;
    const URL a = folder.write("a", "a"), b = folder.write("b", "b");
    EXPECT_FALSE(atomicRenameIfAbsent(a, b));
    EXPECT_EQ(files::read(b), "b");
    atomicRename(a, b);
    EXPECT_EQ(files::read(b), "a");
    EXPECT_TRUE(atomicRenameIfAbsent(b, folder / "c"));
    EXPECT_FALSE(files::exists(b));
    const URL c = folder / "c";
    EXPECT_EQ(textOf([&] { atomicRename(c, folder / "no/d"); }), "替换文件失败：No such file or directory");
    EXPECT_EQ(textOf([&] { atomicRenameIfAbsent(c, folder / "no/d"); }),
              "保存 PNG 失败：No such file or directory");
  }
}

TEST(AtomicRename, KnowsWhatAFileSystemDoesNotOffer) {
  const test::TemporaryFolder folder;
  const URL a = folder.write("a", "a"), b = folder / "b";
  const std::pair<int, std::optional<Exchange>> answers[] = {{EINVAL, Exchange::unsupported},
                                                             {ENOSYS, Exchange::unsupported},
                                                             {ENOTSUP, Exchange::unsupported},
                                                             {ENOENT, Exchange::vanished},
                                                             {EIO, std::nullopt}};
  for (const auto& [code, expected] : answers) {
    folder.write("a", "a");
    files::removeItemIfPossible(b);
    std::optional<Exchange> outcome;
    test::Faults faults;
    for (const int point : {1, 2}) faults.fail(point, code, false, test::FileCall::moves);
    EXPECT_EQ(textOf([&] { outcome = atomicExchange(a, b); }) == "no error", expected.has_value());
    EXPECT_EQ(outcome, expected);
    const bool isMissing = expected == Exchange::unsupported;
    EXPECT_EQ(textOf([&] { atomicRenameIfAbsent(a, b); }) == "no error", isMissing);
    EXPECT_EQ(files::exists(b) && !files::exists(a), isMissing) << "linked instead";
  }
  for (const bool isOurs : {true, false}) {  // whether it was us who took the name, and the answer was lost
    test::Faults faults;
    faults.refuseExclusive();
    folder.write("a", "a");
    files::removeItemIfPossible(b);
    ASSERT_TRUE(!isOurs || link(a.path().c_str(), b.path().c_str()) == 0);
    if (!isOurs) faults.fail(1, EEXIST, false, test::FileCall::moves);
    EXPECT_EQ(atomicRenameIfAbsent(a, b), isOurs);
    EXPECT_EQ(files::exists(a), !isOurs);
  }
}

}  // namespace
}  // namespace tidewell
