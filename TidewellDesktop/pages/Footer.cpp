// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/Footer.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include "CompressionKit/wording/Amounts.h"
#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

Footer::Footer(Workspace& workspace, QWidget* parent) : QWidget(parent), workspace_(workspace) {
  saved_ = new QLabel;
  progress_ = new QProgressBar;
  progress_->setAccessibleName(words(_("Progress")));
  progress_->setTextVisible(false);
  progress_->setMaximumWidth(fontMetrics().averageCharWidth() * 40);
  stop_ = new QPushButton(words(_("&Stop")));
  undo_ = new QPushButton(words(_("&Undo this batch")));
  undo_->setToolTip(words(_("Puts the originals of the last batch back")));
  connect(stop_, &QPushButton::clicked, &workspace_, &Workspace::stop);
  connect(undo_, &QPushButton::clicked, &workspace_, qOverload<>(&Workspace::undoBatch));

  auto* layout = new QHBoxLayout(this);
  layout->addWidget(saved_);
  layout->addStretch();
  layout->addWidget(progress_, 1);
  layout->addWidget(stop_);
  layout->addWidget(undo_);
  connect(&workspace_, &Workspace::changed, this, &Footer::showState);
  connect(&workspace_.files(), &FileListModel::totalsChanged, this, &Footer::showState);
  showState();
}

QString Footer::sentence() const {
  const auto& totals = workspace_.files().totals();
  if (workspace_.isLooking()) return words(_("Looking for pictures…"));
  if (totals.files == 0) return {};
  if (totals.done == 0) return words(counted("{1} picture", "{1} pictures", totals.files));
  QStringList parts;
  if (totals.done > totals.restored + totals.failed)
    parts << words(_("Saved {1} of {2}"),
                   {amountWords(sizeText(totals.savedBytes)), amountWords(sizeText(totals.ofBytes))});
  if (totals.restored > 0)
    parts << words(counted("{1} file restored", "{1} files restored", totals.restored));
  if (totals.failed > 0) parts << words(counted("{1} failed", "{1} failed", totals.failed));
  return parts.join(QStringLiteral(" · "));
}

void Footer::showProgress() {
  const auto& totals = workspace_.files().totals();
  const bool isRunning = workspace_.isRunning();
  QSizePolicy policy = progress_->sizePolicy();
  policy.setRetainSizeWhenHidden(true);
  progress_->setSizePolicy(policy);
  progress_->setVisible(isRunning || workspace_.isLooking());
  const auto given = totals.files - workspace_.waitingFiles();
  progress_->setRange(0, isRunning ? static_cast<int>(given) : 0);
  progress_->setValue(static_cast<int>(totals.done));
}

void Footer::showState() {
  saved_->setText(sentence());
  showProgress();
  stop_->setEnabled(workspace_.isRunning() && !workspace_.isStopping());
  undo_->setEnabled(workspace_.canUndoBatch());
}

}  // namespace tidewell::desktop
