// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/CompareModel.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CompressionKit/batch/Comparison.h"
#include "CompressionKit/batch/ComparisonViews.h"
#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// Score and encoder, as they were remembered, or as the report of that time has them.
void tellCompression(const UndoStore& store, const UndoRecord& record, CompareFacts& facts) {
  if (const auto output = OutputMemory().output(record.replacementHash)) {
    facts.score = output->score;
    facts.encoder = output->encoder;
  }
  if (facts.score && facts.encoder) return;
  const auto report = newestReport(store.diagnosticsDirectory(), record.originalPath, record.createdAt);
  if (!report || !report->selectedEncoder) return;
  if (!facts.encoder) facts.encoder = report->selectedEncoder;
  const auto taken = std::ranges::find_if(report->attempts, [&](const CandidateDiagnostic& attempt) {
    return attempt.encoder == *facts.encoder && attempt.bytes == record.replacementBytes;
  });
  if (!facts.score && taken != report->attempts.end()) facts.score = taken->score;
}

CompareFacts factsOf(const UndoStore& store, const UndoRecord& record,
                     const ImageRendering::ScreenPictures& pictures) {
  CompareFacts facts;
  facts.originalBytes = record.originalBytes;
  facts.resultBytes = record.replacementBytes;
  const std::array sides = {pictures.original.get(), pictures.compressed.get()};
  for (std::size_t i = 0; i < sides.size(); ++i) {
    facts.sizes[i] = QSize(static_cast<int>(sides[i]->width()), static_cast<int>(sides[i]->height()));
    facts.frames[i] = sides[i]->frameCount();
    facts.profiles[i] = sides[i]->profileName();
  }
  // What cannot be told is no reason to show nothing.
  try {
    tellCompression(store, record, facts);
  } catch (const std::exception&) {
  }
  try {
    facts.lostMetadata = metadata::gone(metadata::entries(pictures.files.original()),
                                        metadata::entries(pictures.files.compressed()));
  } catch (const std::exception&) {
  }
  return facts;
}

}  // namespace

struct CompareModel::Loaded {
  std::shared_ptr<const ImageRendering::ScreenPictures> pictures;
  CompareFacts facts;
  int amplification = 0;
  std::array<QImage, 3> wholes;
  QString problem;
};

CompareModel::CompareModel(UndoStore store, QObject* parent) : QObject(parent), store_(std::move(store)) {
  // Both tiles that are made at once, beside a decode.
  pool_.setMaxThreadCount(3);
  connect(&tiles_, &Tiles::arrived, this, &CompareModel::picturesChanged);
  connect(&player_, &Player::frameChanged, this, &CompareModel::picturesChanged);
  connect(&player_, &Player::failed, this, &CompareModel::fail);
}

CompareModel::~CompareModel() {
  if (stop_) stop_->requestStop();
  pool_.clear();
  pool_.waitForDone();
}

void CompareModel::close() {
  ++generation_;
  if (stop_) stop_->requestStop();
  stop_.reset();
  pool_.clear();
  tiles_.close();
  player_.close();
  pictures_.reset();
  wholes_ = {};
  facts_ = {};
  amplification_ = 0;
  problem_.clear();
  remark_.clear();
  record_.reset();
  state_ = State::empty;
  Q_EMIT stateChanged();
}

void CompareModel::open(const UndoRecord& record) {
  close();
  record_ = record;
  try {
    stop_ = std::make_unique<StopSource>();
  } catch (const std::exception&) {
    return fail(words(describedError(std::current_exception())));
  }
  state_ = State::loading;
  inBackground(
      this, [store = store_, record, stop = stop_->token()] { return load(store, record, stop); },
      [this, generation = generation_](Loaded loaded) {
        if (generation == generation_) show(std::move(loaded));
      },
      &pool_);
  Q_EMIT stateChanged();
}

CompareModel::Loaded CompareModel::load(const UndoStore& store, const UndoRecord& record,
                                        const StopToken& stop) {
  Loaded loaded;
  try {
    const ComparedFiles files = ComparedFiles::of(store, record);
    loaded.pictures = ImageRendering::screenPictures(files.original, files.result, files.originalHash,
                                                     files.resultHash, wholeSide, stop);
    const Bitmap &original = loaded.pictures->original->reduced(),
                 &result = loaded.pictures->compressed->reduced();
    loaded.facts = factsOf(store, record, *loaded.pictures);
    loaded.wholes = {imageOf(original), imageOf(result), QImage()};
    if (loaded.facts.sizes[0] == loaded.facts.sizes[1]) {
      loaded.amplification = ComparisonViews{.original = original, .result = result}.amplification();
      loaded.wholes[2] = differenceOf(original, result, loaded.amplification);
    }
  } catch (const std::exception&) {
    loaded.problem = words(describedError(std::current_exception()));
  }
  return loaded;
}

void CompareModel::show(Loaded loaded) {
  if (!loaded.problem.isEmpty()) return fail(loaded.problem);
  pictures_ = std::move(loaded.pictures);
  facts_ = std::move(loaded.facts);
  amplification_ = loaded.amplification;
  wholes_ = std::move(loaded.wholes);
  state_ = State::ready;
  if (isAnimated()) {
    player_.open(pictures_->files, amplification_, stop_->token());
  } else {
    prepareTiles();
  }
  Q_EMIT stateChanged();
}

void CompareModel::prepareTiles() {
  // Nothing is missing where the views are not reduced.
  if (std::max({facts_.sizes[0].width(), facts_.sizes[0].height(), facts_.sizes[1].width(),
                facts_.sizes[1].height()}) <= wholeSide) {
    return;
  }
  struct Prepared {
    bool possible = false;
    QString problem;
  };
  inBackground(
      this,
      [pictures = pictures_] {
        Prepared prepared;
        try {
          prepared.possible = ImageRendering::prepareParts(pictures);
        } catch (const std::exception&) {
          prepared.problem = words(describedError(std::current_exception()));
        }
        return prepared;
      },
      [this, generation = generation_](const Prepared& prepared) {
        if (generation != generation_) return;
        if (!prepared.problem.isEmpty()) return fail(prepared.problem);
        if (prepared.possible) {
          tiles_.open(pictures_, amplification_);
          Q_EMIT picturesChanged();
        } else {
          remark_ = words(_("There is too little room on the disk to show every pixel"));
          Q_EMIT stateChanged();
        }
      },
      &pool_);
}

void CompareModel::fail(const QString& problem) {
  const auto record = record_;
  close();
  record_ = record;
  problem_ = problem;
  state_ = State::failed;
  Q_EMIT stateChanged();
}

const QImage& CompareModel::whole(Picture picture) const {
  if (player_.isOpen() && !player_.frame(picture).isNull()) return player_.frame(picture);
  return wholes_[static_cast<std::size_t>(picture)];
}

}  // namespace tidewell::desktop
