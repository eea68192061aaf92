// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGDecompressor.h"

#include <jerror.h>

#include <algorithm>
#include <utility>

#include "CompressionKit/codecs/JPEGPart.h"
#include "CompressionKit/codecs/SparseCoefficients.h"

namespace tidewell {
namespace {

/// More scans than any encoder writes; each costs a pass over the whole image, so that huge ones may have
/// fewer, as many as read this many blocks.
constexpr std::int64_t maximumScans = 100;
constexpr std::int64_t maximumBlocksRead = maximumScans << 22;

/// Warnings that mean missing or broken pixels. Others (bytes between segments, odd application markers)
/// are found in sound photos.
bool meansDamage(int code) {
  return code == JWRN_HIT_MARKER || code == JWRN_JPEG_EOF || code == JWRN_HUFF_BAD_CODE ||
         code == JWRN_MUST_RESYNC;
}

/// A source goes on with this when its bytes are over.
constexpr JOCTET zeros[4096] = {};

}  // namespace

void JPEGDecompressor::fail(j_common_ptr jpeg) {
  jpeg->err->format_message(jpeg, errorsOf(jpeg).message);
  std::longjmp(errorsOf(jpeg).jump, 1);
}

/// Called where much may lie before the next row.
void JPEGDecompressor::failIfStopped(j_common_ptr jpeg) {
  if (errorsOf(jpeg).stop->stopRequested()) ERREXIT(jpeg, JERR_INPUT_EOF);
}

void JPEGDecompressor::limitScans(j_common_ptr jpeg) {
  failIfStopped(jpeg);
  const auto* decompress = reinterpret_cast<j_decompress_ptr>(jpeg);
  const auto* progress = reinterpret_cast<Progress*>(jpeg->progress);
  if (decompress->input_scan_number > progress->maximumScans) ERREXIT(jpeg, JERR_BAD_PROGRESSION);
}

JPEGDecompressor::JPEGDecompressor(const StopToken& stop) : stop_(stop) {
  errors_.stop = &stop_;
  jpeg().err = jpeg_std_error(&errors_.base);
  errors_.base.error_exit = fail;
  // Damage ends the decoding at once: libjpeg would go on with grey for as long as the header claims.
  errors_.base.emit_message = [](j_common_ptr jpeg, int level) {
    if (level < 0 && meansDamage(jpeg->err->msg_code)) fail(jpeg);
  };
  progress_.base.progress_monitor = limitScans;
  guarded([&] {
    jpeg_create_decompress(&jpeg());
    jpeg().progress = &progress_.base;
    // libjpeg has nowhere to put what goes beyond this.
    jpeg().mem->max_memory_to_use = static_cast<long>(ImageLimits::maximumResidentBytes);
  });
}

JPEGDecompressor::JPEGDecompressor(std::FILE* file, const StopToken& stop) : JPEGDecompressor(stop) {
  std::rewind(file);
  guarded([&] {
    jpeg_stdio_src(&jpeg(), file);
    errors_.fill = std::exchange(jpeg().src->fill_input_buffer, [](j_decompress_ptr decompress) {
      failIfStopped(reinterpret_cast<j_common_ptr>(decompress));
      return errorsOf(reinterpret_cast<j_common_ptr>(decompress)).fill(decompress);
    });
    jpeg_read_header(&jpeg(), TRUE);
  });
  const std::int64_t blocks = SparseCoefficients::blockCount(jpeg());
  progress_.maximumScans = std::clamp(maximumBlocksRead / blocks, std::int64_t{1}, maximumScans);
}

JPEGDecompressor::JPEGDecompressor(JPEGPart& part, const jpeg_decompress_struct& original,
                                   const StopToken& stop)
    : JPEGDecompressor(stop) {
  head_ = part.header();
  guarded([&] {
    jpeg_mem_src(&jpeg(), reinterpret_cast<const unsigned char*>(head_.data()), head_.size());
    jpeg().src->fill_input_buffer = [](j_decompress_ptr decompress) -> boolean {
      decompress->src->next_input_byte = zeros;
      decompress->src->bytes_in_buffer = sizeof zeros;
      return TRUE;
    };
    jpeg_read_header(&jpeg(), TRUE);
    JPEGPart::describe(jpeg(), original);
  });
  setArrays(part.arrays(jpeg()));
}

}  // namespace tidewell
