// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <map>

#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/queue/ExecutionPermit.h"
#include "TidewellDesktop/models/BatchFollower.h"
#include "desktop/PrivateBus.h"

namespace tidewell::desktop {
namespace {

using test::eventually;
using test::TemporaryFolder;
using State = UndoRecord::State;

/// A service of which only what it writes is there.
class CoreFollower : public testing::Test {
 protected:
  CoreFollower() {
    QObject::connect(&follower, &BatchFollower::updated, [this](const std::vector<FileRow>& changed) {
      for (const FileRow& row : changed) rows[row.url.lastPathComponent()] = row;
    });
  }

  void start(const std::vector<std::string>& names, Date startedAt = Date::now()) {
    std::vector<FileRow> files;
    files.reserve(names.size());
    for (const auto& name : names) files.push_back({.url = folder / name, .before = 1000});
    follower.start(files, startedAt);
  }

  UndoRecord record(const std::string& name, State state = State::committed) {
    UndoRecord record;
    record.id = UUID::random();
    record.sessionID = batch;
    record.createdAt = Date::now();
    record.originalPath = (folder / name).path();
    record.backupName = record.id.string() + ".jpg";
    record.replacementHash = "0";
    record.originalBytes = 1000;
    record.replacementBytes = 400;
    record.state = state;
    write(record);
    return record;
  }
  void write(const UndoRecord& record) {
    files::createDirectories(places.store.root().appending(record.sessionID.string()));
    files::writeAtomically(places.store.recordURL(record), record.json(), files::Durability::cached);
  }

  void report(const std::string& name, const std::string& outcome, Date startedAt = Date::now()) {
    CompressionTrace trace(folder / name, startedAt);
    trace.outcome = outcome;
    if (outcome == "replaced") {
      trace.selectedEncoder = "cjpegli";
      trace.append({"cjpegli", "rejected", "quality_below_threshold", 300, 20.0, {}});
      trace.append({"cjpegli", "accepted", "validated", 400, 81.5, {}});
    }
    if (outcome == "failed")
      trace.append({"cjpegli", "error", "component_error", {}, {}, "缺少压缩组件：cjpegli"});
    ReportDirectory directory(places.store.diagnosticsDirectory());
    trace.save(directory);
  }

  using Item = BackgroundBatchResult::Item;
  void result(const std::vector<Item>& items, const UUID& session) {
    BackgroundBatchResult latest{.sessionID = session, .finishedAt = Date::now(), .items = items};
    for (Item& item : latest.items) item.path = (folder / item.path).path();
    files::createDirectories(places.latestResult.deletingLastPathComponent());
    files::writeAtomically(places.latestResult, latest.json(), files::Durability::cached);
  }

  bool becomes(const std::string& name, RowState state) {
    return eventually([&] { return rows.contains(name) && rows[name].state == state; });
  }

