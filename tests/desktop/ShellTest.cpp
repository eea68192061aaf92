// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <QApplication>
#include <QDropEvent>
#include <QMimeData>
#include <deque>
#include <optional>

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/desktop/FileChooser.h"
#include "TidewellDesktop/desktop/Notification.h"
#include "TidewellDesktop/pages/MainWindow.h"
#include "TidewellDesktop/support/FileLists.h"
#include "desktop/PrivateBus.h"

namespace tidewell::desktop {
namespace {

using test::eventually;
using test::FakeService;
using test::PrivateBus;

std::vector<std::string> pathsOf(const std::vector<URL>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const URL& file : files) paths.push_back(file.path());
  return paths;
}

TEST(ShellFileLists, AreReadByTheByte) {
  const URL odd = URL::file("/p/\xff a%20#\xc3\xa9?.jpg");
  EXPECT_EQ(filesOf(urisOf({odd})), std::vector<URL>{odd});
  struct Case {
    const char *type, *data;
    std::vector<std::string> paths;
  };
  const Case cases[] = {
      {"text/uri-list", "#c\r\nfile:///a%FF.jpg\r\nfile://localhost/b\r\n", {"/a\xff.jpg", "/b"}},
      {"text/uri-list", "https://example.org/a.jpg\r\nfile:///b.png", {"/b.png"}},
      {"text/plain", "/a b.jpg\n\nfile:///c%20d.png\n", {"/a b.jpg", "/c d.png"}},
      {"text/plain", "/a.jpg\nand more words", {}},
      {"text/plain", "relative.jpg", {}},
      {"image/png", "/a.jpg", {}},
  };
  for (const Case& one : cases) {
    QMimeData data;
    data.setData(one.type, one.data);
    EXPECT_EQ(pathsOf(filesOf(data)), one.paths) << one.data;
    EXPECT_EQ(mayNameFiles(data), !one.paths.empty()) << one.data;
  }
}

/// The window over a bus and a home of its own.
class ShellWindow : public testing::Test {
 protected:
  ShellWindow() {
    for (const char* place : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"})
      places_.emplace_back(place, (folder_ / place).path().c_str());
    service_.emplace(bus_, "service");
    workspace_.emplace(bus_.connect("window"));
    window_.emplace(*workspace_, bus_.connect("window"));
    QObject::connect(&*workspace_, &Workspace::problem, [this](const QString& words) { problems_ << words; });
  }

  URL picture(const std::string& name) { return folder_.write(name, "\xff\xd8\xff no picture"); }
  /// As a file manager drops them that would like to move.
  bool drop(const std::vector<URL>& files) {
    QMimeData data;
    data.setData("text/uri-list", urisOf(files).join("\r\n").toUtf8());
    const auto actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter({9, 9}, actions, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&*window_, &enter);
    if (!enter.isAccepted()) return false;
    QDropEvent drop({9, 9}, actions, &data, Qt::LeftButton, Qt::NoModifier);
    drop.setDropAction(Qt::MoveAction);
    QApplication::sendEvent(&*window_, &drop);
    EXPECT_TRUE(!drop.isAccepted() || drop.dropAction() == Qt::CopyAction)
        << "the other program would remove the files";
    return drop.isAccepted();
  }
  bool hasRows(int count) {
    return eventually(
        [this, count] { return !workspace_->isLooking() && workspace_->files().rowCount() == count; });
  }
  /// A picture of a run of its own, of which the service makes something smaller.
  URL compressed(const std::string& name) {
    URL file = picture(name);
    const auto before = opens();
    EXPECT_TRUE(drop({file}));
    EXPECT_TRUE(eventually([this] { return workspace_->waitingFiles() == 1; }));
    workspace_->compress();
    EXPECT_TRUE(eventually([&] { return opens() > before; }));
    const URL smaller = folder_.write("smaller.jpg", "\xff\xd8\xff");
    const UndoStore store;
    const UndoRecord record = store.prepare(file, smaller, UUID::random(), std::nullopt);
    files::removeItem(file);
    files::copyItem(smaller, file);
    store.commit(record);
    end({record.sessionID,
         Date::now(),
         {{file.path(), "replaced", record.originalBytes, record.replacementBytes, {}}}});
    return file;
  }
  /// The batch with this result.
  void end(const BackgroundBatchResult& result) {
    files::createDirectories(locations::latestResult().deletingLastPathComponent());
    files::writeAtomically(locations::latestResult(), result.json(), files::Durability::cached);
    EXPECT_TRUE(eventually([this] { return !workspace_->isRunning(); }));
  }
  qsizetype opens() {
    return std::count_if(service_->calls.begin(), service_->calls.end(),
                         [](const QDBusMessage& call) { return call.member() == "Open"; });
  }

  test::TemporaryFolder folder_;
  std::deque<test::ScopedEnvironment> places_;
  PrivateBus bus_;
  std::optional<FakeService> service_;
  std::optional<Workspace> workspace_;
  std::optional<MainWindow> window_;
  QStringList problems_;
};

TEST_F(ShellWindow, AsksBeforeAnythingIsCompressed) {
  EXPECT_FALSE(drop({}));
  const URL one = picture("one.jpg"), two = picture("two \xff.png");
  EXPECT_TRUE(drop({one, two, picture("notes.txt"), one}));
  EXPECT_TRUE(hasRows(3));
  EXPECT_EQ(workspace_->waitingFiles(), 2);
  QTest::qWait(200);
  EXPECT_EQ(opens(), 0) << "nobody was asked";
  EXPECT_FALSE(workspace_->canUndoBatch());

  workspace_->compress();
  workspace_->compress();
  EXPECT_TRUE(eventually([this] { return opens() > 0; }));
  EXPECT_TRUE(workspace_->isRunning());
  EXPECT_TRUE(drop({one}));  // the service has it
  workspace_->clear();
  EXPECT_TRUE(hasRows(3));
  EXPECT_EQ(workspace_->waitingFiles(), 0);
  EXPECT_EQ(opens(), 1);
}

TEST_F(ShellWindow, AsksNoMoreOnceToldSo) {
  workspace_->settings().set({.compressAtOnce = true});
  Q_EMIT window_->findChild<FileChooser*>()->chosen({picture("one.jpg")});
  EXPECT_TRUE(eventually([this] { return opens() == 1; }));
}

TEST_F(ShellWindow, UndoesNothingButTheLastRun) {
  const auto isSmaller = [](const URL& file) { return fileSize(file) == 3; };
  const URL one = compressed("one.jpg"), two = compressed("two.jpg");
  EXPECT_TRUE(workspace_->canUndoBatch());
  workspace_->undoBatch(workspace_->run() - 1);
  EXPECT_FALSE(workspace_->isUndoing());
  workspace_->undoBatch(workspace_->run());
  EXPECT_TRUE(eventually([&] { return !workspace_->isUndoing() && !workspace_->canUndoBatch(); }));
  EXPECT_TRUE(isSmaller(one));
  EXPECT_FALSE(isSmaller(two));
}

TEST_F(ShellWindow, OffersNoUndoOfWhatWaitsAgain) {
  const URL one = compressed("one.jpg");
  int wrong = 0;  // at any moment at which the offer is shown
  const auto look = [&] {
    wrong += workspace_->canUndoBatch() != workspace_->files().row(0).record.has_value();
  };
  QObject::connect(&*workspace_, &Workspace::changed, look);
  QObject::connect(&workspace_->files(), &FileListModel::totalsChanged, look);
  workspace_->add({picture("two.jpg")});
  EXPECT_TRUE(hasRows(2));
  EXPECT_TRUE(workspace_->canUndoBatch());
  workspace_->add({one, picture("three.jpg")}, true);
  EXPECT_TRUE(hasRows(3));
  EXPECT_FALSE(workspace_->canUndoBatch());
  EXPECT_EQ(wrong, 0);
}

TEST_F(ShellWindow, WaitsAgainWithWhatWasStopped) {
  const URL file = picture("one.jpg");
  EXPECT_TRUE(drop({file}));
  EXPECT_TRUE(hasRows(1));
  for (int run = 1; run <= 2; ++run) {
    workspace_->compress();
    EXPECT_TRUE(eventually([&] { return opens() == run; }));
    EXPECT_EQ(workspace_->waitingFiles(), 0);
    end({UUID::random(), Date::now(), {{file.path(), "failed", {}, {}, Interrupted().what()}}});
    EXPECT_EQ(workspace_->waitingFiles(), 1);
    EXPECT_EQ(workspace_->files().row(0).state, RowState::waiting);
  }
}

TEST_F(ShellWindow, EndsWhatABusThatGoesLeavesBehind) {
  EXPECT_TRUE(drop({picture("one.jpg")}));
  EXPECT_TRUE(hasRows(1));
  workspace_->compress();
  EXPECT_TRUE(eventually([this] { return opens() == 1; }));
  bus_.end();
  EXPECT_TRUE(eventually([this] { return !workspace_->isRunning(); }));
  EXPECT_EQ(workspace_->files().row(0).state, RowState::failed);
  workspace_->restore({workspace_->files().row(0)});
  EXPECT_TRUE(eventually([this] { return !problems_.empty(); })) << "nothing to restore, and nobody says so";
}

/// Shows notifications as number 7.
class Notifications : public QDBusVirtualObject {
 public:
  explicit Notifications(QDBusConnection bus) : bus_(std::move(bus)) {
    bus_.registerVirtualObject("/org/freedesktop/Notifications", this);
    bus_.registerService("org.freedesktop.Notifications");
  }
  void tell(const char* signal, uint id, const QVariant& value) {
    auto message =
        QDBusMessage::createSignal("/org/freedesktop/Notifications", "org.freedesktop.Notifications", signal);
    bus_.send(message << id << value);
  }
  QStringList actions;

