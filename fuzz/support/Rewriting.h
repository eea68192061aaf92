// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>

#include "CompressionKit/platform/URL.h"
#include "support/Target.h"

namespace tidewell::fuzz {

/// An input as a file, for what rewrites files. There is one such file at a time.
class ImageFile {
 public:
  ImageFile(Input input, const char* name);
  const URL& url() const { return url_; }

  /// Has the file rewritten with an orientation that its last byte tells. Requires that a rewritten image
  /// says so and has the pixels that it had, and that one which is refused is as it was.
  void rewrite(const std::function<void(int orientation, const URL& url)>& preserveOrientation) const;

 private:
  Input input_;
  URL url_;
};

}  // namespace tidewell::fuzz
