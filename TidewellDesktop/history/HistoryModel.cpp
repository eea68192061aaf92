// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/history/HistoryModel.h"

#include <QFile>
#include <algorithm>
#include <iterator>
#include <utility>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

std::vector<UUID> idsOf(const HistoryBatches& batches) {
  std::vector<UUID> ids;
  ids.reserve(batches.size());
  for (const auto& batch : batches) ids.push_back(batch->id);
  return ids;
}

std::vector<UUID> idsOf(const std::vector<HistoryRecord>& records) {
  std::vector<UUID> ids;
  ids.reserve(records.size());
  for (const auto& record : records) ids.push_back(record.id());
  return ids;
}

/// The folder whose change says that something at `url` may have come into being.
URL nearestFolder(URL url) {
  while (!files::exists(url) && url.path() != "/") url = url.deletingLastPathComponent();
  return url;
}

QString watchedPath(const URL& url) {
  return QFile::decodeName(QByteArray::fromStdString(url.path()));
}

}  // namespace

struct HistoryModel::Loaded {
  std::shared_ptr<const History> history;  ///< null for `problem`
  HistoryBatches batches;
  QString problem;
  QString folder;  ///< to watch
};

HistoryModel::HistoryModel(const UndoStore& store, QObject* parent)
    : QAbstractItemModel(parent), store_(store) {
  threads_.setMaxThreadCount(2);  // looking need not wait for reading
  again_.setSingleShot(true);
  connect(&again_, &QTimer::timeout, this, &HistoryModel::load);
  lookSoon_.setSingleShot(true);
  connect(&lookSoon_, &QTimer::timeout, this, &HistoryModel::look);
  connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &HistoryModel::reload);
  connect(&clock_, &WallClock::woke, this, &HistoryModel::age);
}

HistoryModel::~HistoryModel() = default;

// --- Structure: an index of a record carries its batch, one of a batch carries nothing. ---

HistoryBatch* HistoryModel::batchAt(const QModelIndex& index) const {
  if (!index.isValid()) return nullptr;
  if (index.internalPointer()) return static_cast<HistoryBatch*>(index.internalPointer());
  return batches_[static_cast<std::size_t>(index.row())].get();
}

HistoryRecord* HistoryModel::recordAt(const QModelIndex& index) const {
  if (!index.isValid() || !index.internalPointer()) return nullptr;
  return &batchAt(index)->records[static_cast<std::size_t>(index.row())];
}

int HistoryModel::columnCount(const QModelIndex&) const {
  return ColumnCount;
}

int HistoryModel::rowCount(const QModelIndex& parent) const {
  if (!parent.isValid()) return static_cast<int>(batches_.size());
  if (parent.internalPointer() || parent.column() != 0) return 0;
  return static_cast<int>(batchAt(parent)->records.size());
}

QModelIndex HistoryModel::index(int row, int column, const QModelIndex& parent) const {
  if (!hasIndex(row, column, parent)) return {};
  return createIndex(row, column, parent.isValid() ? batchAt(parent) : nullptr);
}

QModelIndex HistoryModel::parent(const QModelIndex& child) const {
  if (!child.isValid() || !child.internalPointer()) return {};
  return createIndex(batchAt(child)->row, 0, nullptr);
}

std::vector<UndoRecord> HistoryModel::records(const QModelIndex& index) const {
  std::vector<UndoRecord> found;
  if (const auto* record = recordAt(index)) {
    found.push_back(record->entry->record);
  } else if (const auto* batch = batchAt(index)) {
    for (const auto& each : batch->records) found.push_back(each.entry->record);
  }
  return found;
}

QModelIndex HistoryModel::indexOf(const UUID& id, const std::optional<UUID>& recordID) const {
  const auto batch = std::ranges::find_if(batches_, [&](const auto& each) { return each->id == id; });
  if (batch == batches_.end()) return {};
  if (!recordID) return createIndex((*batch)->row, 0, nullptr);
  const auto& records = (*batch)->records;
  const auto record = std::ranges::find(records, *recordID, &HistoryRecord::id);
  if (record == records.end()) return {};
  return createIndex(static_cast<int>(record - records.begin()), 0, batch->get());
}

// --- Reading the store ---

void HistoryModel::reload() {
  if (isLoading_) {
    isOutdated_ = true;
  } else if (!again_.isActive()) {
    // A batch that runs changes the store without pause: a fifth of a processor is enough for following it.
    const qint64 pause = std::max<qint64>(200, 4 * loadTook_);
    const qint64 rest = sinceLoad_.isValid() ? pause - sinceLoad_.elapsed() : 0;
    rest > 0 ? again_.start(static_cast<int>(rest)) : load();
  }
}

