// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <QAction>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QTreeView>
#include <algorithm>
#include <set>
#include <utility>

#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/history/HistoryPage.h"
#include "TidewellDesktop/support/Words.h"

// What can be done with what is selected in the history.

namespace tidewell::desktop {

void HistoryPage::makeActions() {
  const auto make = [this](const char* text, const char* hint, auto slot) {
    auto* action = new QAction(words(text), this);
    action->setToolTip(words(hint));
    connect(action, &QAction::triggered, this, slot);
    view_->addAction(action);
    return action;
  };
  restore_ = make(_("&Restore"), _("Put the originals of what is selected back"),
                  [this] { worker_.restore(selected()); });
  restoreBatch_ =
      make(_("Restore &batch"), _("Put all originals of the batch back"), [this] { restoreBatch(); });
  compare_ = make(_("&Compare"), _("Look at original and result"), [this] {
    if (const auto record = selectedOne()) Q_EMIT compareRequested(*record);
  });
  explain_ = make(_("E&xplain"), _("What was tried with the file, and why this was taken"), [this] {
    const auto record = selectedOne();
    if (record) Q_EMIT explainRequested(URL::file(record->originalPath), record->createdAt);
  });
  copyOut_ = make(_("Copy &out…"), _("Copy the original to another folder"), [this] { copyOut(); });
  forget_ = make(_("For&get"), _("Remove records and backups"), [this] { forget(); });
  forget_->setShortcut(QKeySequence::Delete);
  forget_->setShortcutContext(Qt::WidgetShortcut);
}

void HistoryPage::updateActions() {
  const bool isSome = view_->selectionModel()->hasSelection();
  const bool isOne = selectedOne().has_value();
  restore_->setEnabled(isSome && mayBe(HistoryModel::RestorableRole));
  const QModelIndex batch = selectedBatch();
  const QVariant inBatch = batch.data(HistoryModel::RestorableRole);
  restoreBatch_->setEnabled(batch.isValid() && (!inBatch.isValid() || inBatch.toInt() > 0));
  compare_->setEnabled(isOne && mayBe(HistoryModel::BackupRole));
  copyOut_->setEnabled(isOne && mayBe(HistoryModel::BackupRole));
  explain_->setEnabled(isOne);
  forget_->setEnabled(isSome);
}

std::vector<UndoRecord> HistoryPage::selected() const {
  std::vector<UndoRecord> records;
  std::set<UUID> known;
  for (const auto& index : view_->selectionModel()->selectedRows()) {
    for (auto& record : model_.records(index)) {
      if (known.insert(record.id).second) records.push_back(std::move(record));
    }
  }
  return records;
}

std::optional<UndoRecord> HistoryPage::selectedOne() const {
  const auto rows = view_->selectionModel()->selectedRows();
  if (rows.size() != 1 || !rows.first().parent().isValid()) return std::nullopt;
  return rows.first().data(HistoryModel::RecordRole).value<UndoRecord>();
}

QModelIndex HistoryPage::selectedBatch() const {
  QModelIndex batch;
  for (const auto& row : view_->selectionModel()->selectedRows()) {
    const QModelIndex its = row.parent().isValid() ? row.parent() : row;
    if (batch.isValid() && its != batch) return {};
    batch = its;
  }
  return batch;
}

bool HistoryPage::mayBe(int role) const {
  constexpr int most = 100;
  const auto rows = view_->selectionModel()->selectedRows();
  return rows.size() > most || std::ranges::any_of(rows, [role](const QModelIndex& row) {
           const QVariant value = row.data(role);
           return !value.isValid() || value.toInt() > 0;
         });
}

void HistoryPage::restoreBatch() {
  const QModelIndex batch = selectedBatch();
  if (batch.isValid()) worker_.restore(model_.records(batch));
}

void HistoryPage::forget() {
  auto records = selected();
  if (records.empty()) return;
  // Without a backup nothing is lost that could still be had.
  if (!mayBe(HistoryModel::BackupRole)) return worker_.forget(std::move(records));
  auto text = words(_("Their backups are removed. The originals cannot be restored afterwards."));
  if (std::ranges::any_of(records,
                          [](const auto& each) { return each.state == UndoRecord::State::prepared; })) {
    text += QStringLiteral("\n\n") +
            words(_("A replacement that was interrupted is among them: its backup may be "
                    "all that is left of the original."));
  }
  auto* box =
      new QMessageBox(QMessageBox::Warning, words(_("Forget")),
                      words(counted("Forget {1} record?", "Forget {1} records?", std::ssize(records))),
                      QMessageBox::Cancel, window());
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setInformativeText(text);
  auto* button = box->addButton(words(_("For&get")), QMessageBox::DestructiveRole);
  box->setDefaultButton(QMessageBox::Cancel);
  connect(button, &QPushButton::clicked, this,
          [this, records = std::move(records)] { worker_.forget(records); });
  box->open();
}

void HistoryPage::copyOut() {
  const auto record = selectedOne();
  if (!record) return;
  auto* dialog = new QFileDialog(window(), words(_("Copy the original to")));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  connect(dialog, &QFileDialog::fileSelected, this,
          [this, record = *record](const QString& folder) { worker_.copyOut(record, fileURL(folder)); });
  dialog->open();
}

void HistoryPage::activate(const QModelIndex& index) {
  if (index.parent().isValid()) compare_->trigger();
}

}  // namespace tidewell::desktop
