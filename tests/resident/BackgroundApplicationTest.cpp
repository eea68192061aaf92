// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/BackgroundApplication.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "resident/VirtualDesktop.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using Maintenance = BackgroundCompressor::Maintenance;
using Strings = std::vector<std::string>;
using Item = BackgroundBatchResult::Item;

const Maintenance removedTheLast{.deadline = {}, .changed = true};

BackgroundBatchResult resultWith(std::vector<Item> items) {
  return {.sessionID = UUID::random(), .finishedAt = Date{5}, .items = std::move(items)};
}

template <typename T>
T takeFrom(std::deque<T>& prepared, const T& otherwise) {
  if (prepared.empty()) return otherwise;
  const T next = prepared.front();
  prepared.pop_front();
  return next;
}

class BackgroundApplicationTest : public testing::Test {
 protected:
  void open(const Strings& texts) {
    std::vector<URL> urls;
    for (const auto& text : texts) {
      if (auto url = URL::parse(text)) urls.push_back(*url);
    }
    application.open(urls);
  }
  URL latest() const { return folder / "Tidewell/Background/latest.json"; }

  test::TemporaryFolder folder;
  test::ScopedEnvironment support{"XDG_DATA_HOME", folder.url().path().c_str()};
  test::VirtualDesktop desktop;
  std::vector<Strings> batches;               ///< the files of each batch that ran
  std::deque<BackgroundBatchResult> results;  ///< of the next batches
  std::deque<Maintenance> outcomes;           ///< of the next maintenance passes
  std::vector<bool> stopped;                  ///< whether each batch was asked to end early
  int passes = 0;
  BackgroundApplication application{
      {.compress =
           [this](const std::vector<URL>& files, const CompressionOptions&, const StopToken& stop) {
             stopped.push_back(stop.stopRequested());
             Strings& paths = batches.emplace_back();
             for (const URL& file : files) paths.push_back(file.path());
             return takeFrom(results, resultWith({}));
           },
       .maintainBackups =
           [this] {
             ++passes;
             return takeFrom(outcomes, {});
           }},
      desktop.interfaces()};
};

// --- What starts a batch -----------------------------------------------------------------------------------

// The token of the virtual desktop is "secret+token/=".
const std::string start = "tidewell-background://compress?token=secret+token/%3D&files=";
// ["/a.jpg","b.png","/c.png"]
const std::string list = "WyIvYS5qcGciLCJiLnBuZyIsIi9jLnBuZyJd";

TEST_F(BackgroundApplicationTest, anEventStartsAtMostOneBatch) {
  const std::string other = "tidewell-background://compress?", token = "token=secret+token/=";
  const std::string files = "&files=" + list;
  const struct {
    const char* what;
    Strings urls;
    Strings files;
  } cases[] = {
      {"relative paths are dropped", {start + list}, {"/a.jpg", "/c.png"}},
      {"escaped fill", {start + "WyIvYi5naWYiXQ%3D%3D"}, {"/b.gif"}},
      {"plain fill", {start + "WyIvYi5naWYiXQ=="}, {"/b.gif"}},
      {"items in any order", {other + "x" + files + "&" + token}, {"/a.jpg", "/c.png"}},
      {"user, port and path do not matter",
       {"tidewell-background://me@compress:1/x?" + token + files},
       {"/a.jpg", "/c.png"}},
      {"other URLs of the event still count",
       {"file:///x.heic", "https://compress?" + token + files, start + "!", start + list, "file:///y.heif"},
       {"/x.heic", "/a.jpg", "/c.png", "/y.heif"}},
      {"scheme in other case", {"Tidewell-Background" + start.substr(19) + list}, {}},
      {"host in other case", {"tidewell-background://Compress?" + token + files}, {}},
      {"no query", {"tidewell-background://compress"}, {}},
      {"no token", {other + "files=" + list}, {}},
      {"token without value", {other + "token" + files}, {}},
      {"wrong token", {other + "token=secret+tokem/=" + files}, {}},
      {"longer token", {other + token + "1" + files}, {}},
      {"a plus is no space", {other + "token=secret%20token/=" + files}, {}},
      {"the first token counts", {other + "token=a&" + token + files}, {}},
      {"the first files count", {start + files}, {}},
      {"no files", {other + token}, {}},
      {"no Base64", {start + "WyIvYi5naWYiXQ"}, {}},
      {"Base64 with a line break", {start + "WyIvYi5naWYi%0AXQ=="}, {}},
      {"no JSON", {start + "eyJh"}, {}},
      {"no array", {start + "Ii9hLmpwZyI="}, {}},                       // "/a.jpg"
      {"not only strings", {start + "WyIvYS5qcGciLDFd"}, {}},           // ["/a.jpg",1]
      {"NUL in a path", {start + "WyIvYS5qcGdcdTAwMDAucG5nIl0="}, {}},  // ["/a.jpg\u0000.png"]
      {"empty array", {start + "W10="}, {}},
      {"nothing opened", {}, {}},
      {"supported kinds only", {"file:///a.txt", "file:///b.JPG", "file:///c", "file:///d.webp"}, {"/b.JPG"}},
      {"none of them", {"file:///a.txt"}, {}},
      {"duplicates by standardised path, of which the first form stays",
       {"file:///d/./a.png", "file:///d/a.png", "file:///d/e/../a.png", "file:///d/b.png"},
       {"/d/./a.png", "/d/b.png"}},
      {"a name that is not UTF-8", {"file:///%FF%E4.png"}, {"/\xFF\xE4.png"}},
  };
  for (const auto& c : cases) {
    batches.clear();
    open(c.urls);
    while (desktop.work()) {
    }
    EXPECT_EQ(batches, c.files.empty() ? std::vector<Strings>{} : std::vector<Strings>{c.files}) << c.what;
  }
  // The token is read anew, and an empty one rejects all.
  desktop.token = "";
  open({other + "token=" + files});
  desktop.token = "new";
  open({start + list});
  EXPECT_EQ(desktop.waitingWork(), 0u);
  open({other + "token=new" + files});
  EXPECT_EQ(desktop.waitingWork(), 1u);
}

