#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/undo/FolderSweep.h"
#include "CompressionKit/undo/ReplacementTransaction.h"
#include "CompressionKit/undo/WorkingDirectory.h"
#include "faults/Operations.h"
#include "support/Faults.h"

namespace tidewell {
namespace {

using test::Faults;
using test::FileCall;
using test::World;

void rollBack(const World& world) {
  const WorkingDirectory working(world.photos);
  const URL candidate = working.url().appending("candidate.jpg");
  world.write(candidate, World::newBytes);
  ReplacementTransaction transaction(world.store, {.original = world.photo,
                                                   .originalHash = hash(world.photo),
                                                   .candidate = candidate,
                                                   .sessionID = world.session});
  transaction.swap();
  transaction.verify([](const URL&) { throw CompressionError::validationFailed(); });
}

class DamagedBackup : public testing::TestWithParam<bool> {};

/// The disk loses the backup's bytes at one file call after the other of a roll-back and of a restore.
TEST_P(DamagedBackup, NeverTakesThePhotosPlace) {
  for (const bool restores : {false, true}) {
    for (int point = 1;; ++point) {
      World world;
      if (restores) world.replace();
      Faults faults;
      if (!GetParam()) faults.refuseExchange();
      faults.at(point, [&] {
        for (const auto& record : world.store.records()) {
          const URL backup = world.store.backupURL(record);
          if (files::exists(backup)) world.write(backup, std::string(std::strlen(World::oldBytes), 'x'));
        }
      });
      try {
        restores ? world.store.restore(*world.record) : rollBack(world);
      } catch (const std::exception&) {
      }
      const auto photo = world.at(world.photo);
      EXPECT_TRUE(photo == World::oldBytes || photo == World::newBytes)
          << (restores ? "restore, " : "roll-back, ") << point << " " << faults.where();
      if (!faults.happened()) break;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, DamagedBackup, testing::Bool(),
                         [](const auto& given) { return given.param ? "Exchange" : "Rename"; });

/// Another program saves right before a file is moved from or onto its name, where no look helps: nothing is
/// lost, which other tests see, and whoever asked must hear of it.
TEST(Interference, IsNeverCalledSuccess) {
  for (const auto& operation : test::operations()) {
    for (const URL World::*name : operation.saves) {
      for (int move = 1, happened = 1; happened != 0; ++move) {
        World world;
        operation.prepare(world);
        Faults faults;
        faults.at(
            move, [&] { world.save(world.*name, World::Save::rename); }, FileCall::moves);
        bool threw = false;
        try {
          operation.run(world);
        } catch (const std::exception&) {
          threw = true;
        }
        happened = faults.happened();
        if (faults.where().find((world.*name).path()) == std::string::npos) continue;
        const bool isDone = world.at(world.photo).value_or("") == operation.after.photo &&
                            world.at(world.png).value_or("") == operation.after.png;
        EXPECT_TRUE(threw || isDone) << operation.name << " " << move << " " << faults.where();
      }
    }
  }
}

/// And then one call fails, that which would tell whose bytes were displaced for example.
TEST(Interference, SurvivesAnErrorRightAfterIt) {
  for (const auto& operation : test::operations()) {
    for (const URL World::*name : operation.saves) {
      for (int move = 1, point = 0; point != 1; ++move) {
        for (point = 1;; ++point) {
          World world;
          operation.prepare(world);
          Faults faults;
          faults.at(
              move, [&] { world.save(world.*name, World::Save::rename); }, FileCall::moves);
          faults.then().fail(point, EIO);
          try {
            operation.run(world);
          } catch (const std::exception&) {
          }
          if (!faults.happened()) break;
          sweepFolder(world.photos);
          EXPECT_EQ(world.wrong({operation.before.photo, operation.after.photo},
                                {operation.before.png, operation.after.png}, false),
                    "")
              << operation.name << " " << move << " " << point << " " << faults.where();
        }
      }
    }
  }
}

}  // namespace
}  // namespace tidewell
