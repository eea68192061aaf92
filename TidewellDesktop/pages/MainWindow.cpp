// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/MainWindow.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QGuiApplication>
#include <QMessageBox>
#include <QMimeData>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/compare/ComparePage.h"
#include "TidewellDesktop/desktop/FileChooser.h"
#include "TidewellDesktop/desktop/FileManager.h"
#include "TidewellDesktop/explain/ExplainPage.h"
#include "TidewellDesktop/history/HistoryPage.h"
#include "TidewellDesktop/pages/EmptyPage.h"
#include "TidewellDesktop/pages/Footer.h"
#include "TidewellDesktop/pages/ListPage.h"
#include "TidewellDesktop/pages/MessageBar.h"
#include "TidewellDesktop/pages/ServicePage.h"
#include "TidewellDesktop/pages/SettingsDialog.h"
#include "TidewellDesktop/support/FileLists.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

MainWindow::MainWindow(Workspace& workspace, const QDBusConnection& connection)
    : workspace_(workspace), connection_(connection), chooser_(new FileChooser(connection, *this)) {
  setWindowTitle(words(_("Tidewell")));
  setAcceptDrops(true);
  makePages();
  makeActions();
  makeMenus();
  makeToolBar();
  connectWorkspace();
  resize(fontMetrics().averageCharWidth() * 165, fontMetrics().height() * 40);
  showHome();
}

void MainWindow::makePages() {
  pages_ = new QStackedWidget;
  pages_->addWidget(empty_ = new EmptyPage);
  pages_->addWidget(list_ = new ListPage(workspace_));
  pages_->addWidget(service_ = new ServicePage);
  pages_->addWidget(history_ = new HistoryPage(workspace_.history(), workspace_.undo()));
  pages_->addWidget(compare_ = new ComparePage(workspace_.store()));
  pages_->addWidget(explain_ = new ExplainPage(workspace_.store()));
  message_ = new MessageBar;
  auto* center = new QWidget;
  auto* layout = new QVBoxLayout(center);
  layout->setContentsMargins({});
  layout->setSpacing(0);
  layout->addWidget(pages_, 1);
  layout->addWidget(message_);
  layout->addWidget(new Footer(workspace_));
  setCentralWidget(center);

  connect(chooser_, &FileChooser::chosen, this, &MainWindow::add);
  connect(empty_, &EmptyPage::chooseRequested, this, &MainWindow::choose);
  connect(empty_, &EmptyPage::chooseFolderRequested, this, &MainWindow::chooseFolder);
  connect(service_, &ServicePage::lookAgainRequested, &workspace_.service(), &ServiceClient::lookAgain);
  connect(list_, &ListPage::compareRequested, this, &MainWindow::openComparison);
  connect(list_, &ListPage::explainRequested, this, &MainWindow::openExplanation);
  connect(list_, &ListPage::showInFolderRequested, this,
          [this](const std::vector<URL>& files) { showInFolder(connection_, files, this); });
  connect(history_, &HistoryPage::compareRequested, this, &MainWindow::openComparison);
  connect(history_, &HistoryPage::explainRequested, this, &MainWindow::openExplanation);
  connect(compare_, &ComparePage::restoreRequested, this, &MainWindow::restore);
  connect(compare_, &ComparePage::closed, this, &MainWindow::goBack);
}

void MainWindow::connectWorkspace() {
  connect(&workspace_, &Workspace::changed, this, &MainWindow::updateState);
  connect(&workspace_.files(), &FileListModel::totalsChanged, this, &MainWindow::updateState);
  connect(&workspace_, &Workspace::problem, message_,
          [this](const QString& words) { message_->tell(words); });
  connect(&workspace_, &Workspace::filesAdded, this, &MainWindow::showHome);
  connect(&workspace_.service(), &ServiceClient::stateChanged, this, [this] {
    const bool hasGone = workspace_.service().state() == ServiceClient::State::noBus;
    if (hasGone && home() != service_) message_->tell(words(_("The session bus has gone.")));
  });
  connect(&workspace_.undo(), &UndoWorker::finished, this, [this](const UndoSummary& summary) {
    // The history tells of its own, and the footer below the list says how many.
    const QStringList details = summary.problems + summary.notes;
    const bool isToldBelow = pages_->currentWidget() == list_ && details.isEmpty() && !summary.isCutShort;
    if (pages_->currentWidget() != history_ && !isToldBelow) message_->tell(summary.text(), details);
  });
}

void MainWindow::add(const std::vector<URL>& files) {
  workspace_.add(files);
}