  TemporaryFolder folder;
  BatchFollower::Places places{.store = UndoStore(folder / "data/Tidewell/Undo"),
                               .latestResult = folder / "data/Tidewell/Background/latest.json",
                               .locks = folder / "data/locks"};
  BatchFollower follower{places};
  QSignalSpy ended{&follower, &BatchFollower::ended};
  UUID batch = UUID::random();
  std::map<std::string, FileRow> rows;
};

TEST_F(CoreFollower, TellsOfEachFileAsItEnds) {
  start({"a.jpg", "b.jpg", "c.heic", "d.jpg", "e.jpg", "x/../\xff.jpg", "./y/../e.jpg"});
  follower.taken(":1.7");
  { const ExecutionPermit permit(places.locks, CompressionQueue::fileIdentity(folder / "a.jpg"), 2); }
  EXPECT_TRUE(becomes("a.jpg", RowState::working));
  report("a.jpg", "skipped", Date::now().adding(-60));  // of a job before ours
  UndoRecord prepared = record("a.jpg", State::prepared);
  prepared.state = State::committed;
  write(prepared);
  report("a.jpg", "replaced");
  EXPECT_TRUE(eventually([&] { return rows["a.jpg"].score.has_value(); }));
  EXPECT_EQ(rows["a.jpg"].state, RowState::replaced);
  EXPECT_EQ(rows["a.jpg"].after, 400);
  EXPECT_EQ(rows["a.jpg"].score, 81.5);
  EXPECT_EQ(rows["a.jpg"].encoder, "cjpegli");
  EXPECT_EQ(rows["a.jpg"].record, prepared.id);
  EXPECT_EQ(follower.batches(), std::vector{batch});

  report("b.jpg", "skipped");
  EXPECT_TRUE(becomes("b.jpg", RowState::skipped));
  EXPECT_EQ(rows["b.jpg"].why, "nothing smaller was found");
  UndoRecord conversion = record("c.heic", State::prepared);
  conversion.convertedPath = (folder / "c.png").path();
  conversion.state = State::committed;
  write(conversion);
  EXPECT_TRUE(becomes("c.heic", RowState::converted));
  record("d.jpg", State::prepared);
  report("d.jpg", "failed");  // rolled back
  EXPECT_TRUE(becomes("d.jpg", RowState::failed));
  EXPECT_FALSE(rows["d.jpg"].record);
  EXPECT_EQ(rows["d.jpg"].why, "A compression tool is missing: cjpegli");

  // Another program's batch, with files of ours in it and others.
  result({{"e.jpg", "failed", {}, {}, "x"}, {"z.jpg", "failed", {}, {}, {}}}, UUID::random());
  follower.readLatestResult();
  QTest::qWait(150);
  EXPECT_FALSE(rows.contains("e.jpg"));
  result({{"d.jpg", "failed", {}, {}, "图片无法解码"},
          {"c.heic", "converted", 1000, 1200, {}},
          {"e.jpg", "failed", {}, {}, "无法读取“e.jpg”：没有访问权限"},
          {"\xff.jpg", "skipped", 5, 5, {}}},
         batch);
  EXPECT_TRUE(eventually([&] { return !ended.isEmpty(); }));
  EXPECT_EQ(rows["e.jpg"].why, "Cannot read “e.jpg”: access is not permitted");
  EXPECT_EQ(rows["c.heic"].savedBytes(), 0);
  EXPECT_EQ(rows["\xff.jpg"].state, RowState::skipped);
  EXPECT_FALSE(follower.isFollowing());
}

TEST_F(CoreFollower, EndsWithTheServiceAndBelievesWhatItStillWrote) {
  start({"done.jpg", "half.jpg", "untouched.jpg"}, Date::now().adding(3600));  // the clock is set back
  follower.taken(":1.7");
  start({"later.jpg"});
  follower.taken(":1.9");
  record("done.jpg");
  record("half.jpg", State::prepared);
  follower.vanished(":1.7");
  EXPECT_TRUE(becomes("untouched.jpg", RowState::failed));
  EXPECT_EQ(rows["done.jpg"].state, RowState::replaced);
  EXPECT_EQ(rows["half.jpg"].state, RowState::failed);
  EXPECT_TRUE(rows["half.jpg"].record) << "what can be restored stays known";
  EXPECT_FALSE(rows.contains("later.jpg"));
  EXPECT_TRUE(ended.isEmpty());

  start({"refused.jpg"});
  follower.refused("no");
  EXPECT_EQ(rows["refused.jpg"].why, "no");
  start({"stopped.jpg"});
  follower.taken(":1.9");
  follower.stopped();
  files::removeItem(folder / "data");  // and all that is watched in it
  QTest::qWait(100);
  report("later.jpg", "skipped");
  EXPECT_TRUE(eventually([&] { return !ended.isEmpty(); }));
  EXPECT_EQ(rows["later.jpg"].state, RowState::skipped);
  EXPECT_EQ(rows["stopped.jpg"].state, RowState::waiting) << "it is as it was";
}

TEST_F(CoreFollower, EndsWhileItStillReads) {
  for (int session = 0; session < 50; ++session) {
    batch = UUID::random();
    record("another.jpg");
  }
  start({"refused.jpg"});
  follower.vanished(":1.7");
  QTest::qSleep(100);
  QCoreApplication::processEvents();  // it begins to read all that
  follower.refused("no");
  EXPECT_EQ(ended.count(), 1);
  QTest::qWait(100);
  EXPECT_EQ(rows["refused.jpg"].why, "no");
  EXPECT_EQ(ended.count(), 1);
}

TEST(CoreFollowedFiles, BeginWithTheirLockHoweverLateItIsKnown) {
  FollowedFiles files;
  const int first = files.start({{.url = URL::file("/a.jpg")}}, Date::now());
  files.begin("a");
  EXPECT_FALSE(files.hasChanges());
  files.learnLocks(first, {"a"});
  EXPECT_EQ(files.takeChanges().at(0).state, RowState::working);
  files.refused("no");
  EXPECT_EQ(files.takeChanges().at(0).why, "no");
  EXPECT_FALSE(files.isFollowing());

  files.start({{.url = URL::file("/b.jpg")}}, Date::now());
  files.learnLocks(first, {"late"});
  files.begin("late");
  EXPECT_FALSE(files.hasChanges()) << "the lock of a file that is followed no more";
}

}  // namespace
}  // namespace tidewell::desktop
