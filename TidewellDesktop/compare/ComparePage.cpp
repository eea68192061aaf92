// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/ComparePage.h"

#include <QAction>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Attempts.h"
#include "CompressionKit/wording/MetadataNames.h"
#include "TidewellDesktop/compare/PictureView.h"
#include "TidewellDesktop/support/Labels.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

using Shown = PictureView::Shown;

QToolButton* buttonFor(QAction* action) {
  auto* button = new QToolButton;
  button->setDefaultAction(action);
  button->setFocusPolicy(Qt::TabFocus);
  const auto follow = [button, action] {
    button->setAccessibleName(action->text());
    button->setAccessibleDescription(action->toolTip());
    button->setHidden(!action->isVisible());
    // In dark colours styles hardly show what is pressed.
    QFont font = button->font();
    font.setBold(action->isChecked());
    button->setFont(font);
  };
  button->setAccessibleName(action->text());
  button->setAccessibleDescription(action->toolTip());
  QObject::connect(action, &QAction::changed, button, follow);
  return button;
}

QString sideText(const CompareFacts& facts, std::size_t side) {
  const QSize size = facts.sizes[side];
  QString text = words(_("{1}, {2} × {3} pixels"),
                       {amountWords(sizeText(side == 0 ? facts.originalBytes : facts.resultBytes)),
                        QString::number(size.width()), QString::number(size.height())});
  if (facts.frames[side] > 1) {
    text += QStringLiteral(", ") +
            words(counted("{1} frame", "{1} frames", static_cast<std::int64_t>(facts.frames[side])));
  }
  return text;
}

QString profileText(const CompareFacts& facts) {
  const auto name = [&](std::size_t side) {
    return facts.profiles[side] ? shownPath(*facts.profiles[side]) : words(_("no colour profile"));
  };
  if (facts.profiles[0] == facts.profiles[1]) return name(0);
  return words(_("{1}, now {2}"), {name(0), name(1)});
}

}  // namespace

ComparePage::ComparePage(const UndoStore& store, QWidget* parent)
    : QWidget(parent),
      model_(store),
      view_(new PictureView(model_)),
      stack_(new QStackedWidget),
      message_(new QLabel) {
  message_->setAlignment(Qt::AlignCenter);
  message_->setWordWrap(true);
  message_->setTextFormat(Qt::PlainText);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  allowLongWords(*message_);
  message_->setFocusPolicy(Qt::StrongFocus);  // the keys must reach the page while it has nothing to show
  stack_->addWidget(message_);
  stack_->addWidget(view_);
  auto* pictures = new QVBoxLayout;
  pictures->addLayout(makeTopBar());
  pictures->addWidget(stack_, 1);
  pictures->addLayout(makeBottomBar());
  auto* all = new QHBoxLayout(this);
  all->addLayout(pictures, 1);
  all->addWidget(makeFacts());
  connect(&model_, &CompareModel::stateChanged, this, &ComparePage::showState);
  connect(&model_.player(), &Player::playingChanged, this, &ComparePage::updatePlaying);
  connect(view_, &PictureView::shownChanged, this, &ComparePage::updateShown);
  connect(view_, &PictureView::zoomed, this, &ComparePage::showScale);
  showState();
}

ComparePage::~ComparePage() = default;

void ComparePage::open(const UndoRecord& record) {
  model_.open(record);
  stack_->currentWidget()->setFocus();
}

void ComparePage::close() {
  model_.close();
}

/// Nobody sees it play.
void ComparePage::hideEvent(QHideEvent* event) {
  model_.player().setPlaying(false);
  QWidget::hideEvent(event);
}

QAction* ComparePage::makeAction(const QString& text, const QKeySequence& key, const QString& tip) {
  auto* action = new QAction(text, this);
  action->setShortcut(key);
  action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  action->setToolTip(QStringLiteral("%1 (%2)").arg(tip, key.toString(QKeySequence::NativeText)));
  addAction(action);
  return action;
}

