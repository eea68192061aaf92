// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QVariant>
#include <Qt>
#include <span>

namespace tidewell::desktop {

/// One column of a table.
struct TableColumn {
  const char* title;  ///< English, by `N_`
  bool isNumber = false;
};

/// What a model answers for its header, and for where its cells have their text: numbers end alike, mirrored
/// where the language runs from right to left.
QVariant headerData(std::span<const TableColumn> columns, int section, Qt::Orientation orientation, int role);

}  // namespace tidewell::desktop
