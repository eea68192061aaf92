// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::desktop {

enum class RowState { waiting, working, replaced, converted, skipped, failed, alreadyCompressed, restored };

/// Nothing more will come of the file by itself.
bool isDone(RowState state);

struct FileRow {
  URL url;
  RowState state = RowState::waiting;
  std::optional<std::int64_t> before = std::nullopt;  ///< bytes
  std::optional<std::int64_t> after = std::nullopt;   ///< of what stands there, where the file is done
  std::optional<double> score = std::nullopt;
  std::optional<std::string> encoder = std::nullopt;
  std::optional<UUID> record = std::nullopt;  ///< in the undo store
  std::optional<UUID> batch = std::nullopt;   ///< the record's
  QString why = {};                           ///< of a file that was skipped or failed

  /// Never below 0; nothing where no other bytes stand there now.
  std::optional<std::int64_t> savedBytes() const;
  bool operator==(const FileRow&) const = default;
};

/// The files of the window, one row each. Rows are found by their path at once, whatever their number.
class FileListModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { Name, Before, After, Saved, Score, State, ColumnCount };
  enum Role {
    PathRole = Qt::UserRole,  ///< QByteArray: the exact path
    StateRole,                ///< int, of `RowState`
    RecordRole,               ///< QString: the record's UUID, or empty
    SortRole,                 ///< what rows are sorted by in this column
  };

  explicit FileListModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

  const FileRow& row(int index) const { return rows_[static_cast<std::size_t>(index)]; }
  std::optional<int> find(const URL& file) const;

  /// Adds rows at the end; one whose path is there already takes that place.
  void add(std::vector<FileRow> rows);
  /// Rows of files that are not in the list are passed over.
  void update(const std::vector<FileRow>& rows);
  void removeAll();

  /// Kept as rows change, so that asking costs nothing.
  struct Totals {
    std::int64_t files = 0;       ///< without those that were compressed before
    std::int64_t done = 0;        ///< of these
    std::int64_t failed = 0;      ///< of those done
    std::int64_t restored = 0;    ///< of those done; what they took counts no more
    std::int64_t savedBytes = 0;  ///< never less for a file that grew
    std::int64_t ofBytes = 0;     ///< what the files that are done took before
    bool operator==(const Totals&) const = default;
  };
  const Totals& totals() const { return totals_; }

 Q_SIGNALS:
  void totalsChanged();

 private:
  void count(const FileRow& row, int sign);
  bool put(int index, FileRow row);
  void tellChanged(std::vector<int> changed);

  std::vector<FileRow> rows_;
  std::unordered_map<std::string, int> index_;  ///< by path
  Totals totals_;
};

}  // namespace tidewell::desktop