// --- What a batch shows and leaves -----------------------------------------------------------------------

TEST_F(BackgroundApplicationTest, twoBatchesAtOnce) {
  results = {resultWith({Item{"/a.jpg", "replaced", 1500, 100, {}}, Item{"/b.jpg", "skipped", 7, 7, {}}}),
             resultWith({Item{"/c.heic", "converted", 9000, 1, {}}, Item{"/d.png", "failed", {}, {}, "x"},
                         Item{"/e.png", "failed", {}, {}, "y"}})};
  const auto expected = results;
  std::deque<BackgroundBatchResult> stored;  // as found when notified
  desktop.onHistoryChange = [&] {
    stored.push_back(BackgroundBatchResult::parse(files::read(latest())).value());
  };

  open({"file:///a.jpg", "file:///b.jpg"});
  EXPECT_EQ(desktop.items, 1);
  EXPECT_EQ(desktop.title, "潮汐井：压缩中…");
  EXPECT_EQ(desktop.toolTip, "后台压缩 2 张图片");
  open({"file:///c.heic", "file:///d.png", "file:///e.png"});
  EXPECT_EQ(desktop.items, 1);
  EXPECT_EQ(desktop.toolTip, "后台压缩 3 张图片");

  desktop.work();
  EXPECT_EQ(desktop.title, "潮汐井：压缩中…");
  EXPECT_EQ(desktop.toolTip, "已压缩 1 张，跳过 1 张，失败 0 张");
  EXPECT_EQ(desktop.historyChanges, 1);
  EXPECT_EQ(passes, 0);

  desktop.work();
  EXPECT_EQ(desktop.title, "潮汐井：2 张失败");
  EXPECT_EQ(desktop.toolTip, "已压缩 1 张，跳过 0 张，失败 2 张");
  EXPECT_EQ(desktop.historyChanges, 2);
  EXPECT_EQ(stored, expected);
}

TEST_F(BackgroundApplicationTest, whatAKilledServiceLeftBesideTheResultGoes) {
  const URL left = folder.write("Tidewell/Background/.tidewell-" + UUID::random().string() + ".tmp", "{");
  const Date written = Date::now();
  for (const double age : {14400.0 - 60, 14400.0 + 1}) {
    desktop.setClock(written.adding(age));
    open({"file:///a.jpg"});
    desktop.pass(0);
    EXPECT_EQ(files::exists(left), age < 14400);
  }
  EXPECT_TRUE(files::exists(latest()));
}

TEST_F(BackgroundApplicationTest, aResultThatCannotBeSavedIsLoggedOnce) {
  folder.write("Tidewell", "a file where the directory should be");
  results = {resultWith({Item{"/a.jpg", "replaced", 1234567, 0, {}}})};
  open({"file:///a.jpg"});
  testing::internal::CaptureStderr();
  desktop.work();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(log.starts_with("<3>Tidewell 后台结果保存失败：")) << log;
  EXPECT_EQ(log.find('\n'), log.size() - 1);
  EXPECT_EQ(desktop.title, "潮汐井：节省 1.2 MB");
  EXPECT_EQ(desktop.historyChanges, 1);
}

// --- Idle ------------------------------------------------------------------------------------------------

TEST_F(BackgroundApplicationTest, staysUntilTheLastBackupHasExpired) {
  outcomes = {{.deadline = desktop.now().adding(1800)}, removedTheLast};
  application.applicationDidFinishLaunching();
  desktop.pass(1799);
  EXPECT_EQ(passes, 1);
  desktop.pass(1 + 11);
  EXPECT_EQ(passes, 2);
  EXPECT_EQ(desktop.historyChanges, 1);
  EXPECT_FALSE(desktop.terminated);
  desktop.pass(1);
  EXPECT_TRUE(desktop.terminated);
}

