// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Undo.h"

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"

namespace tidewell {

std::string prospectText(History::State state, Date restorableUntil, bool hasBackup, Date now) {
  const std::string until = momentText(restorableUntil, now);
  switch (state) {
    case History::State::restorable:
      return filled(_("restorable until {1}"), {until});
    case History::State::missing:
      return now < restorableUntil && hasBackup ? filled(_("file is missing, restorable until {1}"), {until})
                                                : _("file is missing");
    case History::State::edited:
      return hasBackup ? _("edited since, backup can be copied out") : _("edited since");
    case History::State::interrupted:
      return _("interrupted");
    case History::State::expired:
      break;
  }
  return hasBackup ? _("expired, backup can be copied out") : _("expired");
}

std::string problemText(const UndoRecord& record, const UndoActions::Result& result) {
  const std::string name = printable(record.originalPath);
  switch (result.outcome) {
    case UndoActions::Outcome::done:
    case UndoActions::Outcome::nothingToDo:
      break;
    case UndoActions::Outcome::edited:
      return filled(_("“{1}” was edited since and stays as it is"), {name});
    case UndoActions::Outcome::expired:
      return filled(_("It is too late to restore “{1}”"), {name});
    case UndoActions::Outcome::backupMissing:
      return filled(_("The backup of “{1}” is gone"), {name});
    case UndoActions::Outcome::backupDamaged:
      return filled(_("The backup of “{1}” is damaged"), {name});
    case UndoActions::Outcome::failed:
      return describedError(result.error, record.originalPath);
  }
  return "";
}

std::string nothingToRestoreText(const UndoRecord& record, const UndoActions::Result& result) {
  const std::string name = printable(record.originalPath);
  return result.file ? filled(_("{1}: nothing to restore, the original is there"), {name})
                     : filled(_("{1}: nothing to restore, its record is gone"), {name});
}

}  // namespace tidewell
