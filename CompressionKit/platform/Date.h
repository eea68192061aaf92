// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <compare>
#include <string>

namespace tidewell {

/// A moment, in seconds since 2001-01-01 00:00:00 UTC: the form in which every JSON file here stores it.
/// A double, so that arithmetic on a hostile record can reach infinity but never overflows.
struct Date {
  double sinceReferenceDate = 0;

  static constexpr double referenceDateSince1970 = 978307200.0;

  static Date now();
  static Date since1970(double seconds) { return {seconds - referenceDateSince1970}; }
  double since1970() const { return sinceReferenceDate + referenceDateSince1970; }

  Date adding(double seconds) const { return {sinceReferenceDate + seconds}; }
  /// Seconds from `earlier` to this date.
  double since(const Date& earlier) const { return sinceReferenceDate - earlier.sinceReferenceDate; }

  /// UTC with whole seconds: "2025-03-01T08:15:30Z".
  std::string iso8601() const;

  auto operator<=>(const Date&) const = default;
};

}  // namespace tidewell