TEST_F(BackgroundApplicationTest, looksAgainEachHourAndAtMostOnceASecond) {
  outcomes.assign(3, {.deadline = desktop.now().adding(14400)});
  application.applicationDidFinishLaunching();
  desktop.pass(7200);
  EXPECT_EQ(passes, 3);

  outcomes.assign(100, {.deadline = Date{0}});  // past already
  desktop.pass(3600 + 10);
  EXPECT_EQ(passes, 3 + 11);

  outcomes.assign(100, {.deadline = Date{0}, .changed = false, .overdue = true});  // and will not go
  desktop.pass(1 + 3 * 3600);
  EXPECT_EQ(passes, 3 + 11 + 1 + 3);
  EXPECT_FALSE(desktop.terminated);
}

TEST_F(BackgroundApplicationTest, aBatchCancelsTheIdleActions) {
  open({"file:///a.jpg"});
  desktop.pass(0);
  desktop.pass(11.5);
  EXPECT_EQ(desktop.items, 1);
  open({"file:///a.jpg"});
  open({"file:///b.txt"});  // no batch
  desktop.pass(0);
  desktop.pass(11.5);
  EXPECT_EQ(desktop.items, 1);
  EXPECT_FALSE(desktop.terminated);
  desktop.pass(0.5);
  EXPECT_EQ(desktop.items, 0);
  EXPECT_TRUE(desktop.terminated);
}

TEST_F(BackgroundApplicationTest, theItemLeavesAndComesBack) {
  outcomes.assign(9, {.deadline = desktop.now().adding(3000)});
  for (int i = 0; i < 2; ++i) {
    open({"file:///a.jpg"});
    EXPECT_EQ(desktop.items, 1);
    desktop.pass(12);
    EXPECT_EQ(desktop.items, 0);
    EXPECT_FALSE(desktop.terminated);
  }
}

TEST_F(BackgroundApplicationTest, anUndoChangeStartsAPassOnlyWhileIdleAWakeAlways) {
  outcomes.assign(9, {.deadline = desktop.now().adding(3000)});
  application.applicationDidFinishLaunching();
  desktop.pass(100);
  application.undoDidChange();
  application.workspaceDidWake();
  desktop.pass(0);
  EXPECT_EQ(passes, 3);

  open({"file:///a.jpg"});
  application.undoDidChange();
  EXPECT_EQ(desktop.waitingWork(), 1u);
  outcomes.push_front(removedTheLast);
  application.workspaceDidWake();
  EXPECT_EQ(desktop.waitingWork(), 2u);
}

TEST_F(BackgroundApplicationTest, theOutcomeOfAPassIsDiscardedOnceSomethingHappened) {
  outcomes = {removedTheLast, {.deadline = desktop.now().adding(3000)}};
  application.applicationDidFinishLaunching();  // its pass has not run yet
  open({"file:///a.jpg"});
  desktop.work();  // the pass
  EXPECT_EQ(passes, 1);
  EXPECT_EQ(desktop.historyChanges, 0);
  desktop.pass(100);  // the batch, its pass, no exit
  EXPECT_EQ(passes, 2);
  EXPECT_EQ(desktop.historyChanges, 1);
  EXPECT_FALSE(desktop.terminated);
}

TEST_F(BackgroundApplicationTest, passesDoNotPileUp) {
  application.applicationDidFinishLaunching();
  for (int i = 0; i < 1000; ++i) application.undoDidChange();
  EXPECT_EQ(desktop.waitingWork(), 1u);
  desktop.pass(11);
  EXPECT_EQ(passes, 2);
  EXPECT_FALSE(desktop.terminated);
  desktop.pass(1);  // twelve seconds after a pass that found nothing
  EXPECT_TRUE(desktop.terminated);
  EXPECT_EQ(desktop.historyChanges, 0);
}

TEST_F(BackgroundApplicationTest, aStopConcernsTheBatchesThatRun) {
  application.stopBatches();
  for (int round = 0; round < 2; ++round) {
    open({"file:///a.jpg"});
    open({"file:///b.jpg"});
    application.stopBatches();
    application.stopBatches();
    open({"file:///c.jpg"});
    while (desktop.work()) {
    }
    EXPECT_EQ(std::exchange(stopped, {}), (std::vector<bool>{true, true, false}));
  }
  EXPECT_EQ(desktop.historyChanges, 6);
  EXPECT_FALSE(desktop.terminated);
}

TEST_F(BackgroundApplicationTest, aRequestToEndWaitsForTheBatches) {
  open({"file:///a.jpg"});
  open({"file:///b.jpg"});
  application.terminateAfterBatches();
  desktop.work();
  EXPECT_FALSE(desktop.terminated);
  desktop.work();
  EXPECT_TRUE(desktop.terminated);
  EXPECT_EQ(desktop.historyChanges, 2);
  EXPECT_EQ(desktop.waitingWork(), 0u);

  desktop.terminated = false;
  application.terminateAfterBatches();
  EXPECT_TRUE(desktop.terminated);
}

}  // namespace
}  // namespace tidewell
