// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QString>
#include <Qt>
#include <initializer_list>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/wording/Texts.h"

namespace tidewell::desktop {

// Texts and paths between the kit, which keeps bytes, and Qt. Texts are written `words(_("Compare"))`.

inline QString words(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

/// `pattern` with "{1}" replaced by the first value, and so on.
QString words(std::string_view pattern, std::initializer_list<QString> values);

/// Numbers with their units, which run from left to right in every language.
QString amountWords(std::string_view text);

/// For a label whose own text, a path as an example, may not tell the direction of the page.
Qt::Alignment startOfLine();

/// A path or name as people may see it; may not be fit for opening the file.
QString shownPath(std::string_view path);

/// A tooltip that shows just this: names may look like the markup that Qt would take them for.
QString plainTip(const QString& text);

/// The file that Qt means. Qt cannot tell names that are no UTF-8: take those from `mime` data or arguments
/// as bytes.
URL fileURL(const QString& path);

}  // namespace tidewell::desktop
