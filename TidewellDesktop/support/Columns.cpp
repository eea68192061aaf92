// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/support/Columns.h"

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

QVariant headerData(std::span<const TableColumn> columns, int section, Qt::Orientation orientation,
                    int role) {
  if (orientation != Qt::Horizontal || section < 0 || section >= std::ssize(columns)) return {};
  const TableColumn& column = columns[static_cast<std::size_t>(section)];
  if (role == Qt::DisplayRole) return words(_(column.title));
  if (role != Qt::TextAlignmentRole) return {};
  return QVariant::fromValue(Qt::AlignVCenter | (column.isNumber ? Qt::AlignRight : Qt::AlignLeft));
}

}  // namespace tidewell::desktop
