#pragma once

#include <QAbstractItemModel>
#include <QElapsedTimer>
#include <QFileSystemWatcher>
#include <QMetaType>
#include <QTimer>
#include <cstdint>
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
  enum Column { Name, When, Before, After, Saved, State, TimeLeft, ColumnCount };
  enum Role {
    RecordRole = Qt::UserRole + 1,  ///< an `UndoRecord`; of a batch, nothing
    StateRole,                      ///< `History::State` as int; nothing while unknown, and for a batch
    BatchRole,                      ///< QString: the batch's ID
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
  /// All records of a batch, or the one; newest first. Also those that no view has fetched.
  std::vector<UndoRecord> records(const QModelIndex& index) const;
  /// Where a record is; of a batch with no record, the batch. Invalid when it is gone.
  QModelIndex indexOf(const UUID& batch, const std::optional<UUID>& record = std::nullopt) const;

  /// The countdown runs while somebody looks.
  void setVisible(bool isVisible);
  /// The clock; for tests.
  void setClock(std::function<Date()> now);

  int columnCount(const QModelIndex& parent = {}) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  bool hasChildren(const QModelIndex& parent = {}) const override;
  bool canFetchMore(const QModelIndex& parent) const override;
  void fetchMore(const QModelIndex& parent) override;
  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 Q_SIGNALS:
  /// The store was read; perhaps nothing is new.
  void loaded();

 private:
  struct Loaded;
  struct Looked;

  void load();
  void take(Loaded&& loaded);
  void adopt(std::vector<HistoryBatch>&& batches);
  void adoptRecords(int row, HistoryBatch&& batch);
  void watch();
  void wish(const QModelIndex& index) const;
  void look();
  void tick();
  QVariant batchData(const HistoryBatch& batch, const QModelIndex& index, int role) const;
  QVariant recordData(const HistoryRecord& record, const QModelIndex& index, int role) const;

  UndoStore store_;
  std::function<Date()> now_ = &Date::now;
  std::shared_ptr<const History> history_;  ///< that the rows point into
  std::vector<HistoryBatch> batches_;
  QString problem_;

  // Reading the store.
  bool isLoading_ = false, isStale_ = false;
  QTimer again_;
  QElapsedTimer sinceLoad_;
  qint64 loadTook_ = 0;
  QFileSystemWatcher watcher_;

  // Looking at files. Asked for while `data` is read.
  struct Wish {
    UUID batch;
    std::optional<UUID> record;
  };
  mutable std::vector<Wish> wishes_;
  mutable QTimer lookSoon_;
  bool isLooking_ = false;
  bool isVisible_ = false;
  WallClock clock_;
};

}  // namespace tidewell::desktop
