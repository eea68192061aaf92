// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "faults/World.h"

#include <filesystem>
#include <fstream>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/FolderSweep.h"

namespace tidewell::test {
namespace {

// The standard library's file operations are none of the kit's, so that no fault disturbs them.
namespace fs = std::filesystem;

const std::string neighbourBytes = "the neighbour";

}  // namespace

World::World() {
  fs::create_directory(photos.path());
  write(photo, oldBytes);
  const URL neighbour = photos.appending("neighbour.jpg");
  write(neighbour, neighbourBytes);
  neighbour_ = store.prepare(neighbour, neighbour, UUID::random(), std::nullopt);
}

void World::write(const URL& url, const std::string& bytes) const {
  std::ofstream(url.path(), std::ios::binary) << bytes;
}

void World::replace() {
  const URL candidate = photos.appending("candidate");
  write(candidate, newBytes);
  record = store.prepare(photo, candidate, neighbour_.sessionID, std::nullopt);
  fs::rename(candidate.path(), photo.path());
  store.commit(*record);
}

void World::convert() {
  write(png, newBytes);
  record = store.prepare(photo, png, neighbour_.sessionID, png.path());
  store.commit(*record);
}

void World::remember() const {
  std::ofstream notes((folder / "notes").path());
  notes << saves_ << ' ' << oldIsGivenUp_ << '\n';
  for (const auto& work : works_) notes << work << '\n';
}

void World::recall() {
  std::ifstream notes((folder / "notes").path());
  if (!(notes >> saves_ >> oldIsGivenUp_)) return;
  works_.clear();
  notes.ignore();
  for (std::string work; std::getline(notes, work);) works_.insert(work);
}

void World::damageBackups() const {
  for (const auto& known : store.records()) {
    const URL backup = store.backupURL(known);
    if (const auto bytes = at(backup)) write(backup, std::string(bytes->size(), 'x'));
  }
}

void World::displace(const URL& url, const std::string& work) {
  fs::create_directories(url.deletingLastPathComponent().path());
  write(url, work);
  works_.insert(work);
}

void World::save(const URL& url, Save way) {
  const auto before = at(url);
  if (before) works_.erase(*before);
  if (before == oldBytes && url == photo) oldIsGivenUp_ = true;
  std::string work = "work " + std::to_string(++saves_);
  if (way == Save::append) work = before.value_or("") + work;
  if (way != Save::unlink) works_.insert(work);
  remember();
  if (way == Save::unlink) {
    fs::remove(url.path());
  } else if (way == Save::append) {
    std::ofstream(url.path(), std::ios::binary | std::ios::app) << work.substr(before.value_or("").size());
  } else if (way == Save::write) {
    write(url, work);
  } else {
    const URL draft = photos.appending("draft");
    write(draft, work);
    fs::rename(draft.path(), url.path());
  }
}

std::optional<std::string> World::at(const URL& url) const {
  std::ifstream file(url.path(), std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

World::Contents World::visible() const {
  Contents found;
  for (const auto& entry : fs::directory_iterator(photos.path())) {
    const URL url = URL::file(entry.path().native());
    if (!url.lastPathComponent().starts_with('.')) found.insert(at(url).value_or(""));
  }
  return found;
}

std::optional<UndoRecord> World::restorable() const {
  for (const auto& found : store.readRecords()) {
    if (found.originalPath != photo.path() || found.replacementHash != hash(std::string_view(newBytes)))
      continue;
    if (at(store.backupURL(found)) == oldBytes) return found;
  }
  return std::nullopt;
}

std::string World::wrong(const Contents& photoMayBe, const Contents& pngMayBe, bool worksMayHide) const {
  const auto seen = visible();
  for (const auto& work : works_) {
    if (!worksMayHide && !worksAreGivenUp_ && !seen.contains(work)) return "lost: " + work;
  }
  const bool canRestore = restorable().has_value();
  for (const auto& [url, allowed] : {std::pair(photo, photoMayBe), std::pair(png, pngMayBe)}) {
    const std::string found = at(url).value_or("");
    if (found == newBytes && !canRestore && !isFinal) return "no way back from " + url.lastPathComponent();
    if (works_.contains(found) || allowed.contains(found)) continue;
    if (saves_ > 0 && (found.empty() || found == oldBytes || found == newBytes)) continue;
    return url.lastPathComponent() + " is \"" + found + "\"";
  }
  if (!isFinal && !oldIsGivenUp_ && !seen.contains(oldBytes) && !canRestore) return "the original is nowhere";
  return neighbourIsWell() ? "" : "the neighbour suffered";
}

std::string World::leftOvers() const {
  std::string found;
  for (const auto& entry : fs::directory_iterator(photos.path())) {
    if (entry.path().filename().native().starts_with('.')) found += entry.path().filename().native() + " ";
  }
  std::set<std::string> named;
  for (const auto& known : store.readRecords()) {
    named.insert(store.backupURL(known).path());
    named.insert(
        store.root().appending(known.sessionID.string()).appending(known.id.string() + ".json").path());
  }
  for (const auto& entry : fs::recursive_directory_iterator(store.root().path())) {
    const bool isUsed = entry.is_directory() ? !fs::is_empty(entry) : named.contains(entry.path());
    if (!isUsed) found += entry.path().lexically_relative(store.root().path()).native() + " ";
  }
  return found;
}

void World::sweep(Date now, std::int64_t maxBytes) const {
  sweepFolder(photos, now);
  store.cleanup(UndoStore::backupRetention, maxBytes, now);
}

bool World::neighbourIsWell() const {
  for (const auto& found : store.readRecords()) {
    if (found == neighbour_) return at(store.backupURL(found)) == neighbourBytes;
  }
  return false;
}

}  // namespace tidewell::test
