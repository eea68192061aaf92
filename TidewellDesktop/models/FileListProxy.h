// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QSortFilterProxyModel>

#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

/// The list as it is shown: sorted by a column, and filtered by a part of the name (`setFilterFixedString`)
/// and by what became of the files.
class FileListProxy : public QSortFilterProxyModel {
  Q_OBJECT

 public:
  enum class Shown { all, unfinished, saved, passedOver, failed };

  /// `files` must outlive this.
  explicit FileListProxy(FileListModel& files, QObject* parent = nullptr);

  void setShown(Shown shown);
  Shown shown() const { return shown_; }
  const FileRow& fileRow(const QModelIndex& shownIndex) const;

 protected:
  bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

 private:
  FileListModel& files_;
  Shown shown_ = Shown::all;
};

}  // namespace tidewell::desktop
