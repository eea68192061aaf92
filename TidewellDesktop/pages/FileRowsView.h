// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QStyledItemDelegate>
#include <QTimer>
#include <QTreeView>

#include "TidewellDesktop/models/FileListProxy.h"
#include "TidewellDesktop/models/Thumbnails.h"

namespace tidewell::desktop {

/// The list with both sizes in one column: "2.1 MB → 640 kB".
class ShownFiles : public FileListProxy {
  Q_OBJECT

 public:
  using FileListProxy::FileListProxy;

  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
};

/// Draws the pictures beside the names.
class ThumbnailDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  /// Pictures in squares of `side` pixels that the screen does not count but the layout. `thumbnails` must
  /// outlive this.
  ThumbnailDelegate(const Thumbnails& thumbnails, int side, QObject* parent);

  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

 protected:
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

 private:
  const Thumbnails& thumbnails_;
  const int side_;
};

/// The rows of the list with their pictures; of these only the visible ones are made.
class FileRowsView : public QTreeView {
  Q_OBJECT

 public:
  /// `files` must outlive this.
  explicit FileRowsView(ShownFiles& files, QWidget* parent = nullptr);

  std::vector<FileRow> selectedRows() const;

 protected:
  void focusInEvent(QFocusEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void scrollContentsBy(int dx, int dy) override;

 private:
  void arrangeColumns();
  void wantVisible();

  ShownFiles& shown_;
  const int side_;
  Thumbnails thumbnails_;
  QTimer wantSoon_;
};

}  // namespace tidewell::desktop
