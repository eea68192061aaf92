// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QImage>

#include "CompressionKit/codecs/Bitmap.h"

namespace tidewell::desktop {

/// What can be looked at of a comparison.
enum class Picture { original, result, difference };

/// A copy in the form that paints fastest. Any thread.
QImage imageOf(const Bitmap& bitmap);

/// How far two pictures of one size differ, `amplification` times, black where they are equal. Differences
/// of alpha show in grey. Any thread.
QImage differenceOf(const Bitmap& original, const Bitmap& result, int amplification);

}  // namespace tidewell::desktop
