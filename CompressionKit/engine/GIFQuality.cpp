// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/GIFQuality.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <thread>

#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/image/GIFFrames.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

URL referenceDirectory(const URL& workingDirectory) {
  return workingDirectory.appending("gif-reference");
}

/// The frames of original and output, exported by a thread of its own a little ahead of whoever scores them.
class FramePairs {
 public:
  /// The directories exist.
  FramePairs(URL references, URL outputs, GIFFrames& original, GIFFrames& output)
      : references_(std::move(references)),
        outputs_(std::move(outputs)),
        original_(original),
        output_(output),
        thread_([this] { work(); }) {}
  FramePairs(const FramePairs&) = delete;
  FramePairs& operator=(const FramePairs&) = delete;
  ~FramePairs() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
      changed_.notify_all();
    }
    thread_.join();
  }

  /// Waits until both files of frame `index` are written; false when their alpha differs. Throws what its
  /// export threw. Those before count as scored: their files are used for later frames.
  bool await(std::size_t index) {
    std::unique_lock lock(mutex_);
    scored_ = index;
    changed_.notify_all();
    changed_.wait(lock, [&] { return written_ > index || failed_; });
    if (written_ > index) return true;
    if (error_) std::rethrow_exception(error_);
    return false;
  }

 private:
  /// Frames that may wait for their turn while one is scored: enough to hide the export, and few files.
  static constexpr std::size_t ahead = 2;

  void work() {
    for (std::size_t i = 0; i < original_.count(); ++i) {
      std::exception_ptr error;
      bool agrees = false;
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return i <= scored_ + ahead || ended_; });
        if (ended_) return;
      }
      try {
        agrees = exportPair(i);
      } catch (...) {
        error = std::current_exception();
      }
      const std::lock_guard lock(mutex_);
      if (agrees) ++written_;
      failed_ = !agrees;
      error_ = error;
      changed_.notify_all();
      if (failed_) return;
    }
  }

  bool exportPair(std::size_t index) {
    const URL reference = GIFFrames::file(references_, index), output = GIFFrames::file(outputs_, index);
    original_.next();
    if (!files::exists(reference)) original_.write(reference);
    output_.next();
    if (!canvases::agreeInChanges(original_.canvas(), output_.canvas(), canvases::Compared::alpha)) {
      return false;
    }
    // The file of a scored frame becomes that of the next: making files costs more than filling them.
    if (index > ahead) {
      const URL scored = GIFFrames::file(outputs_, index - ahead - 1);
      if (rename(scored.path().c_str(), output.path().c_str()) != 0) files::removeItemIfPossible(scored);
    }
    output_.write(output);
    return true;
  }

  const URL references_, outputs_;
  GIFFrames &original_, &output_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t written_ = 0;  ///< frames before this one can be scored
  std::size_t scored_ = 0;   ///< frames before this one were
  bool failed_ = false;      ///< frame `written_` never will: for `error_`, or else for its alpha
  bool ended_ = false;       ///< nobody waits for more
  std::exception_ptr error_;
  std::thread thread_;  ///< the last member: all others are there while it runs
};

}  // namespace

std::vector<URL> gifReferenceFrames(const CompressionRun& run, const std::vector<std::size_t>& wanted) {
  const URL directory = referenceDirectory(run.workingDirectory);
  std::vector<URL> frames;
  for (std::int64_t i = 0; i < run.facts().frameCount; ++i) {
    frames.push_back(GIFFrames::file(directory, static_cast<std::size_t>(i)));
  }
  std::optional<GIFFrames> original;
  std::size_t next = 0;
  for (const std::size_t index : wanted) {
    if (files::exists(frames.at(index))) continue;
    if (!original) {
      original.emplace(AnimationFile{run.originalPixels()}, run.tools().stopToken());
      files::createDirectories(directory, 0777, files::Durability::cached);
    }
    while (next <= index) original->next(), ++next;
    original->write(frames[index]);
  }
  return frames;
}

std::optional<double> gifQualityScore(const URL& original, const AnimationFile& output,
                                      const ToolRunner& tools, const URL& directory, double minimum) {
  const URL references = referenceDirectory(directory);
  // Frames take far more room than the animation; those of one output are not needed for the next.
  const files::TemporaryTree outputs(directory.appending(output.url.lastPathComponent() + "-frames"));
  GIFFrames expected({original}, tools.stopToken()), candidate(output, tools.stopToken());
  const std::size_t count = candidate.count();
  if (count != expected.count()) return std::nullopt;
  for (const URL& frames : {references, outputs.url()}) {
    files::createDirectories(frames, 0777, files::Durability::cached);
  }

  double worst = QualityAssessment::identical;
  FramePairs pairs(references, outputs.url(), expected, candidate);
  for (std::size_t i = 0; i < count; ++i) {
    if (!pairs.await(i)) return std::nullopt;
    const double score =
        QualityAssessment::measure(GIFFrames::file(references, i), GIFFrames::file(outputs.url(), i), tools);
    if (score < minimum) return std::nullopt;
    worst = std::min(worst, score);
  }
  return worst;
}

}  // namespace tidewell
