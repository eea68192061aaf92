// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/ListPage.h"

#include <QAction>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/pages/AskBar.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

ListPage::ListPage(Workspace& workspace, QWidget* parent)
    : QWidget(parent), workspace_(workspace), shown_(workspace.files()) {
  ask_ = new AskBar(workspace_);
  filter_ = new QLineEdit;
  filter_->setClearButtonEnabled(true);
  filter_->setAcceptDrops(false);  // they are the window's
  filter_->setMaximumWidth(fontMetrics().averageCharWidth() * 40);
  auto* label = new QLabel(words(_("F&ilter:")));
  label->setBuddy(filter_);
  kind_ = new QComboBox;
  kind_->setAccessibleName(words(_("Shown files")));
  view_ = new FileRowsView(shown_);
  view_->setAccessibleName(words(_("Pictures")));
  connectFilter();

  auto* line = new QHBoxLayout;
  line->addWidget(label);
  line->addWidget(filter_, 1);
  line->addWidget(kind_);
  line->addStretch();
  makeActions();
  for (QAction* action : {compare_, explain_, restore_}) {
    auto* button = new QPushButton(action->text());
    connect(button, &QPushButton::clicked, action, &QAction::trigger);
    connect(action, &QAction::enabledChanged, button, &QWidget::setEnabled);
    button->setEnabled(action->isEnabled());
    line->addWidget(button);
  }
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(ask_);
  layout->addLayout(line);
  layout->addWidget(view_, 1);
  setFocusProxy(view_);
}

void ListPage::connectFilter() {
  using Shown = FileListProxy::Shown;
  for (const auto& [shown, text] : {std::pair{Shown::all, _("All files")},
                                    {Shown::unfinished, _("Not done yet")},
                                    {Shown::saved, _("Made smaller")},
                                    {Shown::passedOver, _("Passed over")},
                                    {Shown::failed, _("Failed")}})
    kind_->addItem(words(text), static_cast<int>(shown));
  connect(filter_, &QLineEdit::textChanged, &shown_, &QSortFilterProxyModel::setFilterFixedString);
  connect(filter_, &QLineEdit::returnPressed, view_, qOverload<>(&QWidget::setFocus));
  connect(kind_, &QComboBox::currentIndexChanged, this,
          [this] { shown_.setShown(static_cast<Shown>(kind_->currentData().toInt())); });
}

QAction* ListPage::makeAction(const QString& text, const QKeySequence& shortcut, void (ListPage::*slot)()) {
  auto* action = new QAction(text, this);
  action->setShortcut(shortcut);
  action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(action, &QAction::triggered, this, slot);
  addAction(action);
  view_->addAction(action);
  return action;
}

void ListPage::makeActions() {
  compare_ = makeAction(words(_("&Compare")), Qt::CTRL | Qt::Key_K, &ListPage::compare);
  explain_ = makeAction(words(_("&Explain")), Qt::CTRL | Qt::Key_E, &ListPage::explain);
  restore_ = makeAction(words(_("&Restore the original")), Qt::CTRL | Qt::Key_R, &ListPage::restore);
  again_ =
      makeAction(words(_("Compress &again")), Qt::CTRL | Qt::SHIFT | Qt::Key_R, &ListPage::compressAgain);
  folder_ = makeAction(words(_("Show in &folder")), Qt::CTRL | Qt::Key_L, &ListPage::showInFolder);
  view_->setContextMenuPolicy(Qt::ActionsContextMenu);
  connect(view_, &QAbstractItemView::activated, this, &ListPage::activate);
  connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ListPage::updateActions);
  connect(&workspace_, &Workspace::changed, &updateSoon_, qOverload<>(&QTimer::start));
  updateSoon_.setSingleShot(true);
  connect(&updateSoon_, &QTimer::timeout, this, &ListPage::updateActions);
  connect(&shown_, &QAbstractItemModel::dataChanged, &updateSoon_, qOverload<>(&QTimer::start));
  updateActions();
}

QList<QAction*> ListPage::rowActions() const {
  return {compare_, explain_, restore_, again_, folder_};
}

void ListPage::focusFilter() {
  filter_->setFocus(Qt::ShortcutFocusReason);
  filter_->selectAll();
}

void ListPage::focusCompress() {
  ask_->focusCompress();
}

void ListPage::compress() {
  ask_->compress();
}

void ListPage::updateActions() {
  const auto rows = view_->selectedRows();
  const bool hasOne = rows.size() == 1;
  const auto any = [&rows](auto condition) { return std::any_of(rows.begin(), rows.end(), condition); };
  const auto hasRecord = [](const FileRow& row) { return row.record.has_value(); };
  compare_->setEnabled(hasOne && hasRecord(rows.front()));
  explain_->setEnabled(hasOne && isDone(rows.front().state));
  restore_->setEnabled(any(hasRecord) && !workspace_.undo().isBusy());
  again_->setEnabled(any([](const FileRow& row) { return isDone(row.state); }));
  folder_->setEnabled(!rows.empty());
}

void ListPage::activate() {
  if (compare_->isEnabled()) {
    compare();
  } else if (explain_->isEnabled()) {
    explain();
  }
}

void ListPage::compare() {
  workspace_.withRecord(view_->selectedRows().front(),
                        [this](const UndoRecord& record) { Q_EMIT compareRequested(record); });
}

void ListPage::explain() {
  Q_EMIT explainRequested(view_->selectedRows().front().url, Date::now());
}

void ListPage::restore() {
  workspace_.restore(view_->selectedRows());
}

void ListPage::compressAgain() {
  std::vector<URL> files;
  for (const FileRow& row : view_->selectedRows())
    if (isDone(row.state)) files.push_back(row.url);
  workspace_.add(std::move(files), true);
}

void ListPage::showInFolder() {
  std::vector<URL> files;
  for (const FileRow& row : view_->selectedRows()) files.push_back(row.url);
  Q_EMIT showInFolderRequested(files);
}

}  // namespace tidewell::desktop
