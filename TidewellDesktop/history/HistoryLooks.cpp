// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cmath>
#include <utility>

#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/support/Background.h"

// The looks at files that the cells of the history need, and when they grow old.

namespace tidewell::desktop {

/// A wish with what it needs, and then with what was found out.
struct HistoryModel::Look {
  HistoryWish wish;
  std::vector<const History::Entry*> entries;
  std::optional<HistoryRecord::Prospect> record;
  std::optional<HistoryBatch::Prospect> batch;
};

void HistoryModel::wish(HistoryBatch& batch, HistoryRecord* record) const {
  bool& isWished = record ? record->isWished : batch.isWished;
  if (record) batch.isOpen = true;
  if (!isReadable_) return;  // a backup that is not seen may be there: what was found out last stays
  if (isWished || !(record ? record->isStale : batch.isStale)) return;
  isWished = true;
  wishes_.push_back(
      {batches_[static_cast<std::size_t>(batch.row)], record ? std::optional(record->id()) : std::nullopt});
  if (!isLooking_ && !lookSoon_.isActive()) lookSoon_.start(0);
}

/// The rows of a batch that is gone point nowhere.
bool HistoryModel::isThere(const HistoryWish& wish) const {
  const auto row = static_cast<std::size_t>(wish.batch->row);
  return row < batches_.size() && batches_[row] == wish.batch;
}

/// The record of the wish; null for a batch, and where it is gone.
HistoryRecord* HistoryModel::unwish(const HistoryWish& wish) const {
  HistoryBatch& batch = *wish.batch;
  if (!wish.record) {
    batch.isWished = false;
    return nullptr;
  }
  const auto record = std::ranges::find(batch.records, *wish.record, &HistoryRecord::id);
  if (record == batch.records.end()) return nullptr;
  record->isWished = false;
  return &*record;
}

HistoryModel::Look HistoryModel::lookFor(HistoryWish&& wish) const {
  Look look;
  look.wish = std::move(wish);
  const auto& records = look.wish.batch->records;
  if (look.wish.record) {
    const auto record = std::ranges::find(records, *look.wish.record, &HistoryRecord::id);
    if (record != records.end()) look.entries = {record->entry};
  } else {
    // The newest come first; for the others it is too late.
    for (const auto& record : records) {
      if (now_() >= record.entry->restorableUntil()) break;
      look.entries.push_back(record.entry);
    }
  }
  return look;
}

void HistoryModel::look() {
  constexpr std::size_t mostAtOnce = 300;  // more rows than a screen has
  isLooking_ = true;
  std::vector<Look> looks;
  // What was asked for first has scrolled by; a view that still shows it asks again.
  const std::size_t dropped = wishes_.size() - std::min(wishes_.size(), mostAtOnce);
  for (std::size_t i = 0; i < wishes_.size(); ++i) {
    if (!isThere(wishes_[i])) continue;
    if (i < dropped) {
      unwish(wishes_[i]);
    } else {
      looks.push_back(lookFor(std::move(wishes_[i])));
    }
  }
  wishes_.clear();
  const auto work = [looks = std::move(looks), history = history_, now = now_()]() mutable {
    for (auto& [wish, entries, record, batch] : looks) {
      if (!wish.record) {
        batch = prospectOf(*history, entries, now);
      } else if (!entries.empty()) {
        record = prospectOf(*history, *entries.front(), now);
      }
    }
    return std::move(looks);
  };
  const auto done = [this, dropped, age = age_](std::vector<Look>&& found) {
    isLooking_ = false;
    for (const auto& look : found) {
      if (isThere(look.wish)) note(look, age == age_);
    }
    if (dropped > 0) announce();
    if (!wishes_.empty()) lookSoon_.start(0);
    schedule();
  };
  inBackground(this, work, done, &threads_);
}

void HistoryModel::note(const Look& look, bool isCurrent) {
  HistoryBatch& batch = *look.wish.batch;
  HistoryRecord* record = unwish(look.wish);
  QModelIndex changed;
  if (look.batch) {
    batch.prospect = look.batch;
    batch.isStale = !isCurrent;
    changed = createIndex(batch.row, State, nullptr);
  } else if (record && look.record) {
    record->prospect = look.record;
    record->isStale = !isCurrent;
    changed = createIndex(static_cast<int>(record - batch.records.data()), State, &batch);
  }
  if (changed.isValid()) Q_EMIT dataChanged(changed, changed.siblingAtColumn(TimeLeft));
}

/// Everything may look different by now; who shows it asks again.
void HistoryModel::age() {
  ++age_;
  for (const auto& batch : batches_) {
    batch->isStale = true;
    if (!batch->isOpen) continue;
    for (auto& record : batch->records) record.isStale = true;
  }
  announce();
  schedule();
}

void HistoryModel::announce() {
  if (batches_.empty()) return;
  Q_EMIT dataChanged(createIndex(0, 0, nullptr),
                     createIndex(static_cast<int>(batches_.size()) - 1, ColumnCount - 1, nullptr));
  for (const auto& batch : batches_) {
    if (!batch->isOpen) continue;
    const int last = static_cast<int>(batch->records.size()) - 1;
    Q_EMIT dataChanged(createIndex(0, 0, batch.get()), createIndex(last, ColumnCount - 1, batch.get()));
  }
}

/// The next moment at which a text changes: a full minute, the end of a record's time, and each second before
/// it.
void HistoryModel::schedule() {
  if (!isVisible_) return clock_.stop();
  constexpr double minute = 60, grain = 0.01;
  const Date now = now_();
  double rest = minute - std::fmod(now.since1970(), minute);
  const auto consider = [&](Date until) {
    const double left = until.since(now);
    if (left > 0) rest = std::min(rest, left > minute ? left - minute : std::fmod(left, 1.0));
  };
  for (const auto& batch : batches_) {
    if (batch->prospect && batch->prospect->restorable > 0) consider(batch->prospect->until);
    if (!batch->isOpen) continue;
    for (const auto& record : batch->records) {
      if (record.isRestorable(now)) consider(record.entry->restorableUntil());
    }
  }
  clock_.wakeAt(Date::now().adding(std::max(rest, 0.0) + grain));
}

void HistoryModel::setVisible(bool isVisible) {
  if (std::exchange(isVisible_, isVisible) == isVisible) return;
  if (isVisible_) {
    reload();
    age();
  } else {
    clock_.stop();
  }
}

void HistoryModel::setClock(std::function<Date()> now) {
  now_ = std::move(now);
  age();
}

}  // namespace tidewell::desktop
