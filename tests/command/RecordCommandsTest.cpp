// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/UndoStore.h"
#include "Tidewell/Commands.h"
#include "Tidewell/CompressReport.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class RecordCommands : public testing::Test {
 protected:
  struct Said {
    int status;
    std::string output, errors;
    bool operator==(const Said&) const = default;
  };
  using Command = std::function<int(Terminal&)>;

  Said said(const Command& command) {
    const auto open = [&](const char* name) {
      return Descriptor(
          ::open((folder_ / name).path().c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    };
    const Descriptor output = open("stdout"), errors = open("stderr");
    Terminal terminal(dup(output.get()), errors.get());
    const int status = terminal.finish(command(terminal));
    return {status, files::read(folder_ / "stdout"), files::read(folder_ / "stderr")};
  }
  static Command restore(const std::vector<std::string>& selectors, const std::optional<std::string>& to = {},
                         bool dryRun = false) {
    return [=](Terminal& terminal) {
      return runRestore({.dryRun = dryRun, .to = to, .selectors = selectors}, terminal);
    };
  }
  static Command explain(const std::string& selector, bool json = false) {
    return [=](Terminal& terminal) { return runExplain({.json = json, .selector = selector}, terminal); };
  }
  static Command compare(const std::vector<std::string>& selectors) {
    return [=](Terminal& terminal) { return runCompare({.output = {}, .selectors = selectors}, terminal); };
  }
  static Command forget(const std::string& selector, std::optional<double> olderThan = {}) {
    return [=](Terminal& terminal) {
      return runForget({.olderThan = olderThan, .selector = selector}, terminal);
    };
  }
  static Command history(const std::vector<std::string>& paths, std::optional<Date> since = {}) {
    return [=](Terminal& terminal) {
      return runHistory({.json = true, .since = since, .paths = paths}, terminal);
    };
  }

  /// A file that was replaced `age` seconds ago.
  UndoRecord replaced(const std::string& name, const UUID& batch, double age = 0) {
    const URL file = folder_.write(name, "original of " + name),
              candidate = folder_.write("candidate", "small " + name);
    auto record = store_.prepare(file, candidate, batch, std::nullopt);
    atomicRename(candidate, file);
    record.createdAt = record.createdAt.adding(-age);
    record.state = UndoRecord::State::committed;
    files::writeAtomically(store_.recordURL(record), record.json());
    return record;
  }
  std::string path(const std::string& name) const { return (folder_ / name).path(); }

  const test::TemporaryFolder folder_;
  const test::ScopedEnvironment data_{"XDG_DATA_HOME", path("data").c_str()},
      state_{"XDG_STATE_HOME", path("state").c_str()};
  const UndoStore store_;
  static constexpr double old = UndoStore::backupRetention + 60;
};

// One batch of a fresh, an edited, an expired and a damaged one: every command, its status, and a word that
// it says.
TEST_F(RecordCommands, TellByTheirStatusWhatHappened) {
  const UUID batch = UUID::random();
  const auto fresh = replaced("a/fresh.jpg", batch), edited = replaced("a/edited.jpg", batch),
             late = replaced("b/late.jpg", UUID::random(), old),
             bare = replaced("b/bare.jpg", UUID::random(), old);
  usleep(20'000);
  folder_.write("a/edited.jpg", "somebody's");
  store_.removeBackup(bare);
  const std::string id = fresh.id.string();
  CompressionTrace trace(URL::file(fresh.originalPath), fresh.createdAt.adding(-1));
  trace.outcome = "replaced";
  trace.append({"Jpegli", "rejected", "quality_below_threshold", 7, 51.5, std::nullopt});
  ReportDirectory reports(store_.diagnosticsDirectory());
  trace.save(reports);

  struct Case {
    Command command;
    int status;
    const char* word;
  };
  const std::vector<Case> cases = {
      {restore({path("a/none.jpg")}), failed, "no such file"},
      {restore({"ffff0000"}), unknownID, "ffff0000"},
      {restore({path("stdout")}), unknownID, "has no record"},
      {restore({path("data")}), done, "Nothing below"},
      {restore({late.id.string()}), gone, "restore --to DIR"},
      {restore({bare.id.string()}), gone, "too late"},
      {restore({path("a/edited.jpg")}), editedSince, "restore --to DIR"},
      {restore({path("b")}), gone, "too late"},
      {restore({path("a/edited.jpg"), path("b/late.jpg")}), failed, "edited"},
      {restore({batch.string()}, {}, true), editedSince, "1 file would be restored"},
      {restore({late.id.string()}, path("out")), done, "out/late.jpg"},
      {restore({bare.id.string()}, path("out")), gone, "is gone"},
      {compare({bare.id.string()}), gone, "is gone"},
      {compare({edited.id.string()}), editedSince, "edited since"},
      {compare({batch.string()}), unknownID, id.c_str()},
      {explain(id), done, "score is too low"},
      {explain(path("a/fresh.jpg"), true), done, "\"quality_below_threshold\""},
      {explain(edited.id.string()), gone, "No report"},
      {explain(path("out/late.jpg")), gone, "No report"},
      {explain(path("a/none.jpg")), failed, "no such file"},
      {forget("ffff0000"), unknownID, "ffff0000"},
      {forget("all", old * 2), done, "0 records"},
      {history({path("a/none.jpg")}), failed, "no such file"},
      {history({path("out/late.jpg")}), done, "has no record"},
  };
  for (const auto& [command, status, word] : cases) {
    const auto [found, output, errors] = said(command);
    EXPECT_EQ(found, status) << output << errors;
    EXPECT_NE((output + errors).find(word), std::string::npos) << word << "\n" << output << errors;
  }
  EXPECT_EQ(files::read(folder_ / "out/late.jpg"), "original of b/late.jpg");
  EXPECT_TRUE(files::exists(store_.backupURL(late))) << "asking removed it";

  const auto [status, output, errors] = said(restore({"latest"}));
  EXPECT_EQ(status, editedSince);
  EXPECT_EQ(output, path("a/fresh.jpg") + ": is back (23 B)\n1 file restored\n");
  EXPECT_EQ(files::read(folder_ / "a/fresh.jpg"), "original of a/fresh.jpg");
  EXPECT_EQ(files::read(folder_ / "a/edited.jpg"), "somebody's");
  EXPECT_EQ(said(forget(path("b"), old / 2)).output.substr(0, 9), "2 records");
  EXPECT_EQ(said(forget("all")).output.substr(0, 8), "1 record");
  EXPECT_TRUE(UndoStore().records().empty());
}

TEST_F(RecordCommands, ListForScripts) {
  const auto record = replaced("\xff.jpg", UUID::random());
  replaced("old.jpg", UUID::random(), 5 * old);
  const auto lines = said(history({}, Date::now().adding(-60))).output;
  const auto line = nlohmann::json::parse(lines);  // one line only
  EXPECT_EQ(line, nlohmann::json(
                      {{"id", record.id.string()},
                       {"batch", record.sessionID.string()},
                       {"path", path("\xEF\xBF\xBD.jpg")},
                       {"path_b64", line.at("path_b64")},
                       {"originalBytes", record.originalBytes},
                       {"replacementBytes", record.replacementBytes},
                       {"createdAt", record.createdAt.iso8601()},
                       {"restorableUntil", record.createdAt.adding(UndoStore::backupRetention).iso8601()},
                       {"state", "restorable"}}));
  const auto status = nlohmann::json::parse(
      said([](Terminal& terminal) { return runStatus({.json = true}, terminal); }).output);
  EXPECT_EQ(status.at("records"), 2);
  EXPECT_EQ(status.at("restorable"), 1);
  EXPECT_EQ(status.at("tools").size(), 5U);
  const auto text = said([](Terminal& terminal) { return runHistory({}, terminal); }).output;
  EXPECT_NE(text.find("restorable until"), std::string::npos) << text;
  files::createDirectories(store_.root().appending(UUID::random().string()).appending("a.json"));
  const auto [unreadable, listed, errors] = said(history({}));
  EXPECT_EQ(std::pair(unreadable, std::ranges::count(listed, '\n')), std::pair(int{failed}, 2L)) << errors;
}

TEST_F(RecordCommands, RestoreAFileThroughAllItsReplacements) {
  const auto first = replaced("photo.jpg", UUID::random());
  const std::string between = files::read(folder_ / "photo.jpg");
  const URL candidate = folder_.write("candidate", "tiny");
  const auto second = store_.prepare(folder_ / "photo.jpg", candidate, UUID::random(), std::nullopt);
  atomicRename(candidate, folder_ / "photo.jpg");
  store_.commit(second);
  EXPECT_EQ(said(restore({path("photo.jpg")}, {}, true)).status, done);
  EXPECT_EQ(files::read(folder_ / "photo.jpg"), "tiny");
  EXPECT_EQ(said(restore({first.id.string()})).status, editedSince) << "another lies on top";
  EXPECT_EQ(said(restore({path("photo.jpg")})).status, done);
  EXPECT_EQ(files::read(folder_ / "photo.jpg"), "original of photo.jpg");
}

TEST_F(RecordCommands, CompareTwoPictures) {
  test::writePNGFile(folder_ / "a.png", test::photoRaster(64, 48));
  test::writePNGFile(folder_ / "b.png", test::photoRaster(64, 48, 2));
  const auto [status, output, errors] = said(compare({path("a.png"), path("b.png")}));
  EXPECT_EQ(status, done) << errors;
  EXPECT_NE(output.find("64 × 48 pixels"), std::string::npos) << output;
}

// The summary of a run must name what `restore` then finds, whoever else ran meanwhile.
TEST_F(RecordCommands, NameTheBatchWhereTheLatestMayBeAnother) {
  const UUID batch = UUID::random(), later = UUID::random();
  const auto record = replaced("a.jpg", batch);
  const auto selector = [&] { return restorable(store_, batch, {record.id}).selector; };
  EXPECT_EQ(selector(), "latest");
  usleep(20'000);
  const auto other = replaced("b.jpg", later);
  EXPECT_EQ(selector(), shortID(batch));
  EXPECT_EQ(restorable(store_, later, {other.id}).selector, "latest");
}

}  // namespace
}  // namespace tidewell
