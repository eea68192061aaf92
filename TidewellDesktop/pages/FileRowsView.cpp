// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/FileRowsView.h"

#include <QFocusEvent>
#include <QGuiApplication>
#include <QHeaderView>
#include <QPixmap>
#include <algorithm>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

QVariant ShownFiles::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};  // Qt asks so for assistive programs
  QVariant before = FileListProxy::data(index, role);
  if (index.column() != FileListModel::Before || role != Qt::DisplayRole) return before;
  const QString after = FileListProxy::data(index.siblingAtColumn(FileListModel::After), role).toString();
  if (after.isEmpty()) return before;
  return amountWords(words("{1} → {2}", {before.toString(), after}).toStdString());
}

QVariant ShownFiles::headerData(int section, Qt::Orientation orientation, int role) const {
  if (section == FileListModel::Before && orientation == Qt::Horizontal && role == Qt::DisplayRole)
    return words(_("Size"));
  return FileListProxy::headerData(section, orientation, role);
}

ThumbnailDelegate::ThumbnailDelegate(const Thumbnails& thumbnails, int side, QObject* parent)
    : QStyledItemDelegate(parent), thumbnails_(thumbnails), side_(side) {}

QSize ThumbnailDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
  return QStyledItemDelegate::sizeHint(option, index).expandedTo({0, side_ + side_ / 6});
}

void ThumbnailDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
  QStyledItemDelegate::initStyleOption(option, index);
  option->textElideMode = Qt::ElideMiddle;
  option->features |= QStyleOptionViewItem::HasDecoration;
  option->decorationSize = {side_, side_};
  QPixmap pixmap = QPixmap::fromImage(thumbnails_.image(index.data(FileListModel::PathRole).toByteArray()));
  if (pixmap.isNull()) {
    pixmap = QPixmap(side_, side_);
    pixmap.fill(Qt::transparent);
  } else {
    const int longer = std::max(pixmap.width(), pixmap.height());
    pixmap.setDevicePixelRatio(std::max(1.0, static_cast<double>(longer) / side_));
  }
  // Also for selected rows, where styles would dye it.
  option->icon = QIcon(pixmap);
  option->icon.addPixmap(pixmap, QIcon::Selected);
}

FileRowsView::FileRowsView(ShownFiles& files, QWidget* parent)
    : QTreeView(parent),
      shown_(files),
      side_(fontMetrics().height() * 5 / 2),
      thumbnails_(static_cast<int>(side_ * qGuiApp->devicePixelRatio())) {
  setModel(&files);
  setRootIsDecorated(false);
  setUniformRowHeights(true);
  setAlternatingRowColors(true);
  setAllColumnsShowFocus(true);
  setSelectionMode(ExtendedSelection);
  setVerticalScrollMode(ScrollPerPixel);
  setItemDelegateForColumn(FileListModel::Name, new ThumbnailDelegate(thumbnails_, side_, this));
  arrangeColumns();
  wantSoon_.setSingleShot(true);
  wantSoon_.setInterval(20);
  connect(&wantSoon_, &QTimer::timeout, this, &FileRowsView::wantVisible);
  const auto soon = [this] { wantSoon_.start(); };
  connect(&files, &QAbstractItemModel::rowsInserted, this, soon);
  connect(&files, &QAbstractItemModel::rowsRemoved, this, soon);
  connect(&files, &QAbstractItemModel::layoutChanged, this, soon);
  connect(&files, &QAbstractItemModel::modelReset, this, soon);
  connect(&thumbnails_, &Thumbnails::ready, viewport(), qOverload<>(&QWidget::update));
}

void FileRowsView::arrangeColumns() {
  setSortingEnabled(true);
  header()->setSortIndicatorClearable(true);
  header()->setSortIndicator(-1, Qt::AscendingOrder);
  header()->setStretchLastSection(true);
  setColumnHidden(FileListModel::After, true);
  const int character = fontMetrics().averageCharWidth();
  const std::pair<FileListModel::Column, int> widths[] = {{FileListModel::Name, 44},
                                                          {FileListModel::Before, 28},
                                                          {FileListModel::Saved, 26},
                                                          {FileListModel::Score, 12}};
  for (const auto& [column, characters] : widths) setColumnWidth(column, characters * character);
}

std::vector<FileRow> FileRowsView::selectedRows() const {
  std::vector<FileRow> rows;
  for (const QModelIndex& index : selectionModel()->selectedRows()) rows.push_back(shown_.fileRow(index));
  return rows;
}

void FileRowsView::focusInEvent(QFocusEvent* event) {
  QTreeView::focusInEvent(event);
  // By keyboard one is then on a row, and its actions are there.
  if (!selectionModel()->hasSelection() && event->reason() != Qt::MouseFocusReason)
    setCurrentIndex(currentIndex().isValid() ? currentIndex() : shown_.index(0, 0));
}

void FileRowsView::resizeEvent(QResizeEvent* event) {
  QTreeView::resizeEvent(event);
  wantSoon_.start();
}

void FileRowsView::showEvent(QShowEvent* event) {
  QTreeView::showEvent(event);
  wantSoon_.start();
}

void FileRowsView::scrollContentsBy(int dx, int dy) {
  QTreeView::scrollContentsBy(dx, dy);
  wantSoon_.start();
}

void FileRowsView::wantVisible() {
  std::vector<URL> visible;
  if (isVisible()) {
    const int bottom = viewport()->height();
    for (auto index = indexAt({0, 0}); index.isValid() && visualRect(index).top() < bottom;
         index = indexBelow(index))
      visible.push_back(shown_.fileRow(index).url);
  }
  thumbnails_.want(visible);
}

}  // namespace tidewell::desktop
