// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QAbstractItemModelTester>
#include <QLabel>
#include <QMessageBox>
#include <QPersistentModelIndex>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeView>
#include <random>
#include <tuple>

#include "CompressionKit/platform/Digest.h"
#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/history/HistoryPage.h"
#include "TidewellDesktop/history/UndoWorker.h"
#include "support/TemporaryFolder.h"

namespace tidewell::desktop {
namespace {

constexpr double hour = 3600;

class HistoryTest : public testing::Test {
 protected:
  /// A picture that was replaced so many seconds ago.
  UndoRecord replaced(const std::string& name, double age = 0, const UUID& batch = UUID::random()) {
    const URL picture = folder_.write("pictures/" + name, "what it is now");
    const URL session = store_.root().appending(batch.string());
    UndoRecord record;
    record.id = UUID::random();
    record.sessionID = batch;
    record.createdAt = Date::now().adding(-age);
    record.originalPath = picture.path();
    record.originalBytes = 18;
    record.replacementBytes = 14;
    record.replacementHash = hash(picture);
    record.state = UndoRecord::State::committed;
    record.backupName = record.id.string() + ".jpg";
    files::createDirectories(session);
    files::writeAtomically(store_.backupURL(record), "what it was before", files::Durability::cached);
    record.originalHash = hash(store_.backupURL(record));
    write(record);
    return record;
  }
  void write(const UndoRecord& record) {
    files::writeAtomically(store_.recordURL(record), record.json(), files::Durability::cached);
  }
  static bool isLoaded(HistoryModel& model) {
    model.reload();
    return QTest::qWaitFor([&] { return model.isLoaded(); });
  }
  /// What a cell says once it has been found out.
  static std::string text(const QModelIndex& index, int column) {
    std::ignore = QTest::qWaitFor(
        [&] { return !index.siblingAtColumn(HistoryModel::State).data().toString().isEmpty(); }, 2000);
    return index.siblingAtColumn(column).data().toString().toStdString();
  }
  static std::vector<UUID> ids(const HistoryModel& model) {
    std::vector<UUID> all;
    for (int row = 0; row < model.rowCount(); ++row) {
      for (const auto& record : model.records(model.index(row, 0))) all.push_back(record.id);
    }
    return all;
  }
  std::string read(const UndoRecord& record) { return files::read(URL::file(record.originalPath)); }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment data_{"XDG_DATA_HOME", (folder_ / "data").path().c_str()};
  UndoStore store_;
};

TEST_F(HistoryTest, RowsFollowAnyChangeOfTheList) {
  std::mt19937 random(7);
  std::vector<UUID> pool(30);
  std::ranges::generate(pool, UUID::random);
  for (int round = 0; round < 300; ++round) {
    std::vector<UUID> old, fresh;
    for (const auto& id : pool) {
      if (random() % 3 != 0) old.push_back(id);
      if (random() % 3 != 0) fresh.push_back(id);
    }
    const bool isMoved = round % 10 == 0 && fresh.size() > 1 && std::ranges::count(old, fresh.front()) == 1 &&
                         std::ranges::count(old, fresh.back()) == 1;
    if (isMoved) std::swap(fresh.front(), fresh.back());
    const auto changes = rowChanges(old, fresh);
    ASSERT_EQ(changes.has_value(), !isMoved) << round;
    if (isMoved) continue;
    for (const auto& [isInsertion, at, count] : *changes) {
      const auto first = static_cast<std::ptrdiff_t>(at), last = first + static_cast<std::ptrdiff_t>(count);
      if (isInsertion) {
        old.insert(old.begin() + first, fresh.begin() + first, fresh.begin() + last);
      } else {
        old.erase(old.begin() + first, old.begin() + last);
      }
    }
    ASSERT_EQ(old, fresh) << round;
  }
}

TEST_F(HistoryTest, ModelFollowsTheStoreAndKeepsThePlace) {
  const UUID batch = UUID::random();
  const auto a = replaced("a.jpg", 100, batch), b = replaced("b.jpg", 200, batch),
             old = replaced("old.jpg", 900);
  HistoryModel model(store_);
  const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  EXPECT_EQ(model.rowCount(), 0);
  ASSERT_TRUE(isLoaded(model));
  EXPECT_EQ(ids(model), (std::vector{a.id, b.id, old.id}));
  const QPersistentModelIndex place(model.indexOf(batch, b.id));
  QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
  // Nobody asks it to: other programs write.
  const auto c = replaced("c.jpg", 50, batch), fresh = replaced("fresh.jpg", 10);
  EXPECT_TRUE(QTest::qWaitFor([&] { return ids(model).size() == 5; }));
  EXPECT_EQ(ids(model), (std::vector{fresh.id, c.id, a.id, b.id, old.id}));
  EXPECT_EQ(place.data(HistoryModel::RecordRole).value<UndoRecord>().id, b.id);
  store_.deleteRecord(a);
  store_.deleteRecord(old);
  EXPECT_TRUE(QTest::qWaitFor([&] { return ids(model).size() == 3; }));
  EXPECT_EQ(ids(model), (std::vector{fresh.id, c.id, b.id}));
  EXPECT_EQ(place.row(), 1);
  EXPECT_EQ(resets.count(), 0);
}

TEST_F(HistoryTest, SizesOfABatchLeaveOutWhatGrewBesideOthers) {
  const UUID mixed = UUID::random();
  replaced("a.jpg", 10, mixed);
  for (auto grown : {replaced("b.heic", 20, mixed), replaced("c.heic", 900)}) {
    grown.convertedPath = grown.originalPath + ".png";
    grown.replacementBytes = 27;
    write(grown);
  }
  const HistoryBatches batches = batchesOf(History(store_));
  ASSERT_EQ(batches.size(), 2U);
  EXPECT_EQ(std::pair(batches[0]->before, batches[0]->after), std::pair(18L, 14L));
  EXPECT_EQ(std::pair(batches[1]->before, batches[1]->after), std::pair(18L, 27L));
}

TEST_F(HistoryTest, StoreThatCannotBeReadIsSaidAndComesBack) {
  const auto record = replaced("a.jpg");
  const URL root = store_.root(), aside = folder_ / "aside";
  ASSERT_EQ(rename(root.path().c_str(), aside.path().c_str()), 0);
  files::writeAtomically(root, "no folder", files::Durability::cached);
  HistoryModel model(store_);
  model.reload();
  EXPECT_TRUE(QTest::qWaitFor([&] { return !model.problem().isEmpty(); }));
  files::removeItem(root);
  ASSERT_EQ(rename(aside.path().c_str(), root.path().c_str()), 0);
  // A record that is none is passed over.
  files::writeAtomically(root.appending(record.sessionID.string()).appending("cut.json"),
                         record.json().substr(0, 40), files::Durability::cached);
  model.reload();
  EXPECT_TRUE(QTest::qWaitFor([&] { return model.rowCount() == 1 && model.problem().isEmpty(); }));
  EXPECT_EQ(ids(model), std::vector{record.id});
  const QPersistentModelIndex cell(model.indexOf(record.sessionID, record.id));
  EXPECT_EQ(text(cell, HistoryModel::TimeLeft), "4 h 0 min");
  ASSERT_EQ(rename(root.path().c_str(), aside.path().c_str()), 0);
  files::writeAtomically(root, "no folder", files::Durability::cached);
  model.reload();
  EXPECT_TRUE(QTest::qWaitFor([&] { return !model.problem().isEmpty(); }));
  text(cell, HistoryModel::State);
  QTest::qWait(100);
  EXPECT_NE(text(cell, HistoryModel::State), "expired") << "nobody can know";
}

TEST_F(HistoryTest, CellsSayWhatCanBeDoneAndForHowLong) {
  const UUID batch = UUID::random();
  const auto fine = replaced("fine.jpg", 10, batch), edited = replaced("edited.jpg", 20, batch),
             missing = replaced("missing.jpg", 30, batch), bare = replaced("bare.jpg", 40, batch);
  folder_.write("pictures/edited.jpg", "another thing");
  files::removeItem(URL::file(missing.originalPath));
  files::removeItem(store_.backupURL(bare));
  HistoryModel model(store_);
  const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  ASSERT_TRUE(isLoaded(model));
  Date now = Date::now();
  model.setClock([&] { return now; });
  const struct {
    std::optional<UUID> record;
    double later;
    std::string state, left;
  } rows[] = {
      {fine.id, 0, "restorable until", "4 h 0 min"},
      {fine.id, 1 * hour, "restorable until", "3 h 0 min"},
      {fine.id, 4 * hour - 50, "restorable until", "50 s"},
      {fine.id, -2 * hour, "restorable until", "6 h 0 min"},  // the clock was set back
      {fine.id, 4 * hour, "expired, backup can be copied out", ""},
      {edited.id, 0, "edited since, backup can be copied out", ""},
      {missing.id, 0, "file is missing, restorable until", "3 h 59 min"},
      {missing.id, 4 * hour, "file is missing", ""},
      {bare.id, 0, "expired", ""},
      {std::nullopt, 0, "2 of 4 can be restored", "3 h 59 min"},
      {std::nullopt, 4 * hour, "nothing can be restored", ""},
  };
  for (const auto& [record, later, state, left] : rows) {
    now = fine.createdAt.adding(later);
    model.setClock([&] { return now; });
    const QModelIndex index = model.indexOf(batch, record);
    text(index, HistoryModel::State);
    QTest::qWait(50);
    EXPECT_EQ(text(index, HistoryModel::State).substr(0, state.size()), state) << later;
    EXPECT_EQ(text(index, HistoryModel::TimeLeft), left) << state << later;
  }
}

TEST_F(HistoryTest, CountdownTicksWhileSeenOnly) {
  const auto record = replaced("a.jpg", 4 * hour - 30);
  HistoryModel model(store_);
  ASSERT_TRUE(isLoaded(model));
  const QModelIndex index = model.indexOf(record.sessionID, record.id);
  QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
  text(index, HistoryModel::TimeLeft);
  QTest::qWait(700);  // the folders are watched by now
  changes.clear();
  QTest::qWait(1200);
  EXPECT_EQ(changes.count(), 0);
  model.setVisible(true);
  const auto shown = text(index, HistoryModel::TimeLeft);
  changes.clear();
  QTest::qWait(2300);
  EXPECT_GE(changes.count(), 2);
  EXPECT_NE(text(index, HistoryModel::TimeLeft), shown);
}

TEST_F(HistoryTest, WorkerSaysWhatBecameOfEachRecord) {
  const auto fine = replaced("fine.jpg"), edited = replaced("edited.jpg"), bare = replaced("bare.jpg"),
             damaged = replaced("damaged.jpg"), late = replaced("late.jpg", 5 * hour),
             gone = replaced("gone.jpg");
  folder_.write("pictures/edited.jpg", "another thing");
  files::removeItem(store_.backupURL(bare));
  files::writeAtomically(store_.backupURL(damaged), "what it wXs before", files::Durability::cached);
  store_.deleteRecord(gone);
  UndoWorker worker(store_);
  QSignalSpy finished(&worker, &UndoWorker::finished), progressed(&worker, &UndoWorker::progressed);
  const auto outcome = [&](auto wish) {
    wish();
    EXPECT_TRUE(worker.isBusy());
    EXPECT_TRUE(finished.wait());
    const auto summary = finished.takeLast().first().value<UndoSummary>();
    return (QStringList{summary.text()} + summary.problems + summary.notes)
        .join(QLatin1Char('|'))
        .toStdString();
  };
  const auto restored = outcome([&] { worker.restore({late, gone, damaged, bare, edited, fine}); });
  for (const std::string part :
       {"1 file restored, 4 were not possible|", "fine.jpg", "edited since and stays as it is; its",
        "The backup of", "is gone", "is damaged", "It is too late to restore", "its record is gone"}) {
    EXPECT_EQ(restored.find(part) != restored.npos, part != "fine.jpg") << part << ": " << restored;
  }
  EXPECT_EQ(progressed.count(), 7);
  EXPECT_EQ(read(fine), "what it was before");
  EXPECT_EQ(read(edited), "another thing");
  const URL out = folder_ / "out";
  EXPECT_NE(outcome([&] { worker.copyOut(late, out); }).find("0 backups copied, 1 was not possible"),
            std::string::npos);
  files::createDirectories(out);
  EXPECT_NE(outcome([&] { worker.copyOut(late, out); }).find("1 backup copied|"), std::string::npos);
  EXPECT_EQ(files::read(out.appending("late.jpg")), "what it was before");
  EXPECT_EQ(outcome([&] { worker.forget({late, edited}); }), "2 records forgotten");
  EXPECT_FALSE(files::exists(store_.backupURL(late)));
  EXPECT_EQ(read(edited), "another thing");
}

TEST_F(HistoryTest, PageAsksBeforeItForgetsAndOffersWhatIsPossible) {
  const UUID batch = UUID::random();
  const auto fine = replaced("fine.jpg", 10, batch), late = replaced("late.jpg", 5 * hour, batch);
  HistoryModel model(store_);
  UndoWorker worker(store_);
  HistoryPage page(model, worker);
  page.resize(900, 500);
  page.show();
  auto* view = page.findChild<QTreeView*>();
  EXPECT_TRUE(QTest::qWaitFor([&] { return view->isVisible() && view->isExpanded(model.index(0, 0)); }));
  const auto enabled = [&] {
    std::string buttons;
    for (const auto* button : page.findChildren<QPushButton*>()) {
      EXPECT_FALSE(button->text().isEmpty());
      if (button->isVisible() && button->isEnabled())
        buttons += button->text().remove(QLatin1Char('&')).toStdString() + ' ';
    }
    return buttons;
  };
  const struct {
    QModelIndex row;
    std::string buttons;
  } rows[] = {{model.indexOf(batch, fine.id), "Restore Restore batch Compare Explain Copy out… Forget "},
              {model.indexOf(batch, late.id), "Restore batch Compare Explain Copy out… Forget "},
              {model.indexOf(batch), "Restore Restore batch Forget "}};
  for (const auto& one : rows) {
    view->setCurrentIndex(one.row);
    EXPECT_TRUE(QTest::qWaitFor([&] { return enabled() == one.buttons; }, 2000)) << enabled();
  }
  for (const bool isConfirmed : {false, true}) {
    view->setCurrentIndex(model.indexOf(batch, late.id));
    page.activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&page));
    view->setFocus();
    QTest::keyClick(view, Qt::Key_Delete);
    auto* box = page.findChild<QMessageBox*>();
    ASSERT_TRUE(box) << isConfirmed;
    EXPECT_TRUE(files::exists(store_.recordURL(late)));
    if (isConfirmed) {
      for (auto* button : box->buttons()) {
        if (box->buttonRole(button) == QMessageBox::DestructiveRole) button->click();
      }
    } else {
      QTest::keyClick(box, Qt::Key_Return);  // what a hasty hand does harms nothing
    }
    QTest::qWait(100);
    EXPECT_TRUE(QTest::qWaitFor([&] { return files::exists(store_.recordURL(late)) != isConfirmed; }, 2000));
  }
  EXPECT_TRUE(QTest::qWaitFor([&] { return !worker.isBusy(); }));
  // The folder of the pictures vanishes: the restore says so, and the record stays.
  ASSERT_EQ(rename((folder_ / "pictures").path().c_str(), (folder_ / "elsewhere").path().c_str()), 0);
  QSignalSpy finished(&worker, &UndoWorker::finished);
  worker.restore({fine});
  EXPECT_TRUE(finished.wait());
  EXPECT_EQ(finished.first().first().value<UndoSummary>().problems.size(), 1);
  EXPECT_TRUE(files::exists(store_.backupURL(fine)));
}

}  // namespace
}  // namespace tidewell::desktop
