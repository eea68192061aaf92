// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/ServicePage.h"

#include <QFontDatabase>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

ServicePage::ServicePage(QWidget* parent) : QWidget(parent) {
  title_ = new QLabel;
  advice_ = new QLabel;
  command_ = new QLabel(QStringLiteral("sudo apt install tidewell"));
  for (QLabel* label : {title_, advice_, command_}) {
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
  }
  QFont large = title_->font();
  large.setPointSizeF(large.pointSizeF() * 1.5);
  title_->setFont(large);
  command_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  command_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  command_->setAccessibleName(words(_("Command to install the service")));
  auto* again = new QPushButton(words(_("&Look again")));
  connect(again, &QPushButton::clicked, this, &ServicePage::lookAgainRequested);

  auto* layout = new QVBoxLayout(this);
  layout->setSpacing(fontMetrics().height());
  layout->addStretch();
  layout->addWidget(title_);
  layout->addWidget(advice_);
  layout->addWidget(command_);
  layout->addWidget(again, 0, Qt::AlignCenter);
  layout->addStretch();
  setFocusProxy(again);
}

void ServicePage::tell(ServiceClient::State state) {
  const bool isMissing = state == ServiceClient::State::notInstalled;
  title_->setText(isMissing ? words(_("The service that compresses is not installed"))
                            : words(_("There is no session bus")));
  advice_->setText(isMissing
                       ? words(_("Install the package “tidewell”, and this page goes by itself:"))
                       : words(_("The window reaches the service by the session bus (D-Bus) of your desktop. "
                                 "Log in to a desktop session, or use the command “tidewell” in a terminal. "
                                 "The history works without it.")));
  command_->setVisible(isMissing);
}

}  // namespace tidewell::desktop
