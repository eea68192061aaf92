// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/history/HistoryPage.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedLayout>
#include <QTreeView>
#include <utility>

#include "CompressionKit/undo/UndoStore.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/support/Labels.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// A button that does what the action does, while it can be done.
QPushButton* buttonOf(QAction* action, QWidget* parent) {
  auto* button = new QPushButton(action->text(), parent);
  button->setEnabled(action->isEnabled());
  button->setToolTip(action->toolTip());
  button->setAutoDefault(false);
  QObject::connect(button, &QPushButton::clicked, action, &QAction::trigger);
  QObject::connect(action, &QAction::enabledChanged, button, &QPushButton::setEnabled);
  return button;
}

}  // namespace

HistoryPage::HistoryPage(HistoryModel& model, UndoWorker& worker, QWidget* parent)
    : QWidget(parent), model_(model), worker_(worker) {
  makeView();
  makeActions();
  auto* layout = new QVBoxLayout(this);
  pages_ = new QStackedLayout;
  pages_->addWidget(view_);
  pages_->addWidget(notice_);
  layout->addLayout(pages_, 1);
  layout->addLayout(makeStatus());
  layout->addLayout(makeButtons());
  connect(&model_, &HistoryModel::loaded, this, &HistoryPage::showLoaded);
  connect(&worker_, &UndoWorker::progressed, this, &HistoryPage::showProgress);
  connect(&worker_, &UndoWorker::finished, this, &HistoryPage::showSummary);
  setFocusProxy(view_);
  showLoaded();
  updateActions();
}

void HistoryPage::makeView() {
  view_ = new QTreeView(this);
  view_->setAccessibleName(words(_("History")));
  view_->setModel(&model_);
  view_->setUniformRowHeights(true);
  view_->setAlternatingRowColors(true);
  view_->setAllColumnsShowFocus(true);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setContextMenuPolicy(Qt::ActionsContextMenu);
  view_->setTextElideMode(Qt::ElideMiddle);
  const int em = fontMetrics().horizontalAdvance(QLatin1Char('m'));
  const std::pair<int, int> widths[] = {{HistoryModel::Name, 17},   {HistoryModel::When, 10},
                                        {HistoryModel::Before, 6},  {HistoryModel::After, 6},
                                        {HistoryModel::Saved, 12},  {HistoryModel::State, 15},
                                        {HistoryModel::TimeLeft, 8}};
  for (const auto& [column, width] : widths) view_->setColumnWidth(column, width * em);
  connect(view_, &QTreeView::activated, this, &HistoryPage::activate);
  connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &HistoryPage::updateActions);
  updateSoon_.setSingleShot(true);
  connect(&updateSoon_, &QTimer::timeout, this, &HistoryPage::updateActions);
  connect(&model_, &HistoryModel::dataChanged, &updateSoon_, qOverload<>(&QTimer::start));
  connect(&model_, &HistoryModel::modelAboutToBeReset, this, &HistoryPage::keepPlace);
  connect(&model_, &HistoryModel::modelReset, this, &HistoryPage::findPlace);
  notice_ = new QLabel(this);
  notice_->setAlignment(Qt::AlignCenter);
  notice_->setWordWrap(true);
  notice_->setTextFormat(Qt::PlainText);
  allowLongWords(*notice_);
}

QLayout* HistoryPage::makeStatus() {
  auto* row = new QHBoxLayout;
  status_ = new QLabel(this);
  status_->setWordWrap(true);
  status_->setAlignment(startOfLine() | Qt::AlignVCenter);
  status_->setTextFormat(Qt::PlainText);
  allowLongWords(*status_);
  status_->setTextInteractionFlags(Qt::TextBrowserInteraction);
  details_ = new QPushButton(words(_("De&tails…")), this);
  details_->setAutoDefault(false);
  details_->hide();
  connect(details_, &QPushButton::clicked, this, &HistoryPage::showDetails);
  progress_ = new QProgressBar(this);
  progress_->setAccessibleName(words(_("Progress")));
  progress_->hide();
  stop_ = new QPushButton(words(_("&Stop")), this);
  stop_->setAutoDefault(false);
  stop_->hide();
  connect(stop_, &QPushButton::clicked, &worker_, &UndoWorker::stop);
  row->addWidget(status_, 1);
  for (QWidget* each : std::initializer_list<QWidget*>{details_, progress_, stop_}) row->addWidget(each);
  return row;
}

