// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <QAction>
#include <QActionGroup>
#include <QMenuBar>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QToolBar>

#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/explain/ExplainPage.h"
#include "TidewellDesktop/history/HistoryPage.h"
#include "TidewellDesktop/pages/ListPage.h"
#include "TidewellDesktop/pages/MainWindow.h"
#include "TidewellDesktop/support/Words.h"

// The actions of the window: what they are called, where they stand, and when they can be taken.

namespace tidewell::desktop {

QAction* MainWindow::makeAction(const QString& text, const char* icon, const QKeySequence& shortcut,
                                void (MainWindow::*slot)()) {
  auto* action = new QAction(QIcon::fromTheme(QLatin1String(icon)), text, this);
  static const QRegularExpression mnemonic(QStringLiteral("\\(&.\\)|&"));
  action->setIconText(QString(text).remove(mnemonic).remove(QStringLiteral("…")));
  action->setShortcut(shortcut);
  connect(action, &QAction::triggered, this, slot);
  return action;
}

void MainWindow::makeActions() {
  addPictures_ = makeAction(words(_("&Add pictures…")), "list-add", QKeySequence::Open, &MainWindow::choose);
  addFolder_ = makeAction(words(_("Add &folder…")), "folder-open", Qt::CTRL | Qt::SHIFT | Qt::Key_O,
                          &MainWindow::chooseFolder);
  paste_ = makeAction(words(_("&Paste files")), "edit-paste", QKeySequence::Paste, &MainWindow::paste);
  clear_ = makeAction(words(_("C&lear list")), "edit-clear-all", {}, &MainWindow::clear);
  compress_ = new QAction(words(_("Co&mpress")), this);
  compress_->setShortcut(Qt::CTRL | Qt::Key_Return);
  connect(compress_, &QAction::triggered, list_, &ListPage::compress);
  settings_ =
      makeAction(words(_("&Settings…")), "configure", Qt::CTRL | Qt::Key_Comma, &MainWindow::showSettings);
  quit_ = new QAction(words(_("&Quit")), this);
  quit_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
  connect(quit_, &QAction::triggered, this, &QWidget::close);
  homeAction_ =
      makeAction(words(_("&Pictures")), "view-list-details", Qt::ALT | Qt::Key_Home, &MainWindow::showHome);
  historyAction_ =
      makeAction(words(_("&History")), "view-history", Qt::CTRL | Qt::Key_H, &MainWindow::showHistory);
  auto* group = new QActionGroup(this);
  for (QAction* action : {homeAction_, historyAction_}) {
    action->setCheckable(true);
    group->addAction(action);
  }
  group->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
  filter_ = makeAction(words(_("F&ind…")), "edit-find", QKeySequence::Find, &MainWindow::filter);
  back_ = makeAction(words(_("&Back")), "go-previous", {}, &MainWindow::goBack);
  back_->setShortcuts({Qt::ALT | Qt::Key_Left, Qt::Key_Escape});
  about_ = makeAction(words(_("&About Tidewell")), "help-about", {}, &MainWindow::showAbout);
}

void MainWindow::makeMenus() {
  auto* file = menuBar()->addMenu(words(_("&File")));
  file->addActions({addPictures_, addFolder_, paste_});
  file->addSeparator();
  file->addActions({compress_, clear_});
  file->addSeparator();
  file->addActions({settings_, quit_});
  auto* picture = menuBar()->addMenu(words(_("&Picture")));
  picture->addActions(list_->rowActions());
  auto* view = menuBar()->addMenu(words(_("&View")));
  view->addActions({homeAction_, historyAction_, filter_, back_});
  menuBar()->addMenu(words(_("&Help")))->addAction(about_);
}

void MainWindow::makeToolBar() {
  auto* bar = addToolBar(words(_("Tools")));
  bar->setObjectName(QStringLiteral("tools"));
  bar->setMovable(false);
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  bar->addAction(back_);
  bar->addAction(addPictures_);
  bar->addSeparator();
  bar->addActions({homeAction_, historyAction_});
}

void MainWindow::updateActions() {
  const QWidget* page = pages_->currentWidget();
  homeAction_->setChecked(isAtHome());
  historyAction_->setChecked(page == history_);
  back_->setVisible(page == history_ || page == explain_);  // the comparison has its own
  for (QAction* action : {addPictures_, addFolder_, paste_}) action->setEnabled(canWork());
  compress_->setEnabled(canWork() && workspace_.waitingFiles() > 0 && !workspace_.isLooking());
  clear_->setEnabled(!workspace_.isRunning() && workspace_.files().rowCount() > 0);
  filter_->setEnabled(workspace_.files().rowCount() > 0);
}

}  // namespace tidewell::desktop
