// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <atomic>
#include <functional>
#include <vector>

#include "CompressionKit/batch/UndoActions.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell::desktop {

/// What became of one wish.
struct UndoSummary {
  enum class Action { restore, forget, copyOut };
  int done = 0;          ///< records; what was not done has its words in `problems` or `notes`
  QStringList problems;  ///< one sentence a record, and how to help oneself where there is a way
  Action action = Action::restore;
  QStringList notes;  ///< what there was nothing to do for, and where a copy lies
  bool isCutShort = false;

  /// "3 files restored".
  QString text() const;
};

/// Carries out what users do with records, one wish after the other on one thread of its own, each record
/// with the permit of its file. Lives on the interface's thread; its end waits for the record at hand, so
/// that a file is whole, and drops the rest.
class UndoWorker : public QObject {
  Q_OBJECT

 public:
  explicit UndoWorker(const UndoStore& store = UndoStore(), QObject* parent = nullptr);
  ~UndoWorker() override;

  const UndoStore& store() const { return actions_.store(); }
  /// Wishes are under way.
  bool isBusy() const { return wishes_ > 0; }

  /// The newest first, for only they can make way for those before.
  void restore(std::vector<UndoRecord> records);
  void forget(std::vector<UndoRecord> records);
  /// Into an existing folder.
  void copyOut(const UndoRecord& record, const URL& folder);
  /// Drops what was not begun.
  void stop();

 Q_SIGNALS:
  void progressed(int done, int of);
  void finished(const tidewell::desktop::UndoSummary& summary);

 private:
  using Work = std::function<UndoActions::Result(const UndoRecord&)>;
  void start(UndoSummary::Action action, std::vector<UndoRecord> records, Work work);
  UndoSummary carryOut(UndoSummary::Action action, const std::vector<UndoRecord>& records, const Work& work,
                       int stops);

  CompressionQueue queue_;
  UndoActions actions_;
  std::atomic<int> stops_ = 0;
  int wishes_ = 0;
  QThreadPool thread_;
};

}  // namespace tidewell::desktop

Q_DECLARE_METATYPE(tidewell::desktop::UndoSummary)
