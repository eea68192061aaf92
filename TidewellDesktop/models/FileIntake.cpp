// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/FileIntake.h"

#include <QMetaObject>
#include <chrono>
#include <cstddef>
#include <exception>
#include <string>
#include <unordered_set>

#include "CompressionKit/batch/FolderWalk.h"
#include "CompressionKit/batch/KnownFiles.h"
#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

constexpr std::size_t chunkRows = 500;
constexpr auto chunkPatience = std::chrono::milliseconds(100);

/// What a batch would pass over, without hashing what cannot be known.
class Sieve {
 public:
  Sieve(OutputMemory& memory, const URL& tools, const FileIntake::Options& options, const StopToken& stop)
      : again_(options.again),
        known_(memory, {.tools = toolVersions(tools), .floors = {}, .keepMetadata = options.keepMetadata},
               stop) {
    if (!again_) sizes_ = memory.sizes();
  }

  FileRow row(const Found& found) const {
    FileRow row{.url = found.url};
    if (found.error) {
      row.state = RowState::failed;
      row.why = words(describedError(found.error));
      return row;
    }
    row.before = found.bytes;
    if (!ImageKind::from(found.url)) {
      row.state = RowState::skipped;
      row.why = words(_("not a supported format"));
    } else if (const auto known = mayBeKnown(found) ? known_.find(found.url, true) : std::nullopt) {
      row.state = RowState::alreadyCompressed;
      row.after = row.before;
      row.score = known->score;
    }
    return row;
  }

 private:
  bool mayBeKnown(const Found& found) const {
    if (again_) return false;
    if (sizes_.contains(found.bytes)) return true;
    return ImageKind::from(found.url) == ImageKind::heic && files::exists(conversionURL(found.url, 0));
  }

  const bool again_;
  const KnownFiles known_;
  std::unordered_set<std::int64_t> sizes_;
};

}  // namespace

FileIntake::FileIntake(std::optional<URL> memory, URL tools, QObject* parent)
    : QObject(parent), memory_(std::move(memory)), tools_(std::move(tools)) {
  qRegisterMetaType<std::vector<FileRow>>();
  pool_.setMaxThreadCount(1);
}

FileIntake::~FileIntake() {
  stop();
  pool_.waitForDone();
}

void FileIntake::stop() {
  ++generation_;
  if (const auto running = std::exchange(stop_, nullptr)) running->requestStop();
}

void FileIntake::add(std::vector<URL> named, const Options& options) {
  if (!stop_) stop_ = std::make_unique<StopSource>();
  ++running_;
  inBackground(
      this,
      [this, named = std::move(named), options, generation = generation_, stop = stop_->token()] {
        walk(named, options, generation, stop);
      },
      [this] {
        --running_;
        Q_EMIT finished();
      },
      &pool_);
}

/// On the pool's thread, for which the end of this waits.
void FileIntake::walk(const std::vector<URL>& named, const Options& options, int generation,
                      const StopToken& stop) {
  std::vector<FileRow> rows;
  const auto deliver = [&] {
    if (rows.empty()) return;
    QMetaObject::invokeMethod(
        this,
        [this, generation, rows = std::exchange(rows, {})] {
          if (generation == generation_) Q_EMIT found(rows);
        },
        Qt::QueuedConnection);
  };
  try {
    std::vector<std::string> paths;
    for (const URL& url : named) {
      if (url.isFileURL()) paths.push_back(url.path());
    }
    const Sieve sieve(memory_, tools_, options, stop);
    FolderWalk walk(namedPaths(std::move(paths)), {.leftOut = {locations::undoStore()}}, stop);
    auto delivered = std::chrono::steady_clock::now();
    while (const auto file = walk.next()) {
      rows.push_back(sieve.row(*file));
      const auto now = std::chrono::steady_clock::now();
      if (rows.size() < chunkRows && now - delivered < chunkPatience) continue;
      deliver();
      delivered = now;
    }
  } catch (const std::exception&) {  // stopped
  }
  deliver();
}

}  // namespace tidewell::desktop
