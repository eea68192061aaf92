// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "CompressionKit/codecs/ImageSource.h"
#include "support/TestImages.h"

namespace tidewell::test {

inline ImageProperties propertiesOf(const URL& url) {
  return ImageSource::open(url)->properties(0);
}

inline void expectUndecodable(const URL& url, const std::string& name) {
  EXPECT_THROW(ImageSource::open(url)->verify(0), ImageDecodeError) << name;
  EXPECT_THROW(decoded(url), ImageDecodeError) << name;
}

/// The decoder's own words for why the call fails; empty when it does not.
template <typename Call>
std::string reasonOf(Call&& call) {
  try {
    call();
  } catch (const ImageDecodeError& error) {
    return error.reason().empty() ? "unknown" : error.reason();
  }
  return "";
}

}  // namespace tidewell::test
