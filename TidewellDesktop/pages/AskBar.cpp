// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/AskBar.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "CompressionKit/wording/Amounts.h"
#include "TidewellDesktop/Workspace.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

AskBar::AskBar(Workspace& workspace, QWidget* parent) : QFrame(parent), workspace_(workspace) {
  setFrameShape(StyledPanel);
  text_ = new QLabel;
  text_->setWordWrap(true);
  text_->setAlignment(startOfLine() | Qt::AlignVCenter);
  atOnce_ = new QCheckBox(words(_("Compress at &once from now on")));
  again_ = new QPushButton(words(_("Compress those &again")));
  compress_ = new QPushButton(words(_("Co&mpress")));
  compress_->setDefault(true);
  compress_->setAutoDefault(true);
  connect(compress_, &QPushButton::clicked, this, &AskBar::compress);
  connect(again_, &QPushButton::clicked, this, &AskBar::compressAgain);
  auto* layout = new QHBoxLayout(this);
  layout->addWidget(text_, 1);
  layout->addWidget(atOnce_);
  layout->addWidget(again_);
  layout->addWidget(compress_);
  connect(&workspace_, &Workspace::changed, this, &AskBar::showState);
  connect(&workspace_.files(), &FileListModel::totalsChanged, this, &AskBar::showState);
  showState();
}

void AskBar::focusCompress() {
  compress_->setFocus();
}

void AskBar::compress() {
  auto values = workspace_.settings().values();
  if (atOnce_->isChecked() && !values.compressAtOnce) {
    values.compressAtOnce = true;
    workspace_.settings().set(values);
  }
  atOnce_->setChecked(false);  // else it would decide once more, unseen
  workspace_.compress();
}

void AskBar::compressAgain() {
  std::vector<URL> files;
  for (int index = 0; index < workspace_.files().rowCount(); index++) {
    const FileRow& row = workspace_.files().row(index);
    if (row.state == RowState::alreadyCompressed) files.push_back(row.url);
  }
  workspace_.add(std::move(files), true);
}

void AskBar::showState() {
  const auto waiting = workspace_.waitingFiles();
  const auto passedOver = workspace_.files().rowCount() - workspace_.files().totals().files;
  QStringList sentences;
  if (waiting > 0)
    sentences << words(filled(counted("{1} picture waits ({2}).", "{1} pictures wait ({2}).", waiting),
                              {"", sizeText(workspace_.waitingBytes())}));
  if (passedOver > 0)
    sentences << words(counted("{1} was compressed before and is left alone.",
                               "{1} were compressed before and are left alone.", passedOver));
  text_->setText(sentences.join(QLatin1Char(' ')));
  atOnce_->setVisible(waiting > 0 && !workspace_.settings().values().compressAtOnce);
  compress_->setVisible(waiting > 0);
  compress_->setEnabled(!workspace_.isLooking() &&
                        workspace_.service().state() != ServiceClient::State::noBus);
  again_->setVisible(passedOver > 0);
  again_->setEnabled(!workspace_.isLooking());
  setVisible(!sentences.isEmpty());
}

}  // namespace tidewell::desktop
