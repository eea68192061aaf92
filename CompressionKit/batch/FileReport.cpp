// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/FileReport.h"

#include <algorithm>

namespace tidewell {

std::int64_t FileReport::savedBytes() const {
  return std::max<std::int64_t>(originalBytes.value_or(0) - finalBytes.value_or(0), 0);
}

std::string_view rawValue(FileReport::Outcome outcome) {
  switch (outcome) {
    case FileReport::Outcome::replaced:
      return "replaced";
    case FileReport::Outcome::converted:
      return "converted";
    case FileReport::Outcome::written:
      return "written";
    case FileReport::Outcome::skipped:
      return "skipped";
    case FileReport::Outcome::failed:
      break;
  }
  return "failed";
}

std::string_view rawValue(FileReport::Reason reason) {
  switch (reason) {
    case FileReport::Reason::alreadyCompressed:
      return "already_compressed";
    case FileReport::Reason::unsupported:
      return "unsupported";
    case FileReport::Reason::belowMinimum:
      return "below_minimum";
    case FileReport::Reason::notSmaller:
      return "not_smaller";
    case FileReport::Reason::embeddedMedia:
      break;
  }
  return "embedded_media";
}

}  // namespace tidewell
