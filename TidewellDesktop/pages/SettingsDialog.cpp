// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/SettingsDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QVBoxLayout>

#include "TidewellDesktop/models/Settings.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

SettingsDialog::SettingsDialog(Settings& settings, QWidget* parent) : QDialog(parent) {
  setWindowTitle(words(_("Settings")));
  struct Choice {
    bool Settings::Values::*value;
    const char* text;
    const char* detail;
  };
  const Choice choices[] = {
      {&Settings::Values::keepMetadata, N_("Keep &metadata"),
       N_("Camera, place, time and description stay in the compressed pictures.")},
      {&Settings::Values::keepTimes, N_("Keep file &times"),
       N_("Compressed pictures have the modification time of their originals.")},
      {&Settings::Values::notifyAtEnd, N_("&Notify when a batch ends"),
       N_("With a button that undoes it, while this window is in the background or closed.")},
      {&Settings::Values::compressAtOnce, N_("Compress at &once from now on"),
       N_("Pictures that are dropped or opened are compressed without asking.")},
  };
  auto* layout = new QVBoxLayout(this);
  for (const Choice& choice : choices) {
    auto* box = new QCheckBox(words(_(choice.text)));
    box->setChecked(settings.values().*choice.value);
    box->setAccessibleDescription(words(_(choice.detail)));
    connect(box, &QCheckBox::toggled, &settings, [&settings, value = choice.value](bool isOn) {
      auto values = settings.values();
      values.*value = isOn;
      settings.set(values);
    });
    connect(&settings, &Settings::changed, box,
            [&settings, box, value = choice.value] { box->setChecked(settings.values().*value); });
    auto* detail = new QLabel(words(_(choice.detail)));
    QFont small = detail->font();
    small.setPointSizeF(small.pointSizeF() * 0.9);
    detail->setFont(small);
    detail->setWordWrap(true);
    detail->setAlignment(startOfLine());
    detail->setIndent(fontMetrics().height() * 3 / 2);
    layout->addWidget(box);
    layout->addWidget(detail);
    layout->addSpacing(fontMetrics().height() / 2);
  }
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
  setMinimumWidth(fontMetrics().averageCharWidth() * 60);
}

}  // namespace tidewell::desktop
