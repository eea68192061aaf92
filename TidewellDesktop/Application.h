// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>
#include <memory>
#include <vector>

#include "CompressionKit/platform/URL.h"
#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/desktop/Instance.h"
#include "TidewellDesktop/desktop/Notification.h"

namespace tidewell::desktop {

class MainWindow;

/// The program from its start to its end. It outlives its window while a batch runs whose end it is to tell,
/// or originals are being put back.
class Application : public QObject {
  Q_OBJECT

 public:
  struct Arguments {
    std::vector<URL> files;
    bool isService = false;  ///< started by the bus, which says next what is wanted
  };

  explicit Application(const QDBusConnection& connection);
  ~Application() override;

  /// False where a program that runs already took over, and this one has nothing to do.
  bool start(const Arguments& arguments);

 private:
  void makeWorkspace();
  MainWindow& window();
  void show(const std::vector<URL>& files, const QByteArray& token);
  /// An undo that nobody watches failed: somebody has to know.
  void showHidden();
  void runAction(const QString& action);
  void closeNotification();
  void notifyEnd();
  bool isWindowActive() const;
  void leaveIfDone();

  QDBusConnection connection_;
  Instance instance_;
  Notification notification_;
  QTimer patience_;  ///< with a bus that started this and asks nothing, and with a notification
  bool isNotifying_ = false;
  std::unique_ptr<Workspace> workspace_;
  std::unique_ptr<MainWindow> window_;
};

}  // namespace tidewell::desktop
