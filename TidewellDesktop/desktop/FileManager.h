// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <vector>

#include "CompressionKit/platform/URL.h"

class QObject;

namespace tidewell::desktop {

/// Shows files in the user's file manager, marked where it can do that. `receiver` bounds the life of the
/// request.
void showInFolder(const QDBusConnection& connection, const std::vector<URL>& files, QObject* receiver);

}  // namespace tidewell::desktop