 private:
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() == "Notify") actions = message.arguments().at(5).toStringList();
    connection.send(message.createReply(7U));
    return true;
  }
  QString introspect(const QString&) const override { return {}; }

  QDBusConnection bus_;
};

TEST(ShellNotification, UndoesOnlyWhatItShowed) {
  PrivateBus bus;
  Notification notification(bus.connect("shows"));
  QStringList told;
  QObject::connect(&notification, &Notification::undoRequested, [&] { told << "undo"; });
  QObject::connect(&notification, &Notification::closed, [&] { told << "closed"; });
  notification.show("Saved", "1 < 2", true);
  EXPECT_TRUE(eventually([&] { return told == QStringList{"closed"}; })) << "no such service";
  Notifications server(bus.connect("server"));
  notification.show("Saved", "1 < 2", true);
  EXPECT_TRUE(eventually([&] { return server.actions.contains("undo"); }));
  QTest::qWait(100);  // for the answer
  server.tell("ActionInvoked", 8, "undo");
  server.tell("ActionInvoked", 7, "undo");
  server.tell("NotificationClosed", 7, 2U);
  server.tell("ActionInvoked", 7, "undo");
  EXPECT_TRUE(eventually([&] { return told.size() >= 3; }));
  EXPECT_EQ(told, (QStringList{"closed", "undo", "closed"}));
}

}  // namespace
}  // namespace tidewell::desktop