void MainWindow::present(const QByteArray& token) {
  // Qt takes it from there, once.
  if (!token.isEmpty()) qputenv("XDG_ACTIVATION_TOKEN", token);
  setWindowState(windowState() & ~Qt::WindowMinimized);
  QMainWindow::show();
  raise();
  activateWindow();
}

void MainWindow::choose() {
  chooser_->open(FileChooser::Kind::pictures);
}

void MainWindow::chooseFolder() {
  chooser_->open(FileChooser::Kind::folder);
}

void MainWindow::paste() {
  const QMimeData* copied = QGuiApplication::clipboard()->mimeData();
  const auto files = copied ? filesOf(*copied) : std::vector<URL>{};
  if (files.empty()) return message_->tell(words(_("There are no files in the clipboard.")));
  workspace_.add(files);
}

bool MainWindow::canWork() const {
  const auto state = workspace_.service().state();
  return state != ServiceClient::State::noBus && state != ServiceClient::State::notInstalled;
}

QWidget* MainWindow::home() const {
  // What was done is still to be seen, and to be undone.
  const auto& totals = workspace_.files().totals();
  const bool hasResults = workspace_.isRunning() || (workspace_.run() > 0 && totals.done > totals.failed);
  if (!canWork() && !hasResults) return service_;
  if (workspace_.files().rowCount() == 0 && !workspace_.isLooking()) return empty_;
  return list_;
}

bool MainWindow::isAtHome() const {
  const QWidget* page = pages_->currentWidget();
  return page == empty_ || page == list_ || page == service_;
}

void MainWindow::showPage(QWidget* page) {
  if (pages_->currentWidget() == page) return updateState();
  const bool wasComparing = pages_->currentWidget() == compare_;
  pages_->setCurrentWidget(page);
  if (wasComparing) compare_->close();  // and what it holds, and still loads
  page->setFocus();
  updateState();
}

void MainWindow::showHome() {
  before_.clear();
  showPage(home());
}

void MainWindow::showHistory() {
  before_.clear();
  showPage(history_);
}

void MainWindow::goBack() {
  if (before_.empty()) return showHome();
  QWidget* page = before_.back();
  before_.pop_back();
  showPage(page);
}

/// The comparison is empty once it was left.
void MainWindow::rememberPage(const QWidget* next) {
  QWidget* page = pages_->currentWidget();
  if (page != compare_ && page != next) before_.push_back(page);
  if (!before_.empty() && before_.back() == next) before_.pop_back();
}

void MainWindow::openComparison(const UndoRecord& record) {
  rememberPage(compare_);
  compare_->open(record);
  showPage(compare_);
}

void MainWindow::openExplanation(const URL& source, Date before) {
  rememberPage(explain_);
  explain_->open(source, before);
  showPage(explain_);
}

void MainWindow::restore(const UndoRecord& record) {
  workspace_.undo().restore({record});
}

void MainWindow::filter() {
  showHome();
  list_->focusFilter();
}

void MainWindow::clear() {
  workspace_.clear();
  showHome();
}

void MainWindow::showSettings() {
  auto* dialog = new SettingsDialog(workspace_.settings(), this);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->open();
}

void MainWindow::showAbout() {
  QMessageBox::about(
      this, words(_("About Tidewell")),
      words(_("Tidewell {1}\nMakes pictures smaller in place, measures every result, and can undo it."),
            {QGuiApplication::applicationVersion()}));
}

void MainWindow::updateState() {
  if (isAtHome() && pages_->currentWidget() != home()) {
    const bool hadFocus = isActiveWindow();
    pages_->setCurrentWidget(home());
    if (hadFocus) home()->setFocus();
  }
  service_->tell(workspace_.service().state());
  updateActions();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  QMainWindow::closeEvent(event);
  if (event->isAccepted()) Q_EMIT closed();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (!event->mimeData() || !mayNameFiles(*event->mimeData())) return;
  // Files stay where they are, whatever the other program would like best.
  event->setDropAction(Qt::CopyAction);
  event->accept();
  empty_->setDropping(true);
}

void MainWindow::dragLeaveEvent(QDragLeaveEvent* event) {
  empty_->setDropping(false);
  event->accept();
}

void MainWindow::dropEvent(QDropEvent* event) {
  empty_->setDropping(false);
  event->setDropAction(Qt::CopyAction);
  const auto files = filesOf(*event->mimeData());
  if (files.empty()) return event->ignore();
  event->accept();
  workspace_.add(files);
}

}  // namespace tidewell::desktop
