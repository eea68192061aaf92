// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QAbstractItemModel>
#include <QElapsedTimer>
#include <QFileSystemWatcher>
#include <QMetaType>
#include <QThreadPool>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/history/HistoryRows.h"
#include "TidewellDesktop/history/WallClock.h"

Q_DECLARE_METATYPE(tidewell::UndoRecord)

namespace tidewell::desktop {

/// What was replaced and can perhaps be undone: batches, the newest first, with their records below them. The
/// store is read, and the files of records are looked at, on other threads; of these only such as are asked
/// for, so that a view of a long history looks at what it shows. Follows the store by itself.
class HistoryModel : public QAbstractItemModel {
  Q_OBJECT

 public:
  enum Column { Name, When, Before, After, Saved, State, TimeLeft, Folder, ColumnCount };
  enum Role {
    RecordRole = Qt::UserRole + 1,  ///< an `UndoRecord`; of a batch, nothing
    StateRole,                      ///< `History::State` as int; nothing while unknown, and for a batch
    BackupRole,                     ///< bool: there is a backup; nothing while unknown, and for a batch
    RestorableRole,                 ///< int: how many can be restored; nothing while unknown
  };

  explicit HistoryModel(const UndoStore& store = UndoStore(), QObject* parent = nullptr);
  ~HistoryModel() override;

  const UndoStore& store() const { return store_; }
  /// Reads the store anew. Soon rather than at once where that was done just before.
  void reload();
  bool isLoaded() const { return history_ != nullptr; }
  /// Why the store could not be read, or that parts of it could not; empty when all is well.
  const QString& problem() const { return problem_; }
  /// All records of a batch, or the one; newest first.
  std::vector<UndoRecord> records(const QModelIndex& index) const;
  /// Of the batch there, or of the record's.
  UUID batchID(const QModelIndex& index) const { return batchAt(index)->id; }
  /// Where a record is; without one, where the batch is. Invalid when it is gone.
  QModelIndex indexOf(const UUID& batch, const std::optional<UUID>& record = std::nullopt) const;

  /// The countdown runs while somebody looks.
  void setVisible(bool isVisible);
  /// Takes another clock; for tests.
  void setClock(std::function<Date()> now);

  int columnCount(const QModelIndex& parent = {}) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 Q_SIGNALS:
  /// The store was read; perhaps nothing is new.
  void loaded();

 private:
  struct Loaded;
  struct Look;

  HistoryBatch* batchAt(const QModelIndex& index) const;
  HistoryRecord* recordAt(const QModelIndex& index) const;
  QVariant batchData(HistoryBatch& batch, int column, int role) const;
  QVariant recordData(HistoryBatch& batch, HistoryRecord& record, int column, int role) const;
  QVariant recordText(const HistoryRecord& record, int column) const;

  void load();
  void take(Loaded&& loaded);
  void adopt(HistoryBatches&& fresh);
  void adoptRecords(HistoryBatch& batch, HistoryBatch& fresh);
  void number(std::size_t from);
  bool watch(const QString& folder);

  void wish(HistoryBatch& batch, HistoryRecord* record) const;
  bool isThere(const HistoryWish& wish) const;
  HistoryRecord* unwish(const HistoryWish& wish) const;
  Look lookFor(HistoryWish&& wish) const;
  void look();
  void note(const Look& look, bool isCurrent);
  void age();
  void announce();
  void schedule();

  UndoStore store_;
  std::function<Date()> now_ = &Date::now;
  std::shared_ptr<const History> history_;  ///< that the rows point into
  HistoryBatches batches_;
  QString problem_;

  // Reading the store.
  bool isLoading_ = false, isOutdated_ = false;
  bool isReadable_ = true;  ///< the store, when it was last tried
  QTimer again_;
  QElapsedTimer sinceLoad_;
  qint64 loadTook_ = 0;  ///< milliseconds
  QFileSystemWatcher watcher_;

  // Looking at files.
  mutable std::vector<HistoryWish> wishes_;  ///< that reading `data` has left
  mutable QTimer lookSoon_;
  bool isLooking_ = false, isVisible_ = false;
  int age_ = 0;  ///< what was seen at another is stale
  WallClock clock_;

  QThreadPool threads_;  ///< last, for its work uses none of the above after its end
};

}  // namespace tidewell::desktop
