// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "faults/Operations.h"

#include <filesystem>
#include <memory>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/ReplacementTransaction.h"
#include "CompressionKit/undo/WorkingDirectory.h"
#include "support/PlantedRecord.h"

namespace tidewell::test {
namespace {

namespace fs = std::filesystem;

const std::string old = World::oldBytes, smaller = World::newBytes;

void inspect(const URL& url) {
  if (files::read(url) != smaller) throw CompressionError::validationFailed();
}

void refuse(const URL&) {
  throw CompressionError::validationFailed();
}

void transact(const World& world, const std::optional<URL>& destination,
              const std::function<void(const URL&)>& judge = inspect) {
  const WorkingDirectory working(world.photos);
  const URL candidate = working.url().appending("candidate.jpg");
  world.write(candidate, smaller);
  ReplacementTransaction transaction(world.store, {.original = world.photo,
                                                   .originalHash = hash(std::string_view(old)),
                                                   .candidate = candidate,
                                                   .sessionID = world.session,
                                                   .destination = destination});
  if (!transaction.swap()) throw CompressionError::changedDuringCompression();
  transaction.verify("", judge);  // as if nobody had judged it before
  transaction.commit();
}

void restore(World& world) {
  world.store.restore(*world.record);
}

/// A store and a folder of which a maintenance pass, two days on, has something to do everywhere.
class Neglect {
 public:
  static constexpr std::int64_t maxBytes = 15;

  void make(World& world) {
    now_ = Date::now().adding(2.0 * 86400);
    const auto plant = [&](double hours, UndoRecord::State state) {
      return plantRecord(world.store, now_.adding(-hours * 3600), 10, state);
    };
    kept_ = {plant(0.5, UndoRecord::State::committed), plant(10, UndoRecord::State::prepared)};
    due_ = {plant(5, UndoRecord::State::committed), plant(1, UndoRecord::State::committed)};
    const auto hidden = [](const char* middle = "") {
      return std::string(".tidewell-") + middle + UUID::random().string();
    };
    const URL session = world.store.backupURL(kept_.front()).deletingLastPathComponent();
    world.write(session.appending(hidden() + ".tmp"), "cut o");
    world.write(session.appending(UUID::random().string() + ".jpg"), "a backup without a record");
    fs::create_directory(world.store.root().appending(UUID::random().string()).path());
    world.write(world.photos.appending(hidden("restore-")), "of a restore");
    const URL working = world.photos.appending(hidden());
    fs::create_directory(working.path());
    world.write(working.appending("candidate.png"), "of a run");
    const std::string place = std::string(64, 'a') + "-" + std::string(64, 'b');
    world.displace(world.photos.appending(hidden()).appending(place).appending("photo.jpg"),
                   "displaced work");
    world.replace();
    world.isFinal = true;
  }
  void sweep(const World& world) const { world.sweep(now_, maxBytes); }
  std::string wrong(const World& world, bool swept) const {
    for (const auto& record : kept_) {
      if (!world.at(world.store.backupURL(record))) return "a backup went that was not due";
    }
    if (swept) sweep(world);
    for (const auto& record : due_) {
      if (swept && world.at(world.store.backupURL(record))) return "a backup stayed that was due";
    }
    return "";
  }

 private:
  Date now_;
  std::vector<UndoRecord> kept_, due_;
};

std::vector<Operation> makeOperations() {
  const auto neglect = std::make_shared<Neglect>();
  const auto nothing = [](World&) {};
  const auto replaced = [](World& world) { world.replace(); };
  const auto converted = [](World& world) { world.convert(); };
  const auto replacedAndDeleted = [](World& world) { world.replace(), fs::remove(world.photo.path()); };
  const auto convertedAndDeleted = [](World& world) { world.convert(), fs::remove(world.photo.path()); };
  const auto finallyReplaced = [](World& world) { world.replace(), world.isFinal = true; };
  const auto inPlace = [](World& world) { transact(world, std::nullopt); };
  const auto refused = [](World& world) { transact(world, std::nullopt, refuse); };
  const auto beside = [](World& world) { transact(world, world.png); };
  const auto remove = [](World& world) { world.store.deleteRecord(*world.record); };
  const auto neglected = [=](World& world) { neglect->make(world); };
  const auto maintain = [=](World& world) { neglect->sweep(world); };
  const auto badlyKept = [=](const World& world, bool swept) { return neglect->wrong(world, swept); };
  using Paths = std::vector<const URL World::*>;
  const Paths photo{&World::photo}, both{&World::photo, &World::png};
  using enum Operation::Exchanges;
  return {
      {"Replacement", nothing, inPlace, {old, ""}, {smaller, ""}, always, photo},
      {"RollBack", nothing, refused, {old, ""}, {smaller, ""}, always, photo, {}, true},
      {"Conversion", nothing, beside, {old, ""}, {old, smaller}, afterASave, both},
      {"Restore", replaced, restore, {smaller, ""}, {old, ""}, always, photo},
      {"RestoreOfDeleted", replacedAndDeleted, restore, {"", ""}, {old, ""}, never, photo},
      {"RestoreOfConversion", converted, restore, {old, smaller}, {old, ""}, afterASave, both},
      {"RestoreOfDeletedConversion",
       convertedAndDeleted,
       restore,
       {"", smaller},
       {old, ""},
       afterASave,
       both},
      {"Deletion", finallyReplaced, remove, {smaller, ""}, {smaller, ""}, never},
      {"Maintenance", neglected, maintain, {smaller, ""}, {smaller, ""}, never, {}, badlyKept},
  };
}

}  // namespace

const std::vector<Operation>& operations() {
  static const auto all = makeOperations();
  return all;
}

}  // namespace tidewell::test