QLayout* HistoryPage::makeButtons() {
  auto* row = new QHBoxLayout;
  for (auto* action : {restore_, restoreBatch_, compare_, explain_, copyOut_}) {
    row->addWidget(buttonOf(action, this));
  }
  row->addStretch();
  row->addWidget(buttonOf(forget_, this));  // away from the harmless
  return row;
}

// --- What is shown ---

void HistoryPage::showLoaded() {
  const bool isEmpty = model_.rowCount() == 0;
  const bool hadNoView = pages_->currentWidget() != view_;
  pages_->setCurrentWidget(isEmpty ? static_cast<QWidget*>(notice_) : view_);
  if (!isEmpty && hadNoView && isVisible() && isActiveWindow()) view_->setFocus();  // it was opened for that
  const QString before = std::exchange(problem_, model_.problem());
  if (problem_.isEmpty() && status_->text() == before) status_->clear();
  if (!problem_.isEmpty()) {
    (isEmpty ? notice_ : status_)->setText(problem_);
  } else if (!model_.isLoaded()) {
    notice_->setText(words(_("Reading the history…")));
  } else {
    notice_->setText(words(_("No replacement is recorded")) + QStringLiteral("\n\n") +
                     words(filled(_("What is compressed can be restored here for {1}."),
                                  {durationText(UndoStore::backupRetention)})));
  }
  updateActions();
}

void HistoryPage::showProgress(int done, int of) {
  progress_->setMaximum(of);
  progress_->setValue(done);
  // One file is done before anybody could read it.
  progress_->setVisible(worker_.isBusy() && of > 1);
  stop_->setVisible(progress_->isVisible());
}

void HistoryPage::showSummary(const UndoSummary& summary) {
  if (!worker_.isBusy()) {
    progress_->hide();
    stop_->hide();
  }
  told_ = summary.problems + summary.notes;
  // One sentence can stand here; of more, the count does.
  details_->setVisible(told_.size() > 1);
  const bool isNothingElse = told_.size() == 1 && summary.done + summary.problems.size() <= 1;
  QString text = isNothingElse ? told_.first() : summary.text();
  if (told_.size() == 1 && !isNothingElse) text += QLatin1Char('\n') + told_.first();
  status_->setText(text);
  updateActions();
}

void HistoryPage::showDetails() {
  auto* box = new QMessageBox(QMessageBox::Information, words(_("Details")), status_->text(),
                              QMessageBox::Close, window());
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setTextFormat(Qt::PlainText);
  box->setDetailedText(told_.join(QLatin1Char('\n')));
  box->open();
}

// --- When it is seen ---

void HistoryPage::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  model_.setVisible(true);
}

void HistoryPage::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  model_.setVisible(false);
}

void HistoryPage::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  // A file may have been edited in another window meanwhile.
  if (event->type() == QEvent::ActivationChange && isActiveWindow() && isVisible()) model_.reload();
}

void HistoryPage::keepPlace() {
  place_ = {};
  for (int row = 0; row < model_.rowCount(); ++row) {
    const QModelIndex batch = model_.index(row, 0);
    if (view_->isExpanded(batch)) place_.open.push_back(model_.batchID(batch));
  }
  const QModelIndex current = view_->currentIndex();
  if (current.isValid()) {
    place_.batch = model_.batchID(current);
    if (current.parent().isValid())
      place_.record = current.data(HistoryModel::RecordRole).value<UndoRecord>().id;
  }
  place_.scroll = view_->verticalScrollBar()->value();
}

void HistoryPage::findPlace() {
  for (const UUID& batch : place_.open) view_->expand(model_.indexOf(batch));
  QModelIndex current;
  if (place_.batch) current = model_.indexOf(*place_.batch, place_.record);
  if (current.isValid()) {
    view_->setCurrentIndex(current);
    view_->verticalScrollBar()->setValue(place_.scroll);
  } else if (place_.open.empty() && model_.rowCount() > 0) {
    view_->expand(model_.index(0, 0));  // the batch that just ended is what most come for
  }
}

}  // namespace tidewell::desktop
