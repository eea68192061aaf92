// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/explain/ExplainPage.h"

#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QStackedLayout>
#include <QTreeView>
#include <QVBoxLayout>
#include <optional>
#include <utility>

#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Attempts.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/explain/AttemptsPlot.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Labels.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

struct ExplainPage::Found {
  std::optional<Report> report;
  QString problem;  ///< why there is none
};

ExplainPage::ExplainPage(const UndoStore& store, QWidget* parent) : QWidget(parent), store_(store) {
  notice_ = new QLabel(this);
  notice_->setAlignment(Qt::AlignCenter);
  notice_->setWordWrap(true);
  notice_->setTextFormat(Qt::PlainText);
  notice_->setTextInteractionFlags(Qt::TextBrowserInteraction);
  allowLongWords(*notice_);
  report_ = makeReport();
  pages_ = new QStackedLayout(this);
  pages_->addWidget(notice_);
  pages_->addWidget(report_);
}

QWidget* ExplainPage::makeReport() {
  auto* page = new QWidget(this);
  facts_ = new QFormLayout;
  plot_ = new AttemptsPlot(model_, page);
  sorted_ = new QSortFilterProxyModel(this);
  sorted_->setSourceModel(&model_);
  sorted_->setSortRole(AttemptsModel::SortRole);
  table_ = new QTreeView(page);
  table_->setAccessibleName(words(_("Attempts")));
  table_->setModel(sorted_);
  table_->setRootIsDecorated(false);
  table_->setUniformRowHeights(true);
  table_->setAlternatingRowColors(true);
  table_->setSortingEnabled(true);
  table_->sortByColumn(-1, Qt::AscendingOrder);  // as they happened
  connect(table_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          [this](const QModelIndex& index) {
            plot_->setCurrent(index.isValid() ? sorted_->mapToSource(index).row() : -1);
          });
  connect(plot_, &AttemptsPlot::picked, this, &ExplainPage::pick);
  auto* halves = new QSplitter(Qt::Vertical, page);
  halves->setChildrenCollapsible(false);
  halves->addWidget(plot_);
  halves->addWidget(table_);
  auto* layout = new QVBoxLayout(page);
  layout->addLayout(facts_);
  layout->addWidget(halves, 1);
  return page;
}

void ExplainPage::open(const URL& source, Date before) {
  notice_->clear();
  pages_->setCurrentWidget(notice_);
  const auto find = [store = store_, path = source.path(), before]() -> Found {
    try {
      auto report = newestReport(store.diagnosticsDirectory(), path, before);
      if (report) return {std::move(report), {}};
      return {std::nullopt, words(noReportText(path))};
    } catch (const std::exception&) {
      return {std::nullopt, words(describedError(std::current_exception()))};
    }
  };
  inBackground(this, find, [this, asked = ++asked_](Found&& found) { showFound(std::move(found), asked); });
}

void ExplainPage::showFound(Found&& found, int asked) {
  if (asked != asked_) return;
  notice_->setText(found.problem);
  model_.setReport(std::move(found.report));
  pages_->setCurrentWidget(model_.report() ? report_ : notice_);
  if (!model_.report()) return;
  showFacts(*model_.report());
  for (int column = 0; column < AttemptsModel::Verdict; ++column) table_->resizeColumnToContents(column);
  for (int row = 0; row < model_.rowCount(); ++row) {
    if (model_.index(row, 0).data(AttemptsModel::TakenRole).toBool()) pick(row);
  }
}

void ExplainPage::showFacts(const Report& report) {
  while (facts_->rowCount() > 0) facts_->removeRow(0);
  const auto add = [this](const char* name, const QString& value) {
    auto* label = new QLabel(value);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextBrowserInteraction);
    label->setWordWrap(true);
    label->setAlignment(startOfLine());
    facts_->addRow(words(name), label);
  };
  facts_->addRow(words(_("File")), new ElidedLabel(shownPath(report.source)));
  add(_("Compressed"), words(momentText(report.startedAt)));
  if (report.profile) add(_("Colours"), shownPath(*report.profile));
  add(_("Outcome"), words(outcomeText(report)));
  if (report.attempts.empty()) add(_("Attempts"), words(_("Nothing was attempted.")));
}

void ExplainPage::pick(int row) {
  const QModelIndex index = sorted_->mapFromSource(model_.index(row, 0));
  table_->setCurrentIndex(index);
  table_->scrollTo(index);
}

}  // namespace tidewell::desktop
