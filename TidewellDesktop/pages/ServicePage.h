// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QWidget>

#include "TidewellDesktop/service/ServiceClient.h"

class QLabel;

namespace tidewell::desktop {

/// What the window shows where nothing can be compressed: why, and what to do about it.
class ServicePage : public QWidget {
  Q_OBJECT

 public:
  explicit ServicePage(QWidget* parent = nullptr);

  void tell(ServiceClient::State state);

 Q_SIGNALS:
  void lookAgainRequested();

 private:
  QLabel *title_ = nullptr, *advice_ = nullptr, *command_ = nullptr;
};

}  // namespace tidewell::desktop