QLayout* ComparePage::makeTopBar() {
  auto* bar = new QHBoxLayout;
  auto* back = makeAction(words(_("Back")), Qt::Key_Escape, words(_("Go back")));
  connect(back, &QAction::triggered, this, &ComparePage::closed);
  bar->addWidget(buttonFor(back));
  bar->addStretch();
  shown_ = {makeAction(words(_("Original")), Qt::Key_1, words(_("Show the original"))),
            makeAction(words(_("Both")), Qt::Key_2, words(_("Show both"))),
            makeAction(words(_("Result")), Qt::Key_3, words(_("Show the result"))),
            makeAction(words(_("Difference")), Qt::Key_D, words(_("Show how they differ, amplified")))};
  for (std::size_t i = 0; i < shown_.size(); ++i) {
    shown_[i]->setCheckable(true);
    group_.addAction(shown_[i]);
    connect(shown_[i], &QAction::triggered, this, [this, i] { view_->setShown(static_cast<Shown>(i)); });
    bar->addWidget(buttonFor(shown_[i]));
  }
  bar->addSpacing(fontMetrics().height());
  sideBySide_ = makeAction(words(_("Side by side")), Qt::Key_S, words(_("Show both side by side")));
  sideBySide_->setCheckable(true);
  connect(sideBySide_, &QAction::toggled, view_, &PictureView::setSideBySide);
  bar->addWidget(buttonFor(sideBySide_));
  bar->addStretch();
  return bar;
}

void ComparePage::makePlayActions() {
  play_ = makeAction(words(_("Pause")), Qt::Key_P, words(_("Play or pause")));
  auto* back = makeAction(words(_("Frame back")), Qt::Key_Comma, words(_("The frame before")));
  auto* on = makeAction(words(_("Frame on")), Qt::Key_Period, words(_("The next frame")));
  connect(play_, &QAction::triggered, this,
          [this] { model_.player().setPlaying(!model_.player().isPlaying()); });
  connect(back, &QAction::triggered, this, [this] { model_.player().step(-1); });
  connect(on, &QAction::triggered, this, [this] { model_.player().step(1); });
  needFrames_ = {play_, back, on};
}

QLayout* ComparePage::makeBottomBar() {
  auto* bar = new QHBoxLayout;
  makePlayActions();
  for (QAction* action : needFrames_) bar->addWidget(buttonFor(action));
  remark_ = new QLabel;
  remark_->setWordWrap(true);
  bar->addWidget(remark_, 1);
  auto* smaller = makeAction(QStringLiteral("−"), QKeySequence::ZoomOut, words(_("Smaller")));
  auto* larger = makeAction(QStringLiteral("+"), QKeySequence::ZoomIn, words(_("Larger")));
  auto* fit = makeAction(words(_("Fit")), Qt::CTRL | Qt::Key_0, words(_("Show the whole picture")));
  auto* actual = makeAction(words(_("{1}%"), {QStringLiteral("100")}), Qt::CTRL | Qt::Key_1,
                            words(_("Show every pixel as one")));
  connect(smaller, &QAction::triggered, this, [this] { view_->zoomBy(0.8); });
  connect(larger, &QAction::triggered, this, [this] { view_->zoomBy(1.25); });
  connect(fit, &QAction::triggered, view_, &PictureView::fit);
  connect(actual, &QAction::triggered, view_, &PictureView::showActualSize);
  zoom_ = new QLabel;
  zoom_->setAlignment(Qt::AlignCenter);
  zoom_->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("3200 %")));
  for (QAction* action : {fit, actual, smaller}) bar->addWidget(buttonFor(action));
  bar->addWidget(zoom_);
  bar->addWidget(buttonFor(larger));
  needPictures_ = {smaller, larger, fit, actual, sideBySide_, shown_[0], shown_[1], shown_[2]};
  return bar;
}

