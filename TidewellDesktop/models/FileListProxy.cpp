// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/FileListProxy.h"

#include <utility>

namespace tidewell::desktop {
namespace {

bool belongs(RowState state, FileListProxy::Shown shown) {
  switch (shown) {
    case FileListProxy::Shown::all:
      return true;
    case FileListProxy::Shown::unfinished:
      return !isDone(state);
    case FileListProxy::Shown::saved:
      return state == RowState::replaced || state == RowState::converted;
    case FileListProxy::Shown::passedOver:
      return state == RowState::skipped || state == RowState::alreadyCompressed ||
             state == RowState::restored;
    case FileListProxy::Shown::failed:
      return state == RowState::failed;
  }
  return true;
}

}  // namespace

FileListProxy::FileListProxy(FileListModel& files, QObject* parent)
    : QSortFilterProxyModel(parent), files_(files) {
  setSourceModel(&files);
  setSortRole(FileListModel::SortRole);
  setSortCaseSensitivity(Qt::CaseInsensitive);
  setSortLocaleAware(true);
  setFilterKeyColumn(FileListModel::Name);
  setFilterCaseSensitivity(Qt::CaseInsensitive);
}

void FileListProxy::setShown(Shown shown) {
  if (std::exchange(shown_, shown) != shown) invalidateFilter();
}

const FileRow& FileListProxy::fileRow(const QModelIndex& shownIndex) const {
  return files_.row(mapToSource(shownIndex).row());
}

bool FileListProxy::filterAcceptsRow(int row, const QModelIndex& parent) const {
  return belongs(files_.row(row).state, shown_) && QSortFilterProxyModel::filterAcceptsRow(row, parent);
}

}  // namespace tidewell::desktop
