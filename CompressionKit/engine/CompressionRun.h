// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/engine/Original.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Seconds that one run of a tool may take.
inline constexpr double toolTimeout = 180;

/// An encoder's output that passed validation.
struct Candidate {
  URL url;              ///< in the run's working directory
  std::string encoder;  ///< label of the step that made it
  std::optional<double> score;
  std::int64_t bytes = 0;
  std::string hash;                   ///< of the bytes that were judged
  bool allowsSRGBConversion = false;  ///< its profile may be a conversion of the original's to sRGB
  bool isLossless = false;            ///< it was found to show the original's pixels, every one
};

/// The output shows the original's pixels, every one.
struct SamePixels {};
/// The output shows the pixels of a candidate that has passed, and so has its score, if any.
struct SamePixelsAs {
  const Candidate& candidate;
};
/// The output may look different, by so much.
struct ScoreAtLeast {
  std::optional<double> minimum = std::nullopt;  ///< else the engine's threshold for the kind
};
/// What a step of a plan promises of its output, and what is asked of it.
using Proof = std::variant<ScoreAtLeast, SamePixels, SamePixelsAs>;

/// One file on its way through the engine: what was found at the start, and what the plan has made of it so
/// far. Belongs to one thread.
struct CompressionRun {
  const CompressionEngine& engine;
  const CompressionOptions& options;
  CompressionTrace& trace;
  Original& original;
  const URL workingDirectory;

  std::vector<Candidate> candidates = {};  ///< in the order they were found
  std::exception_ptr lastError = nullptr;  ///< of the last attempt that threw
  std::optional<QualityAssessment::ViewFiles> viewFiles = std::nullopt;

  const ToolRunner& tools() const { return engine.tools(); }
  const URL& url() const { return original.url(); }
  const ImageFacts& facts() const { return original.facts(); }
  URL workingFile(const std::string& name) const { return workingDirectory.appending(name); }
  /// The original's views, written when they are first asked for. Throws as `writeViews`.
  const QualityAssessment::ViewFiles& originalViews();

  /// A file that shows the original's pixels: the smallest of the lossless candidates, else the original. An
  /// animation of which only the changes are left costs a fraction to decode.
  URL originalPixels() const;

  /// The tool may read the file and work in the working directory.
  void runTool(const std::string& tool, const std::vector<std::string>& arguments) const {
    tools().run(tool, arguments, toolTimeout, {.readable = {url()}, .writable = {workingDirectory}});
  }

  /// Runs one guarded step of a plan: false when it threw, which is recorded and fails nothing but the step.
  /// Only a stop request passes through.
  template <typename Step>
  bool attempt(Step&& step) {
    try {
      std::forward<Step>(step)();
      return true;
    } catch (const Interrupted&) {
      throw;
    } catch (const std::exception& error) {
      lastError = std::current_exception();
      trace.append({.encoder = "candidate",
                    .status = "error",
                    .reason = "component_error",
                    .bytes = std::nullopt,
                    .score = std::nullopt,
                    .detail = localizedDescription(error)});
      return false;
    }
  }

  /// The one way to become a candidate: gives an output what it must have of the original, lets the gate
  /// judge it, and adds what passes to the candidates where it is smaller than the original. What has passed
  /// comes back, nothing else. The gate's checks are of growing cost, the first that fails ends it; it leaves
  /// one record in the trace. Throws what the checks throw, and `CompressionError::fileOperation` for an
  /// output that is structurally another image.
  std::optional<Candidate> consider(const URL& output, const std::string& encoder, const Proof& proof);
  /// The last attempt where metadata is to go: the original itself, stripped, for what no encoder makes
  /// smaller. False when there is some to go and that could not be proven to have left the image as it is.
  bool strip();
  /// What `strip` found.
  std::optional<Candidate> stripped = std::nullopt;

  /// The candidate with the fewest bytes, the first of several; null when there is none.
  const Candidate* smallest() const;
  /// The same at the end of the plan: without a candidate, the error of the last step that threw is thrown.
  const Candidate* choice() const;
  /// The result of a file that stays as it is.
  CompressionResult passedOver(PassedOver reason) const;

 private:
  void prepare(const URL& output, const Proof& proof) const;
  std::optional<Candidate> judge(const URL& output, const std::string& encoder, const Proof& proof);
};

}  // namespace tidewell