QWidget* ComparePage::makeFacts() {
  auto* panel = new QWidget;
  auto* column = new QVBoxLayout(panel);
  facts_ = new QFormLayout;
  facts_->setRowWrapPolicy(QFormLayout::WrapAllRows);
  column->addLayout(facts_);
  column->addStretch();
  auto* scroll = new QScrollArea;
  scroll->setWidget(panel);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  restore_ = new QPushButton(words(_("&Restore the original")));
  connect(restore_, &QPushButton::clicked, this, [this] { Q_EMIT restoreRequested(model_.record()); });
  auto* side = new QWidget;
  auto* all = new QVBoxLayout(side);
  all->setContentsMargins({});
  all->addWidget(scroll, 1);
  all->addWidget(restore_);
  side->setFixedWidth(fontMetrics().averageCharWidth() * 34);
  return side;
}

void ComparePage::showState() {
  const CompareModel::State state = model_.state();
  const bool ready = state == CompareModel::State::ready;
  if (state == CompareModel::State::loading) message_->setText(words(_("The pictures are being loaded…")));
  if (state == CompareModel::State::failed) message_->setText(model_.problem());
  if (state == CompareModel::State::empty) message_->clear();
  const bool hadFocus = stack_->currentWidget()->hasFocus();
  stack_->setCurrentIndex(ready ? 1 : 0);
  if (hadFocus) stack_->currentWidget()->setFocus();
  for (QAction* action : needPictures_) action->setEnabled(ready);
  shown_[3]->setEnabled(ready && model_.hasDifference());
  for (QAction* action : needFrames_) action->setVisible(ready && model_.isAnimated());
  restore_->setEnabled(ready);
  showScale();
  remark_->setText(model_.remark());
  updateShown();
  updatePlaying();
  updateFacts();
}

void ComparePage::showScale() {
  const bool ready = model_.state() == CompareModel::State::ready;
  const auto percent = QString::number(std::lround(view_->viewport().scale() * 100));
  zoom_->setText(ready ? words(_("{1}%"), {percent}) : QString());
}

void ComparePage::updateShown() {
  shown_[static_cast<std::size_t>(view_->shown())]->setChecked(true);
}

void ComparePage::updatePlaying() {
  // Loaded only after the page was hidden.
  if (model_.player().isPlaying() && !isVisible()) return model_.player().setPlaying(false);
  play_->setText(model_.player().isPlaying() ? words(_("Pause")) : words(_("Play")));
}

void ComparePage::addFact(const QString& name, const QString& value) {
  auto* label = new QLabel(value);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  addFact(name, label);
}

void ComparePage::addFact(const QString& name, QLabel* label) {
  // Else a value's own script says where it stands, away from its title.
  label->setAlignment(startOfLine());
  auto* title = new QLabel(name);
  QFont font = title->font();
  font.setBold(true);
  title->setFont(font);
  title->setContentsMargins(0, facts_->rowCount() > 0 ? fontMetrics().height() / 2 : 0, 0, 0);
  label->setAccessibleName(name + QStringLiteral(": ") + label->text());
  facts_->addRow(title, label);
}

void ComparePage::updateFacts() {
  while (facts_->rowCount() > 0) facts_->removeRow(0);
  if (model_.state() == CompareModel::State::empty) return;
  const UndoRecord& record = model_.record();
  const auto name = [](const std::string& path) {
    return new ElidedLabel(shownPath(URL::file(path).lastPathComponent()));
  };
  addFact(words(_("File")), name(record.originalPath));
  if (record.convertedPath) addFact(words(_("Converted to")), name(*record.convertedPath));
  if (model_.state() != CompareModel::State::ready) return;
  const CompareFacts& facts = model_.facts();
  addFact(words(_("Original")), sideText(facts, 0));
  addFact(words(_("Result")), sideText(facts, 1));
  addFact(words(_("Saved")), amountWords(savedText(facts.originalBytes, facts.resultBytes)));
  if (facts.score)
    addFact(words(_("Score")), words(_("{1} (100 is identical)"), {words(scoreText(*facts.score))}));
  if (facts.encoder) addFact(words(_("Encoder")), words(encoderText(*facts.encoder)));
  if (facts.lostMetadata) addFact(words(_("Metadata that went")), words(metadataText(*facts.lostMetadata)));
  addFact(words(_("Colours")), profileText(facts));
}

}  // namespace tidewell::desktop
