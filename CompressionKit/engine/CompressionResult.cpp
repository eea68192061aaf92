// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/CompressionResult.h"

namespace tidewell {

std::optional<CompressionOutcome> CompressionOutcome::fromRawValue(std::string_view rawValue) {
  for (const CompressionOutcome outcome : {replaced, skipped, converted}) {
    if (outcome.rawValue() == rawValue) return outcome;
  }
  return std::nullopt;
}

std::string_view CompressionOutcome::rawValue() const {
  switch (value_) {
    case replaced:
      return "replaced";
    case skipped:
      return "skipped";
    case converted:
      break;
  }
  return "converted";
}

double CompressionResult::savedRatio() const {
  if (originalBytes == 0) return 0;
  return static_cast<double>(savedBytes()) / static_cast<double>(originalBytes);
}

}  // namespace tidewell
