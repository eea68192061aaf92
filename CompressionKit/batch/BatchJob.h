// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "CompressionKit/batch/Batch.h"
#include "CompressionKit/batch/KnownFiles.h"
#include "CompressionKit/undo/FolderSweep.h"
#include "CompressionKit/undo/WorkingDirectory.h"

namespace tidewell {

/// The report on a file of which nothing is known yet: a failure.
FileReport reportOn(const Found& file);

/// What a batch does with one file after the other, in place or with copies. Any number of threads may use it
/// for different files. The engine, the memory and the options must outlive it.
class BatchJob final : OutputListener {
 public:
  BatchJob(const CompressionEngine& engine, OutputMemory* memory, const BatchOptions& options);

  /// Blocks while the file is compressed. Never throws for a file: every error is in the report.
  FileReport perform(const Found& file);

 private:
  void willPublish(const CompressionResult& result) noexcept override;

  void compressInPlace(const Found& file, FileReport& report);
  void rehearse(const Found& file, const URL& folder, FileReport& report);
  void writeCopy(const Found& file, FileReport& report);
  bool takeName(const URL& name);
  URL takeConversionName(const URL& original, const URL& folder);
  URL makeCopy(const Found& file, const WorkingDirectory& directory, FileReport& report);
  bool mustStrip(const URL& url) const;
  bool stays(const std::optional<KnownFiles::Known>& before, const URL& url) const;
  std::optional<CompressionResult> work(const CompressionEngine& engine, const URL& url,
                                        CompressionOptions compression,
                                        const std::optional<KnownFiles::Known>& before,
                                        FileReport& report) const;
  CompressionEngine engineBeside(const URL& directory) const;
  std::optional<KnownFiles::Known> known(const URL& url) const;
  void rememberSkipped(const CompressionResult& result) const;

  const CompressionEngine& engine_;
  OutputMemory* memory_;
  const BatchOptions& options_;
  CompressionOptions compression_;  ///< which tells us of outputs, to be remembered
  std::string tools_;
  std::optional<KnownFiles> known_;  ///< with a memory
  FolderSweeps sweeps_;
  std::mutex mutex_;
  std::set<std::string> names_;  ///< the paths of what this batch copies or converts, or would
};

}  // namespace tidewell
