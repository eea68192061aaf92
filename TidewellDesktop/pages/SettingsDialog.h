// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDialog>

namespace tidewell::desktop {

class Settings;

/// The few settings. What is changed holds at once.
class SettingsDialog : public QDialog {
  Q_OBJECT

 public:
  /// `settings` must outlive this.
  explicit SettingsDialog(Settings& settings, QWidget* parent = nullptr);
};

}  // namespace tidewell::desktop