void HistoryModel::load() {
  isLoading_ = true;
  isOutdated_ = false;
  QElapsedTimer timer;
  timer.start();
  const auto read = [store = store_, earlier = history_]() -> Loaded {
    Loaded loaded;
    loaded.folder = watchedPath(nearestFolder(store.root()));
    try {
      loaded.history = std::make_shared<const History>(store, earlier.get());
      loaded.batches = batchesOf(*loaded.history);
    } catch (const std::exception&) {
      loaded.history = nullptr;
      loaded.problem = words(describedError(std::current_exception()));
    }
    return loaded;
  };
  const auto done = [this, timer](Loaded&& loaded) {
    loadTook_ = timer.elapsed();
    take(std::move(loaded));
  };
  inBackground(this, read, done, &threads_);
}

void HistoryModel::take(Loaded&& read) {
  isLoading_ = false;
  sinceLoad_.start();
  if (read.history) {
    const auto unreadable = static_cast<std::int64_t>(read.history->unreadable());
    problem_ = unreadable == 0 ? QString()
                               : words(counted("{1} record or batch cannot be read",
                                               "{1} records or batches cannot be read", unreadable));
    // The rows point into the history before until they are brought up to date.
    const auto before = std::exchange(history_, std::move(read.history));
    adopt(std::move(read.batches));
    isReadable_ = true;
  } else {
    isReadable_ = false;
    problem_ = read.problem;  // what was known may still be true
  }
  // What happened before a folder was watched went unseen.
  if (watch(read.folder)) isOutdated_ = true;
  age();
  if (isOutdated_) reload();
  Q_EMIT loaded();
}

void HistoryModel::number(std::size_t from) {
  for (; from < batches_.size(); ++from) batches_[from]->row = static_cast<int>(from);
}

void HistoryModel::adopt(HistoryBatches&& fresh) {
  const auto changes = rowChanges(idsOf(batches_), idsOf(fresh));
  if (!changes || batches_.empty()) {
    beginResetModel();
    wishes_.clear();
    batches_ = std::move(fresh);
    number(0);
    endResetModel();
    return;
  }
  std::vector<bool> isNew(fresh.size());
  for (const auto& [isInsertion, at, count] : *changes) {
    const int first = static_cast<int>(at), last = static_cast<int>(at + count) - 1;
    const auto place = batches_.begin() + first;
    if (isInsertion) {
      beginInsertRows({}, first, last);
      batches_.insert(place, fresh.begin() + first, fresh.begin() + last + 1);
      std::fill(isNew.begin() + first, isNew.begin() + last + 1, true);
    } else {
      beginRemoveRows({}, first, last);
      batches_.erase(place, place + (last - first + 1));
    }
    number(at);
    isInsertion ? endInsertRows() : endRemoveRows();
  }
  for (std::size_t i = 0; i < batches_.size(); ++i) {
    if (!isNew[i]) adoptRecords(*batches_[i], *fresh[i]);
  }
}

void HistoryModel::adoptRecords(HistoryBatch& batch, HistoryBatch& fresh) {
  const QModelIndex parent = createIndex(batch.row, 0, nullptr);
  auto& rows = batch.records;
  std::optional<std::vector<RowChange>> changes{std::in_place};
  if (!std::ranges::equal(rows, fresh.records, {}, &HistoryRecord::id, &HistoryRecord::id)) {
    changes = rowChanges(idsOf(rows), idsOf(fresh.records));
  }
  if (!changes) changes = {{false, 0, rows.size()}, {true, 0, fresh.records.size()}};
  for (const auto& [isInsertion, at, count] : *changes) {
    const int first = static_cast<int>(at), last = static_cast<int>(at + count) - 1;
    const auto place = rows.begin() + first;
    if (isInsertion) {
      beginInsertRows(parent, first, last);
      rows.insert(place, fresh.records.begin() + first, fresh.records.begin() + last + 1);
      endInsertRows();
    } else {
      beginRemoveRows(parent, first, last);
      rows.erase(place, place + (last - first + 1));
      endRemoveRows();
    }
  }
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i].entry = fresh.records[i].entry;
  batch.newest = fresh.newest;
  batch.before = fresh.before;
  batch.after = fresh.after;
}

/// Whether there is a new folder among the watched. Those of old batches hardly change, and watching is not
/// free: a program that does change one tells it on the bus.
bool HistoryModel::watch(const QString& folder) {
  constexpr std::size_t mostBatches = 100;
  QStringList wanted{folder}, known = watcher_.directories(), unwanted, missing;
  for (std::size_t i = 0; i < std::min(batches_.size(), mostBatches); ++i) {
    wanted.push_back(watchedPath(store_.root().appending(batches_[i]->id.string())));
  }
  wanted.sort();
  known.sort();
  std::ranges::set_difference(known, wanted, std::back_inserter(unwanted));
  std::ranges::set_difference(wanted, known, std::back_inserter(missing));
  if (!unwanted.isEmpty()) watcher_.removePaths(unwanted);
  return !missing.isEmpty() && watcher_.addPaths(missing).size() < missing.size();
}

}  // namespace tidewell::desktop
