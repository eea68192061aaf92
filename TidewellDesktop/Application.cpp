// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/Application.h"

#include <QApplication>
#include <chrono>

#include "CompressionKit/wording/Amounts.h"
#include "TidewellDesktop/pages/MainWindow.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

namespace {

constexpr std::chrono::seconds patienceWithBus{10};
/// After this there is nothing left to undo.
constexpr std::chrono::seconds patienceWithNotification{static_cast<int>(UndoStore::backupRetention)};

}  // namespace

Application::Application(const QDBusConnection& connection)
    : connection_(connection), instance_(connection), notification_(connection) {
  QApplication::setQuitOnLastWindowClosed(false);
  patience_.setSingleShot(true);
  connect(&patience_, &QTimer::timeout, this, [this] {
    isNotifying_ = false;
    leaveIfDone();
  });
  connect(&instance_, &Instance::wanted, this, &Application::show);
  connect(&instance_, &Instance::actionWanted, this, &Application::runAction);
  connect(&notification_, &Notification::undoRequested, this, [this](int run) {
    if (workspace_) workspace_->undoBatch(run);
  });
  connect(&notification_, &Notification::activated, this, [this] { show({}, {}); });
  connect(&notification_, &Notification::closed, this, [this] {
    isNotifying_ = false;
    leaveIfDone();
  });
}

Application::~Application() = default;

bool Application::start(const Arguments& arguments) {
  if (!instance_.claim(arguments.files)) return false;
  if (arguments.isService) {
    patience_.start(patienceWithBus);
  } else {
    show(arguments.files, {});
  }
  return true;
}

void Application::makeWorkspace() {
  if (workspace_) return;
  workspace_ = std::make_unique<Workspace>(connection_);
  connect(workspace_.get(), &Workspace::batchEnded, this, &Application::notifyEnd);
  connect(workspace_.get(), &Workspace::problem, this, [this] {
    if (workspace_->isUndoing()) showHidden();
  });
  connect(workspace_.get(), &Workspace::problem, this, &Application::leaveIfDone, Qt::QueuedConnection);
  connect(&workspace_->undo(), &UndoWorker::finished, this, [this](const UndoSummary& summary) {
    if (!summary.problems.isEmpty()) showHidden();
  });
  connect(&workspace_->undo(), &UndoWorker::finished, this, &Application::leaveIfDone, Qt::QueuedConnection);
}

MainWindow& Application::window() {
  makeWorkspace();
  if (!window_) {
    window_ = std::make_unique<MainWindow>(*workspace_, connection_);
    connect(window_.get(), &MainWindow::closed, this, &Application::leaveIfDone, Qt::QueuedConnection);
  }
  return *window_;
}

void Application::show(const std::vector<URL>& files, const QByteArray& token) {
  window().present(token);
  closeNotification();
  window().add(files);
}

void Application::closeNotification() {
  notification_.close();
  isNotifying_ = false;
}

void Application::showHidden() {
  if (window_ && !window_->isVisible()) show({}, {});
}

void Application::runAction(const QString& action) {
  if (!workspace_) return;
  if (action == QLatin1String("undo")) {
    workspace_->undoBatch();
  } else if (action == QLatin1String("stop")) {
    workspace_->stop();
  }
}

bool Application::isWindowActive() const {
  return window_ && window_->isVisible() && QApplication::activeWindow() != nullptr;
}

void Application::notifyEnd() {
  if (workspace_->settings().values().notifyAtEnd && !isWindowActive()) {
    const auto& totals = workspace_->files().totals();
    QString body = words(counted("{1} picture", "{1} pictures", totals.done));
    if (totals.failed > 0)
      body += QStringLiteral(" · ") + words(counted("{1} failed", "{1} failed", totals.failed));
    isNotifying_ = true;
    patience_.start(patienceWithNotification);
    notification_.show(
        words(_("Saved {1} of {2}"), {words(sizeText(totals.savedBytes)), words(sizeText(totals.ofBytes))}),
        body, workspace_->canUndoBatch(), workspace_->run());
  } else {
    closeNotification();  // of an earlier run
  }
  leaveIfDone();
}

void Application::leaveIfDone() {
  if (window_ && window_->isVisible()) return;
  if (isNotifying_ || (workspace_ && workspace_->isUndoing())) return;
  const bool isWaitingForEnd =
      workspace_ && workspace_->isRunning() && workspace_->settings().values().notifyAtEnd;
  if (!isWaitingForEnd) QApplication::quit();
}

}  // namespace tidewell::desktop
