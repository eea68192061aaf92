// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/BatchJob.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/undo/AtomicRename.h"

namespace tidewell {
namespace {

using Outcome = FileReport::Outcome;
using Reason = FileReport::Reason;

Reason reason(PassedOver why) {
  switch (why) {
    case PassedOver::notSmaller:
      return Reason::notSmaller;
    case PassedOver::belowMinimum:
      return Reason::belowMinimum;
    case PassedOver::embeddedMedia:
      break;
  }
  return Reason::embeddedMedia;
}

void fill(FileReport& report, const CompressionResult& result) {
  report.outcome = result.outcome == CompressionOutcome::replaced    ? Outcome::replaced
                   : result.outcome == CompressionOutcome::converted ? Outcome::converted
                                                                     : Outcome::skipped;
  if (result.passedOver) report.reason = reason(*result.passedOver);
  report.originalBytes = result.originalBytes;
  report.finalBytes = result.finalBytes;
  report.score = result.qualityScore;
  report.encoder = result.encoder;
}

void fillKnown(FileReport& report, const URL& url, std::optional<double> score) {
  report.outcome = Outcome::skipped;
  report.reason = Reason::alreadyCompressed;
  report.originalBytes = report.finalBytes = fileSize(url);
  report.score = score;
}

/// As the engine asks of what it compresses: copies of links and devices would be compressed, too.
void requireRegularFile(const URL& url) {
  if (!files::resourceValues(url).isRegularFile) throw CompressionError::fileOperation("请选择普通图片文件");
}

FileError nameTaken(const URL& url) {
  return {"写入", url.path(), EEXIST};
}

/// A rehearsal fails where the work would: what lies in the folder could not be replaced. One that is not
/// there yet will be made in the nearest that is.
void requireWritable(URL folder) {
  while (access(folder.path().c_str(), W_OK | X_OK) != 0) {
    if (errno != ENOENT || folder.path() == "/") throw FileError("写入", folder.path(), errno);
    folder = folder.deletingLastPathComponent();
  }
}

}  // namespace

FileReport reportOn(const Found& file) {
  FileReport report;
  report.url = file.url;
  report.isNamed = file.isNamed;
  return report;
}

BatchJob::BatchJob(const CompressionEngine& engine, OutputMemory* memory, const BatchOptions& options)
    : engine_(engine), memory_(memory), options_(options), compression_(options.compression) {
  if (!memory_) return;
  compression_.outputs = this;
  tools_ = toolVersions(engine.tools().directory());
  known_.emplace(*memory_,
                 KnownFiles::Conditions{.tools = tools_,
                                        .floors = engine.thresholds(),
                                        .keepMetadata = options.compression.keepMetadata,
                                        .stripMetadata = options.compression.stripMetadata},
                 engine.tools().stopToken());
}

FileReport BatchJob::perform(const Found& file) {
  FileReport report = reportOn(file);
  try {
    if (options_.output) {
      writeCopy(file, report);
    } else if (options_.dryRun) {
      const URL folder = file.url.deletingLastPathComponent();
      rehearse(file, folder, report);
      if (report.outcome == Outcome::converted) report.output = takeConversionName(file.url, folder);
    } else {
      compressInPlace(file, report);
    }
  } catch (...) {
    report = reportOn(file);
    report.error = std::current_exception();
  }
  return report;
}

void BatchJob::compressInPlace(const Found& file, FileReport& report) {
  sweeps_.sweepOnce(file.url.deletingLastPathComponent());
  const auto result = work(engine_, file.url, compression_, known(file.url), report);
  if (!result) return;
  if (result->outcome == CompressionOutcome::converted) report.output = result->url;
  if (result->undoRecord) report.record = result->undoRecord->id;
  rememberSkipped(*result);
}

void BatchJob::rehearse(const Found& file, const URL& folder, FileReport& report) {
  requireRegularFile(file.url);
  const auto before = known(file.url);
  if (stays(before, file.url)) return fillKnown(report, file.url, before->score);
  requireWritable(folder);
  const URL temporary = locations::temporaryDirectory();
  sweeps_.sweepOnce(temporary);
  const WorkingDirectory directory(temporary);
  const URL copy = directory.url().appending(file.url.lastPathComponent());
  files::copyItem(file.url, copy);
  work(engineBeside(directory.url()), copy, options_.compression, before, report);
}

/// Whether this batch has not given the name away yet; now it has.
bool BatchJob::takeName(const URL& name) {
  const std::lock_guard lock(mutex_);
  return names_.insert(name.path()).second;
}

/// The first name that is free beside the original, as it would get there, and that this batch has not given
/// away in the folder.
URL BatchJob::takeConversionName(const URL& original, const URL& folder) {
  for (int attempt = 0; attempt < maximumConversionNames; ++attempt) {
    const URL beside = conversionURL(original, attempt);
    if (files::exists(beside)) continue;
    URL name = folder.appending(beside.lastPathComponent());
    if (takeName(name)) return name;
  }
  throw CompressionError::fileOperation("无法创建 PNG：同名文件过多");
}

void BatchJob::writeCopy(const Found& file, FileReport& report) {
  requireRegularFile(file.url);
  const URL target = options_.output->appending(file.treePath);
  const URL folder = target.deletingLastPathComponent();
  const auto refuseTaken = [&](const URL& name) {
    if (files::exists(name)) throw nameTaken(name);
  };
  if (ImageKind::from(file.url) != ImageKind::heic) refuseTaken(target);  // before any work is done
  std::optional<WorkingDirectory> directory;
  URL copy = file.url;
  if (options_.dryRun) {
    requireWritable(folder);  // for what is known, too, as it would be copied
    rehearse(file, folder, report);
  } else {
    files::createDirectories(folder);
    sweeps_.sweepOnce(folder);
    directory.emplace(folder);
    copy = makeCopy(file, *directory, report);
  }
  const bool isConverted = report.outcome == Outcome::converted;
  report.output = isConverted ? takeConversionName(file.url, folder) : target;
  if (!isConverted && !takeName(target)) throw nameTaken(target);
  refuseTaken(*report.output);
  if (directory && !atomicRenameIfAbsent(copy, *report.output)) throw nameTaken(*report.output);
  report.outcome = Outcome::written;
}

/// The file to be written, made and proven in the directory.
URL BatchJob::makeCopy(const Found& file, const WorkingDirectory& directory, FileReport& report) {
  URL copy = directory.url().appending(file.url.lastPathComponent());
  files::copyItem(file.url, copy);
  std::optional<std::string> original;  // the hash of what was copied
  const auto before = known(copy);
  if (const auto result = work(engineBeside(directory.url()), copy, compression_, before, report)) {
    rememberSkipped(*result);
    original = result->originalHash;
    copy = result->url;
  } else {
    original = before->hash;
  }
  if (hash(file.url) != original) throw CompressionError::changedDuringCompression();
  if (report.outcome == Outcome::skipped && !options_.compression.keepTimes) {
    files::setTimes(copy, {.accessed = {0, UTIME_NOW}, .modified = {0, UTIME_NOW}});
  }
  engine_.tools().stopToken().throwIfStopped();
  return copy;
}

/// Also what needs not be compressed may say what is to go.
bool BatchJob::mustStrip(const URL& url) const {
  return options_.compression.stripMetadata && ImageKind::from(url) != ImageKind::heic;
}

/// A file that was known `before` is not even to lose its metadata.
bool BatchJob::stays(const std::optional<KnownFiles::Known>& before, const URL& url) const {
  return before && !mustStrip(url);
}

/// Reports on a file what the engine makes of it. Without a result it is one that was known `before` and
/// stays as it is, for its pixels are never compressed again.
std::optional<CompressionResult> BatchJob::work(const CompressionEngine& engine, const URL& url,
                                                CompressionOptions compression,
                                                const std::optional<KnownFiles::Known>& before,
                                                FileReport& report) const {
  if (stays(before, url)) {
    fillKnown(report, url, before->score);
    return std::nullopt;
  }
  compression.recompress = !before;
  // A copy of a HEIC file that is not worth to be converted would have all of its metadata.
  if (compression.stripMetadata && options_.output && !mustStrip(url)) compression.minimumSaving.reset();
  auto result = engine.compress(url, options_.sessionID, compression);
  if (before && result.passedOver) {
    fillKnown(report, url, before->score);
    return std::nullopt;
  }
  fill(report, result);
  if (before) report.score = before->score;
  return result;
}

/// One whose backups and reports go the way of the directory.
CompressionEngine BatchJob::engineBeside(const URL& directory) const {
  return {engine_.tools(), UndoStore(directory.appending("Undo")), engine_.thresholds(),
          engine_.heicProgram()};
}

std::optional<KnownFiles::Known> BatchJob::known(const URL& url) const {
  if (!known_ || options_.again) return std::nullopt;
  return known_->find(url, !options_.output);
}

void BatchJob::willPublish(const CompressionResult& result) noexcept {
  auto score = result.qualityScore;
  if (!score) {  // without loss, so what an output lost before is what it has lost
    const auto before = memory_->output(result.originalHash.value_or(""));
    if (before) score = before->score;
    // A file that lost its metadata alone, where an encoder may just have gained too little, can still be
    // compressed.
    if (!before && compression_.minimumSaving && result.encoder == strippedOnly) return;
  }
  memory_->remember({.hash = result.finalHash.value_or(""),
                     .madeFrom = result.originalHash.value_or(""),
                     .when = Date::now(),
                     .encoder = result.encoder,
                     .score = score,
                     .bytes = result.finalBytes,
                     .tools = tools_});
}

void BatchJob::rememberSkipped(const CompressionResult& result) const {
  // Without a hash the file changed meanwhile: who knows what the tools saw.
  if (!known_ || result.passedOver != PassedOver::notSmaller || !result.originalHash) return;
  known_->rememberNothingSmaller(*result.originalHash, result.originalBytes);
}

}  // namespace tidewell
