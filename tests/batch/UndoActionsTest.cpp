// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/UndoActions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using State = History::State;
using Outcome = UndoActions::Outcome;

constexpr double late = UndoStore::backupRetention + 1;

class UndoActionsTest : public testing::Test {
 protected:
  enum class Until { prepared, swapped, committed };

  /// What the engine does with photo.jpg, or with photo.heic and a photo.png beside it.
  UndoRecord replace(const URL& original, std::string_view bytes, Until until = Until::committed,
                     const UUID& batch = UUID::random()) {
    const URL candidate = folder_.write("work/candidate", bytes);
    const bool converts = original.pathExtension() == "heic";
    const URL target =
        converts ? original.deletingLastPathComponent().appending(original.stem() + ".png") : original;
    auto record =
        store_.prepare(original, candidate, batch, converts ? std::optional(target.path()) : std::nullopt);
    if (until != Until::prepared) atomicRename(candidate, target);
    if (until != Until::committed) return record;
    store_.commit(record);
    record.state = UndoRecord::State::committed;
    return record;
  }
  /// So that the file's change time, of a few milliseconds' grain, is later than what was before.
  static void overwrite(const URL& file, std::string_view bytes) {
    usleep(20'000);
    files::writeAtomically(file, bytes, files::Durability::cached);
  }
  std::string read(const std::string& name) { return files::read(folder_ / name); }
  State state(const UndoRecord& record, double age) {
    const History history(store_);
    return history.state(history.selectOne(record.id.string()), record.createdAt.adding(age));
  }

  test::TemporaryFolder folder_;
  UndoStore store_{folder_ / "data/Undo"};
  CompressionQueue queue_{1, folder_ / "locks"};
  UndoActions actions_{store_, queue_};
};

// What the history says of a record by the look of its files, what a restore then finds, and that asking for
// it removed no backup.
TEST_F(UndoActionsTest, JudgesAndRestoresARecord) {
  struct Case {
    const char* name;
    const char* original;
    Until until = Until::committed;
    double age = 1;
    std::function<void(const URL& original, const URL& backup)> then = [](const URL&, const URL&) {};
    State state;
    Outcome outcome;
  };
  const auto nothing = [](const URL&, const URL&) {};
  const auto png = [](const URL& original) {
    return original.deletingLastPathComponent().appending("photo.png");
  };
  const std::vector<Case> cases = {
      {"fresh", "photo.jpg", Until::committed, 1, nothing, State::restorable, Outcome::done},
      {"fresh conversion", "photo.heic", Until::committed, 1, nothing, State::restorable, Outcome::done},
      {"in the last second", "photo.jpg", Until::committed, late - 2, nothing, State::restorable,
       Outcome::done},
      {"expired", "photo.jpg", Until::committed, late, nothing, State::expired, Outcome::expired},
      {"backup gone", "photo.jpg", Until::committed, 1,
       [](const URL&, const URL& backup) { files::removeItem(backup); }, State::expired,
       Outcome::backupMissing},
      {"backup damaged", "photo.jpg", Until::committed, 1,
       [](const URL&, const URL& backup) { overwrite(backup, "original Bytes"); }, State::restorable,
       Outcome::backupDamaged},
      {"removed", "photo.jpg", Until::committed, 1,
       [](const URL& original, const URL&) { files::removeItem(original); }, State::missing, Outcome::done},
      {"edited", "photo.jpg", Until::committed, 1,
       [](const URL& original, const URL&) { overwrite(original, "more than it was"); }, State::edited,
       Outcome::edited},
      {"edited in its length", "photo.jpg", Until::committed, 1,
       [](const URL& original, const URL&) { overwrite(original, "smalleR"); }, State::edited,
       Outcome::edited},
      {"edited and expired", "photo.jpg", Until::committed, late,
       [](const URL& original, const URL&) { overwrite(original, "smalleR"); }, State::edited,
       Outcome::expired},
      {"a link in its place", "photo.jpg", Until::committed, 1,
       [](const URL& original, const URL&) {
         files::removeItem(original);
         ASSERT_EQ(symlink("/dev/null", original.path().c_str()), 0);
       },
       State::edited, Outcome::edited},
      {"conversion removed", "photo.heic", Until::committed, 1,
       [&](const URL& original, const URL&) { files::removeItem(png(original)); }, State::missing,
       Outcome::done},
      {"conversion edited", "photo.heic", Until::committed, 1,
       [&](const URL& original, const URL&) { overwrite(png(original), "smalleR"); }, State::edited,
       Outcome::edited},
      {"its original removed", "photo.heic", Until::committed, 1,
       [](const URL& original, const URL&) { files::removeItem(original); }, State::restorable,
       Outcome::done},
      {"its original edited", "photo.heic", Until::committed, 1,
       [](const URL& original, const URL&) { overwrite(original, "original bytez"); }, State::edited,
       Outcome::edited},
      {"killed before the swap", "photo.jpg", Until::prepared, late, nothing, State::interrupted,
       Outcome::nothingToDo},
      {"killed after it", "photo.jpg", Until::swapped, 1, nothing, State::interrupted, Outcome::done},
      {"killed after it, too late", "photo.jpg", Until::swapped, late, nothing, State::interrupted,
       Outcome::expired},
      {"killed and edited", "photo.jpg", Until::swapped, 1,
       [](const URL& original, const URL&) { overwrite(original, "other"); }, State::edited, Outcome::edited},
      {"conversion killed before", "photo.heic", Until::prepared, 1, nothing, State::interrupted,
       Outcome::nothingToDo},
      {"conversion killed after", "photo.heic", Until::swapped, 1, nothing, State::interrupted,
       Outcome::done},
  };
  for (const auto& [name, file, until, age, then, state, outcome] : cases) {
    SCOPED_TRACE(name);
    files::removeItemIfPossible(folder_ / "photos");
    const URL original = folder_.write("photos/" + std::string(file), "original bytes");
    const UndoRecord record = replace(original, "smaller", until);
    const URL backup = store_.backupURL(record);
    then(original, backup);
    const bool hadBackup = files::exists(backup);
    EXPECT_EQ(History::rawValue(this->state(record, age)), History::rawValue(state));

    const Date now = record.createdAt.adding(age);
    EXPECT_EQ(actions_.check(record, nullptr, now).outcome, outcome);
    EXPECT_EQ(files::exists(backup), hadBackup);
    const auto result = actions_.restore(record, now);
    EXPECT_EQ(result.outcome, outcome);
    EXPECT_EQ(result.error != nullptr, outcome == Outcome::backupDamaged);
    if (outcome == Outcome::done) {
      EXPECT_EQ(files::read(original), "original bytes");
      EXPECT_FALSE(files::exists(backup));
      EXPECT_FALSE(files::exists(png(original)));
      EXPECT_EQ(actions_.restore(record, now).outcome, Outcome::nothingToDo) << "it is gone";
    } else {
      EXPECT_EQ(files::exists(backup), hadBackup);
      EXPECT_EQ(actions_.forget(record).outcome, Outcome::done);
      EXPECT_FALSE(files::exists(store_.recordURL(record)) || files::exists(backup));
    }
  }
}

TEST_F(UndoActionsTest, CopiesProvenBackupsBesideWhatIsThere) {
  const URL original = folder_.write("photo.jpg", "original bytes");
  const UndoRecord record = replace(original, "smaller");
  overwrite(original, "edited since");
  const URL out = folder_ / "out";
  files::createDirectory(out);
  for (const char* name : {"photo.jpg", "photo-2.jpg"}) {
    const auto result = actions_.copyOut(record, out);
    ASSERT_EQ(result.outcome, Outcome::done);
    EXPECT_EQ(result.file, out.appending(name));
    EXPECT_EQ(files::read(*result.file), "original bytes");
  }
  EXPECT_EQ(read("photo.jpg"), "edited since");
  const std::string longest(251, 'a');
  const UndoRecord ofLongName = replace(folder_.write(longest + ".jpg", "original bytes"), "smaller");
  for (const std::string& stem : {longest, longest.substr(2) + "-2"}) {
    EXPECT_EQ(actions_.copyOut(ofLongName, out).file, out.appending(stem + ".jpg"));
  }
  EXPECT_EQ(actions_.copyOut(record, folder_ / "missing").outcome, Outcome::failed);
  overwrite(store_.backupURL(record), "original Bytes");
  EXPECT_EQ(actions_.copyOut(record, out).outcome, Outcome::backupDamaged);
  EXPECT_EQ(files::namesInDirectory(out).size(), 4U);
}

TEST_F(UndoActionsTest, FindsRecordsByIDBatchAndPath) {
  const UUID first = *UUID::parse("AAAA0000-0000-4000-8000-000000000001"),
             second = *UUID::parse("AAAA1000-0000-4000-8000-000000000002");
  const URL a = folder_.write("photos/a.jpg", "one"), b = folder_.write("photos/deep/b.heic", "two"),
            c = folder_.write("photos2/c.jpg", "three");
  const auto oldA = replace(a, "on", Until::committed, first);
  const auto onlyB = replace(b, "tw", Until::committed, first);
  const auto newA = replace(a, "o", Until::committed, second),
             onlyC = replace(c, "t", Until::committed, second);
  folder_.write("data/Undo/" + first.string() + "/broken.json", "{}");
  const History history(store_);
  ASSERT_EQ(history.entries().size(), 4U);

  const auto selected = [&](const std::string& text) {
    std::vector<UUID> ids;
    for (const auto* entry : history.select(text).entries) ids.push_back(entry->record.id);
    return ids;
  };
  using IDs = std::vector<UUID>;
  const std::string folder = folder_.url().path();
  EXPECT_EQ(selected("latest"), (IDs{onlyC.id, newA.id}));
  EXPECT_EQ(selected("aaaa0"), (IDs{onlyB.id, oldA.id}));
  EXPECT_EQ(selected(onlyB.id.string()), IDs{onlyB.id});
  EXPECT_EQ(selected(folder + "/photos/./deep/../a.jpg"), (IDs{newA.id, oldA.id}));
  EXPECT_EQ(selected(folder + "/photos/deep/b.png"), IDs{onlyB.id});
  EXPECT_EQ(selected(folder + "/photos/"), (IDs{newA.id, onlyB.id, oldA.id}));
  EXPECT_EQ(history.selectOne(a.path()).record, history.selectOne(newA.id.string()).record);

  const auto candidates = [](const auto& question) {
    try {
      question();
    } catch (const SelectionError& error) {
      return static_cast<long>(error.candidates().size());
    }
    return -1L;
  };
  EXPECT_EQ(candidates([&] { selected("AAA"); }), 0) << "too short for an ID, and no file";
  EXPECT_EQ(candidates([&] { selected("ffff-ffff"); }), 0);
  EXPECT_EQ(candidates([&] { selected("aaaa"); }), 4);
  EXPECT_EQ(candidates([&] { history.selectOne("latest"); }), 2);
  EXPECT_EQ(candidates([&] { History(UndoStore(folder_ / "none")).select("latest"); }), 0);
  // Whatever links are on the way, when a file was recorded or is asked for.
  ASSERT_EQ(symlink("photos", (folder_ / "way").path().c_str()), 0);
  EXPECT_EQ(selected(folder + "/way/a.jpg"), (IDs{newA.id, oldA.id}));
  EXPECT_EQ(selected(folder + "/way"), (IDs{newA.id, onlyB.id, oldA.id}));
  EXPECT_EQ(selected(folder + "/photos/deep/../../way/deep/b.heic"), IDs{onlyB.id});
  // What is called like an ID is taken for neither.
  const std::string start = onlyB.id.string().substr(0, 8);
  EXPECT_EQ(selected(start), IDs{onlyB.id});
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  files::createDirectory(folder_ / start);
  EXPECT_EQ(candidates([&] { selected(start); }), 1);
  EXPECT_EQ(selected(onlyB.id.string()), IDs{onlyB.id});
  EXPECT_EQ(candidates([&] { selected("./" + start); }), 0);
  std::filesystem::current_path(previous);
  const auto order = [&](std::optional<Date> now) {
    return history.undoOrder(history.select(folder + "/photos"), now).size();
  };
  EXPECT_EQ(order(Date::now()), 3U);
  EXPECT_EQ(order(Date::now().adding(late)), 2U) << "what is too late below a newer one is out of reach";
  EXPECT_EQ(order(std::nullopt), 3U);
  overwrite(c, "edited");
  replace(c, "e");
  const History again(store_);
  EXPECT_EQ(again.undoOrder(again.select(c.path()), Date::now()).size(), 1U) << "what it was then is nowhere";
  // Two names of one file, of which the older's record stands under a link.
  replace(folder_.write("way/d.jpg", "first"), "f");
  overwrite(folder_ / "photos/d.jpg", "second");
  replace(folder_ / "photos/d.jpg", "s");
  const History both(store_);
  const auto ofD = both.select(folder + "/photos/d.jpg");
  EXPECT_EQ(ofD.entries.size(), 2U);
  EXPECT_EQ(both.undoOrder(ofD, Date::now()).size(), 1U);
  // An older replacement of a file fits below a newer one of the same bytes.
  EXPECT_EQ(actions_.check(oldA).outcome, Outcome::edited);
  EXPECT_EQ(actions_.check(oldA, &newA).outcome, Outcome::done);
  for (const auto& record : {newA, oldA}) EXPECT_EQ(actions_.restore(record).outcome, Outcome::done);
  EXPECT_EQ(read("photos/a.jpg"), "one");
}

TEST_F(UndoActionsTest, FindsTheNewestReportBeforeARecord) {
  const Date record = Date::since1970(1'700'000'010.0004);
  ReportDirectory reports(store_.diagnosticsDirectory());
  const auto save = [&](const char* source, double startedAt, const char* outcome) {
    CompressionTrace trace(URL::file(source), Date::since1970(startedAt));
    trace.outcome = outcome;
    trace.append({"cjpegli", "rejected", "not_smaller", 7, 61.5, std::nullopt});
    trace.save(reports);
  };
  const auto found = [&](const char* source) {
    const auto report = newestReport(store_.diagnosticsDirectory(), source, record);
    return report ? report->outcome : "none";
  };
  EXPECT_EQ(found("/a.jpg"), "none");
  save("/a.jpg", 1'700'000'000, "failed");
  save("/a.jpg", 1'700'000'010, "replaced");
  save("/a.jpg", 1'700'000'010.9, "skipped");
  save("/\xff.jpg", 1'700'000'005, "converted");
  folder_.write("data/CompressionDiagnostics/1700000010000-AB.json", "no report");
  EXPECT_EQ(found("/a.jpg"), "replaced");
  EXPECT_EQ(found("/\xff.jpg"), "converted");
  const auto report = newestReport(store_.diagnosticsDirectory(), "/a.jpg", record);
  ASSERT_EQ(report->attempts.size(), 1U);
  EXPECT_EQ(report->attempts[0].score, 61.5);
}

}  // namespace
}  // namespace tidewell
