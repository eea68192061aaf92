// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QString>
#include <QStringList>
#include <vector>

#include "CompressionKit/platform/URL.h"

class QMimeData;

namespace tidewell::desktop {

// Files as other programs name them. Names are bytes and come through whatever they are.

/// "file:///home/a%20b.jpg".
QString uriOf(const URL& file);
QStringList urisOf(const std::vector<URL>& files);
/// What is a file; everything else is passed over.
std::vector<URL> filesOf(const QStringList& uris);

/// The files that a drop or the clipboard names: a list of URIs, or text with one absolute path or "file:"
/// URI a line and nothing else.
std::vector<URL> filesOf(const QMimeData& data);
/// Whether `filesOf` may find any; looks at the kinds of data alone where it can.
bool mayNameFiles(const QMimeData& data);

}  // namespace tidewell::desktop
