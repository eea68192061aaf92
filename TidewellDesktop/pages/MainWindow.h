// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QMainWindow>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"

class QAction;
class QStackedWidget;

namespace tidewell::desktop {

class ComparePage;
class EmptyPage;
class ExplainPage;
class FileChooser;
class Footer;
class HistoryPage;
class ListPage;
class MessageBar;
class ServicePage;
class Workspace;

/// The window: its pages, one at a time, and below them the line that is always there.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  /// `workspace` must outlive this.
  MainWindow(Workspace& workspace, const QDBusConnection& connection);

  void add(const std::vector<URL>& files);
  /// To the front, with what the desktop gave for it.
  void present(const QByteArray& token);

 Q_SIGNALS:
  void closed();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragLeaveEvent(QDragLeaveEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void makePages();
  void makeActions();
  void makeMenus();
  void makeToolBar();
  QAction* makeAction(const QString& text, const char* icon, const QKeySequence& shortcut,
                      void (MainWindow::*slot)());
  void connectWorkspace();
  void choose();
  void chooseFolder();
  void paste();
  void showHome();
  void showHistory();
  void showSettings();
  void showAbout();
  void filter();
  void goBack();
  void clear();
  void showPage(QWidget* page);
  /// To come back to from `next`.
  void rememberPage(const QWidget* next);
  void openComparison(const UndoRecord& record);
  void openExplanation(const URL& source, Date before);
  void restore(const UndoRecord& record);
  bool canWork() const;
  QWidget* home() const;
  bool isAtHome() const;
  void updateState();
  void updateActions();

  Workspace& workspace_;
  QDBusConnection connection_;
  FileChooser* chooser_ = nullptr;
  QStackedWidget* pages_ = nullptr;
  MessageBar* message_ = nullptr;
  EmptyPage* empty_ = nullptr;
  ListPage* list_ = nullptr;
  ServicePage* service_ = nullptr;
  HistoryPage* history_ = nullptr;
  ComparePage* compare_ = nullptr;
  ExplainPage* explain_ = nullptr;
  std::vector<QWidget*> before_;  ///< pages to go back to
  QAction *addPictures_ = nullptr, *addFolder_ = nullptr, *paste_ = nullptr, *clear_ = nullptr,
          *compress_ = nullptr, *settings_ = nullptr, *quit_ = nullptr, *homeAction_ = nullptr,
          *historyAction_ = nullptr, *filter_ = nullptr, *back_ = nullptr, *about_ = nullptr;
};

}  // namespace tidewell::desktop
