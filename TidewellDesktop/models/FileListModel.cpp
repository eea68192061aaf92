// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/FileListModel.h"

#include <algorithm>
#include <utility>

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "TidewellDesktop/support/Columns.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

QString stateText(RowState state) {
  switch (state) {
    case RowState::waiting:
      return words(_("Waiting"));
    case RowState::working:
      return words(_("Being compressed"));
    case RowState::replaced:
      return words(_("Replaced"));
    case RowState::converted:
      return words(_("Converted"));
    case RowState::skipped:
      return words(_("Skipped"));
    case RowState::failed:
      return words(_("Failed"));
    case RowState::alreadyCompressed:
      return words(_("Compressed before"));
    case RowState::restored:
      return words(_("Restored"));
  }
  return {};
}

QString sizeWords(const std::optional<std::int64_t>& bytes) {
  return bytes ? amountWords(sizeText(*bytes)) : QString();
}

QString display(const FileRow& row, int column) {
  switch (column) {
    case FileListModel::Name:
      return shownPath(row.url.lastPathComponent());
    case FileListModel::Before:
      return sizeWords(row.before);
    case FileListModel::After:
      return sizeWords(row.after);
    case FileListModel::Saved:
      return row.savedBytes() ? amountWords(savedText(*row.before, *row.after)) : QString();
    case FileListModel::Score:
      return row.score ? words(scoreText(*row.score)) : QString();
    case FileListModel::State:
      return row.why.isEmpty() ? stateText(row.state) : words(_("{1}: {2}"), {stateText(row.state), row.why});
  }
  return {};
}

/// Proxies compare numbers of few types as such.
QVariant sortable(const std::optional<std::int64_t>& bytes) {
  return QVariant::fromValue<qlonglong>(bytes.value_or(-1));
}

QVariant sortKey(const FileRow& row, int column) {
  switch (column) {
    case FileListModel::Before:
      return sortable(row.before);
    case FileListModel::After:
      return sortable(row.after);
    case FileListModel::Saved: {
      const auto saved = row.savedBytes();
      return saved && *row.before > 0 ? double(*saved) / double(*row.before) : -1.0;
    }
    case FileListModel::Score:
      return row.score.value_or(-1);
    case FileListModel::State:
      return static_cast<int>(row.state);
    default:
      return display(row, column);
  }
}

}  // namespace

bool isDone(RowState state) {
  return state != RowState::waiting && state != RowState::working;
}

std::optional<std::int64_t> FileRow::savedBytes() const {
  if ((state != RowState::replaced && state != RowState::converted) || !before || !after) return std::nullopt;
  return std::max<std::int64_t>(*before - *after, 0);
}

int FileListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int FileListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : ColumnCount;
}

QVariant FileListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || !checkIndex(index)) return {};  // assistive programs ask for no cell too
  const FileRow& file = row(index.row());
  switch (role) {
    case Qt::DisplayRole:
      return display(file, index.column());
    case Qt::ToolTipRole:
      return plainTip(file.why.isEmpty() ? shownPath(file.url.path())
                                         : shownPath(file.url.path()) + QLatin1Char('\n') + file.why);
    case Qt::TextAlignmentRole:
      return headerData(index.column(), Qt::Horizontal, role);
    case PathRole:
      return QByteArray::fromStdString(file.url.path());
    case StateRole:
      return static_cast<int>(file.state);
    case RecordRole:
      return file.record ? words(file.record->string()) : QString();
    case SortRole:
      return sortKey(file, index.column());
    default:
      return {};
  }
}

QVariant FileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  static constexpr TableColumn columns[ColumnCount] = {{N_("Name")},        {N_("Before"), true},
                                                       {N_("After"), true}, {N_("Saved"), true},
                                                       {N_("Score"), true}, {N_("State")}};
  return desktop::headerData(columns, section, orientation, role);
}

std::optional<int> FileListModel::find(const URL& file) const {
  const auto found = index_.find(file.path());
  return found == index_.end() ? std::nullopt : std::optional(found->second);
}

void FileListModel::add(std::vector<FileRow> rows) {
  std::vector<FileRow> added;
  std::vector<int> changed;
  const int first = rowCount();
  for (FileRow& row : rows) {
    const auto [place, isNew] = index_.try_emplace(row.url.path(), first + static_cast<int>(added.size()));
    if (isNew) {
      added.push_back(std::move(row));
    } else if (place->second >= first) {  // named twice among these
      added[static_cast<std::size_t>(place->second - first)] = std::move(row);
    } else if (put(place->second, std::move(row))) {
      changed.push_back(place->second);
    }
  }
  if (!added.empty()) {
    beginInsertRows({}, first, first + static_cast<int>(added.size()) - 1);
    for (FileRow& row : added) {
      count(row, 1);
      rows_.push_back(std::move(row));
    }
    endInsertRows();
  }
  tellChanged(std::move(changed));
  if (!rows.empty()) Q_EMIT totalsChanged();
}

void FileListModel::update(const std::vector<FileRow>& rows) {
  std::vector<int> changed;
  for (const FileRow& row : rows) {
    const auto place = find(row.url);
    if (place && put(*place, row)) changed.push_back(*place);
  }
  if (changed.empty()) return;
  tellChanged(std::move(changed));
  Q_EMIT totalsChanged();
}

void FileListModel::removeAll() {
  if (rows_.empty()) return;
  beginResetModel();
  rows_.clear();
  index_.clear();
  totals_ = {};
  endResetModel();
  Q_EMIT totalsChanged();
}

void FileListModel::count(const FileRow& row, int sign) {
  if (row.state == RowState::alreadyCompressed) return;
  totals_.files += sign;
  if (!isDone(row.state)) return;
  totals_.done += sign;
  if (row.state == RowState::failed) totals_.failed += sign;
  if (row.state == RowState::restored) {
    totals_.restored += sign;
    return;
  }
  totals_.savedBytes += sign * row.savedBytes().value_or(0);
  totals_.ofBytes += sign * row.before.value_or(0);
}

/// False where nothing changed.
bool FileListModel::put(int index, FileRow row) {
  FileRow& place = rows_[static_cast<std::size_t>(index)];
  if (place == row) return false;
  count(place, -1);
  count(row, 1);
  place = std::move(row);
  return true;
}

/// Views look at each range anew, so neighbours are told of together.
void FileListModel::tellChanged(std::vector<int> changed) {
  std::ranges::sort(changed);
  for (std::size_t first = 0; first < changed.size();) {
    std::size_t last = first;
    while (last + 1 < changed.size() && changed[last + 1] <= changed[last] + 1) ++last;
    Q_EMIT dataChanged(index(changed[first], 0), index(changed[last], ColumnCount - 1));
    first = last + 1;
  }
}

}  // namespace tidewell::desktop
