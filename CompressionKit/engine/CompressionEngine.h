// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <memory>

#include "CompressionKit/engine/CompressionOptions.h"
#include "CompressionKit/engine/CompressionResult.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {

class ReportDirectory;

/// Compresses one image file in place, or converts a HEIC file into a PNG beside it. An immutable value:
/// any number of threads may compress different files with it; two must never compress the same file.
class CompressionEngine {
 public:
  /// The lowest scores that count as "no visible loss".
  struct Thresholds {
    double quality = 60.0;     ///< basis of the JPEG thresholds
    double pngQuality = 70.0;  ///< lossy PNG candidates
    double gifQuality = 70.0;  ///< every frame of a lossy GIF candidate
  };

  CompressionEngine(ToolRunner tools, UndoStore undo, Thresholds thresholds, HEICProgram heicProgram = {});

  const ToolRunner& tools() const { return tools_; }
  const UndoStore& undo() const { return undo_; }
  const Thresholds& thresholds() const { return thresholds_; }
  const HEICProgram& heicProgram() const { return heicProgram_; }

  /// The same engine, which another token stops.
  CompressionEngine stoppedBy(StopToken stop) const;

  /// Blocks for as long as the tools run. `sessionID` names the batch in the undo store. Every run on a file
  /// URL leaves one diagnostics report and no working directory. Throws `CompressionError`, `FileError`,
  /// `Interrupted`; the file is then what it was.
  CompressionResult compress(const URL& url, const UUID& sessionID,
                             const CompressionOptions& options = {}) const;

 private:
  ToolRunner tools_;
  UndoStore undo_;
  std::shared_ptr<ReportDirectory> reports_;  ///< of all copies
  Thresholds thresholds_;
  HEICProgram heicProgram_;
};

}  // namespace tidewell
