// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <csetjmp>
#include <cstdint>
#include <cstdio>
// libjpeg's header wants <cstdio> first.
#include <jpeglib.h>

#include <memory>
#include <string>

#include "CompressionKit/codecs/BlockArrays.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Stop.h"

namespace tidewell {

class JPEGPart;

/// One decompression by libjpeg, with its header read. Damage ends it, also where libjpeg would go on.
class JPEGDecompressor {
 public:
  /// Of a file from its start.
  JPEGDecompressor(std::FILE* file, const StopToken& stop);
  /// Of a part of `original`, which is complete, and which made the pixels of the whole image.
  JPEGDecompressor(JPEGPart& part, const jpeg_decompress_struct& original, const StopToken& stop);

  jpeg_decompress_struct& jpeg() { return handle_.jpeg; }

  /// Every call into libjpeg is in here: its errors come back by longjmp, so no object with a destructor may
  /// live in the calls in between. Throws `ImageDecodeError`, `Interrupted`.
  template <typename Call>
  void guarded(Call call) {
    if (setjmp(errors_.jump) != 0) {
      stop_.throwIfStopped();
      throw ImageDecodeError(errors_.message);
    }
    call();
  }

  void throwIfStopped() const { stop_.throwIfStopped(); }

  /// To be given before the decompression starts.
  void setArrays(std::unique_ptr<BlockArrays> arrays) { arrays_ = std::move(arrays); }

 private:
  struct Errors {
    jpeg_error_mgr base{};
    std::jmp_buf jump;
    const StopToken* stop = nullptr;
    boolean (*fill)(j_decompress_ptr) = nullptr;  ///< libjpeg's own way to read on
    char message[JMSG_LENGTH_MAX] = {};
  };
  struct Progress {
    jpeg_progress_mgr base{};
    std::int64_t maximumScans = 1;
  };
  struct Handle {
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { jpeg_destroy_decompress(&jpeg); }
    jpeg_decompress_struct jpeg{};
  };

  explicit JPEGDecompressor(const StopToken& stop);
  static Errors& errorsOf(j_common_ptr jpeg) { return *reinterpret_cast<Errors*>(jpeg->err); }
  [[noreturn]] static void fail(j_common_ptr jpeg);
  static void failIfStopped(j_common_ptr jpeg);
  static void limitScans(j_common_ptr jpeg);

  StopToken stop_;
  Progress progress_;
  Errors errors_;
  std::string head_;  ///< of what is in memory
  std::unique_ptr<BlockArrays> arrays_;
  Handle handle_;
};

}  // namespace tidewell
