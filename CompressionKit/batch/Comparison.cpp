// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/Comparison.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/batch/ComparisonViews.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/engine/GIFQuality.h"
#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/UnchangedFiles.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

/// Longer sides of what is looked at: the worst region is found without reducing the usual photo.
constexpr std::int64_t measuredSide = 4096, pictureSide = 1600;

/// One of the two files, as an image that the metric and the decoders read: a HEIC file as its PNG.
class Picture {
 public:
  Picture(const URL& file, const URL& scratch, const StopToken& stop) : url_(file), stop_(stop) {
    if (ImageKind::from(file) == ImageKind::heic) {
      url_ = scratch;
      HEICDecoding(file, HEICDecoding::Purpose::show, stop).savePNG(url_);
    }
    auto found = ImageFacts::inspection(url_, ImageFacts::Views::wanted, stop);
    facts_ = std::move(found.facts);
    views_ = std::move(found.views);
    side_ = {.bytes = fileSize(file),
             .width = facts_.width,
             .height = facts_.height,
             .frames = facts_.frameCount,
             .profile = facts_.profileName};
    if (facts_.orientation >= 5) std::swap(side_.width, side_.height);
  }

  const URL& url() const { return url_; }
  const ImageFacts& facts() const { return facts_; }
  const std::optional<views::Pair>& views() const { return views_; }
  const Comparison::Side& side() const { return side_; }
  bool isGIF() const { return facts_.kind == ImageKind::gif; }

  Bitmap view(std::int64_t maximumSide) const {
    return decoding([&] {
      const auto source = ImageSource::open(url_, stop_);
      return views::thumbnail(*source, source->primaryIndex(), maximumSide, true);
    });
  }

 private:
  URL url_;
  StopToken stop_;
  ImageFacts facts_;
  std::optional<views::Pair> views_;
  Comparison::Side side_;
};

/// One comparison, with a directory of its own that goes with it.
class Work {
 public:
  Work(const ComparedFiles& files, const ToolRunner& tools)
      : tools_(tools),
        directory_(locations::temporaryDirectory().appending("tidewell-compare-" + UUID::random().string())) {
    files::createDirectory(directory_.url(), 0700);
    original_.emplace(files.original, file("original.png"), tools.stopToken());
    result_.emplace(files.result, file("result.png"), tools.stopToken());
  }

  Comparison comparison(const std::optional<URL>& picture) const {
    Comparison found;
    found.original = original_->side();
    found.result = result_->side();
    if (!haveOneSize()) return found;
    ComparisonViews views = viewsOf(measuredSide);
    if (original_->side().frames == result_->side().frames) found.score = score(views);
    const bool isOneProfile = original_->side().profile == result_->side().profile;
    if (isOneProfile || views.convertToSRGB()) {
      found.worst = views.worstRegion(found.original.width, found.original.height);
    }
    if (picture) {
      ComparisonViews shown = viewsOf(pictureSide);
      if (!isOneProfile) shown.convertToSRGB();
      found.amplification = shown.amplification();
      shown.write(*picture, found.amplification);
    }
    return found;
  }

 private:
  URL file(const char* name) const { return directory_.url().appending(name); }

  bool haveOneSize() const {
    const auto &original = original_->side(), &result = result_->side();
    return original.width == result.width && original.height == result.height;
  }

  ComparisonViews viewsOf(std::int64_t side) const {
    return {.original = original_->view(side), .result = result_->view(side)};
  }

  /// As the gate for candidates measures where that can be; else the upright views.
  double score(const ComparisonViews& views) const {
    if (original_->isGIF() && result_->isGIF()) return gifScore();
    const ImageFacts &original = original_->facts(), &result = result_->facts();
    if (original_->isGIF() || result_->isGIF() || original.width != result.width ||
        original.orientation != result.orientation) {
      writePNG(views.original, file("view-1.png"));
      writePNG(views.result, file("view-2.png"));
      return QualityAssessment::measure(file("view-1.png"), file("view-2.png"), tools_);
    }
    if (!original_->views() || !result_->views()) {
      return QualityAssessment::measure(original_->url(), result_->url(), tools_);
    }
    const auto files = QualityAssessment::writeViews(*original_->views(), directory_.url(), "0");
    return QualityAssessment::score(files, *result_->views(), directory_.url(), tools_);
  }

  /// No frame is too bad to be told.
  double gifScore() const {
    constexpr double none = -std::numeric_limits<double>::infinity();
    const auto score = gifQualityScore(original_->url(), {result_->url()}, tools_, directory_.url(), none);
    if (score) return *score;
    throw CompressionError::validationFailed();  // the alpha of a frame differs
  }

  const ToolRunner& tools_;
  files::TemporaryTree directory_;
  std::optional<Picture> original_, result_;
};

}  // namespace

ComparedFiles ComparedFiles::of(const UndoStore& store, const UndoRecord& record) {
  return {.original = store.backupURL(record),
          .result = URL::file(record.convertedPath.value_or(record.originalPath)),
          .originalHash = store.verifyBackup(record),
          .resultHash = record.replacementHash};
}

Comparison compare(const ComparedFiles& files, const ToolRunner& tools, const std::optional<URL>& picture) {
  if (picture && files::exists(*picture)) throw FileError("创建", picture->path(), EEXIST);
  const UnchangedFiles unchanged(files.original, files.result, files.originalHash, files.resultHash);
  Comparison found = Work(files, tools).comparison(picture);
  found.lostMetadata = metadata::gone(metadata::entries(files.original), metadata::entries(files.result));
  unchanged.check();
  return found;
}

}  // namespace tidewell
