// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QLabel>

namespace tidewell::desktop {

/// A name or path on one line, which leaves its middle out where it is too long; the tooltip has all of it.
class ElidedLabel : public QLabel {
  Q_OBJECT

 public:
  explicit ElidedLabel(const QString& text, QWidget* parent = nullptr);

  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
};

/// Lets words that are longer than the label be cut off, where the window would grow with them. For labels of
/// more than one line that may name files.
void allowLongWords(QLabel& label);

}  // namespace tidewell::desktop
