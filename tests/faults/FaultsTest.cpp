// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// Runs what the kit does to users' files over and over and lets something go wrong at one file call after the
// other: an error, the end of the process, another program's save, a power loss.

#include "support/Faults.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <tuple>

#include "CompressionKit/undo/FolderSweep.h"
#include "faults/Operations.h"

namespace tidewell {
namespace {

using test::Faults;
using test::FileCall;
using test::Operation;
using test::VolatileDisk;
using test::World;

/// What a fault does, beyond the point at which it happens.
enum class Kind {
  error,    ///< of one call
  failing,  ///< of all calls from there on
  save,     ///< by another program
  damage,   ///< to the backups
  end,      ///< of the process
  powerLoss,
};

struct Attempt {
  const Operation& operation;
  Kind kind;
  int point;
  bool threw = false;
  bool reached = false;
  std::string where = {};
  std::string next = {};  ///< the first call afterwards that names the file somebody saved
};

std::size_t points = 0;
constexpr int refused = 43;  ///< exit status of a child whose operation threw

/// The sanitizers, which make everything slow, have seen all code after a few points.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int stride = 7;
#else
constexpr int stride = 1;
#endif

/// What one error does to an operation: nothing, or all of it.
std::string wrongOutcome(const Attempt& attempt, const World& world) {
  const Operation& operation = attempt.operation;
  const test::Names found{world.at(world.photo).value_or(""), world.at(world.png).value_or("")};
  if (world.somebodySaved()) {
    // Right before a file is moved no look helps: nothing is lost, and whoever asked must hear of it.
    // But without an exchange nothing sees what is overwritten.
    const std::string& next = attempt.next;
    const bool isMoved = (next.ends_with(" onto") && next != "rename onto") || next.ends_with(" from");
    return isMoved && !attempt.threw && found != operation.after ? "called success" : "";
  }
  if (attempt.kind != Kind::error && attempt.reached) return "";
  if (!attempt.threw) return found == operation.after ? "" : "said to be done";
  // A restore may be asked again, also for the second of two files; where a roll-back fails, the record
  // stays.
  if (world.record || (operation.rollsBack && attempt.reached)) return "";
  if (found != operation.before) return "not rolled back";
  return world.restorable() ? "a record of nothing stays" : "";
}

/// The way back, where our bytes stand; where somebody else's do, they stay.
std::string wrongRestore(const World& world) {
  const auto record = world.restorable();
  if (!record || world.isFinal) return "";
  const auto photo = world.at(world.photo), png = world.at(world.png);
  const bool isOurs = (record->convertedPath ? png : photo) == World::newBytes &&
                      (!record->convertedPath || !photo || photo == World::oldBytes);
  try {
    world.store.restore(*record);
    if (world.at(world.photo) != World::oldBytes) return "restored to something else";
    if (isOurs && (world.at(world.png) || world.restorable())) return "half restored";
  } catch (const std::exception& error) {
    if (isOurs) return std::string("cannot be restored: ") + error.what();
    if (world.at(world.photo) != photo || world.at(world.png) != png)
      return "a refused restore changed a file";
  }
  return "";
}

std::string wrongLater(const Attempt& attempt, const World& world) {
  const auto sweep = [&]() -> std::string {
    world.sweep(Date::now().adding(2.0 * 86400));
    if (attempt.operation.alsoWrong) {
      if (auto wrong = attempt.operation.alsoWrong(world, true); !wrong.empty()) return wrong;
    }
    const std::string found = world.leftOvers();
    return found.empty() ? "" : "left: " + found;
  };
  // In either order, for the one must not need the other.
  if (attempt.point % 2 == 0) {
    if (auto wrong = wrongRestore(world); !wrong.empty()) return wrong;
    return sweep();
  }
  if (auto wrong = sweep(); !wrong.empty()) return wrong;
  return wrongRestore(world);
}

std::string whatIsWrong(const Attempt& attempt, const World& world) {
  const Operation& operation = attempt.operation;
  if (attempt.kind == Kind::damage) {
    const auto photo = world.at(world.photo).value_or("");
    return photo == operation.before.photo || photo == operation.after.photo ? "" : "photo is " + photo;
  }
  const auto now = [&](bool worksMayHide) {
    std::string wrong = world.wrong({operation.before.photo, operation.after.photo},
                                    {operation.before.png, operation.after.png}, worksMayHide);
    if (wrong.empty() && operation.alsoWrong) wrong = operation.alsoWrong(world, false);
    return wrong;
  };
  const bool isCrash =
      attempt.kind == Kind::failing || attempt.kind == Kind::end || attempt.kind == Kind::powerLoss;
  if (auto wrong = now(isCrash || operation.alsoWrong); !wrong.empty()) return wrong;
  if (auto wrong = wrongOutcome(attempt, world); !wrong.empty()) return wrong;
  if (isCrash || operation.alsoWrong) {  // the next run in the folder
    sweepFolder(world.photos);
    if (auto wrong = now(false); !wrong.empty()) return wrong + ", after a sweep";
  }
  return wrongLater(attempt, world);
}

class EveryPoint : public testing::TestWithParam<Operation> {
 protected:
  using Arm = std::function<void(Faults&, World&, int point)>;

  using Exchanges = Operation::Exchanges;

  /// Goes through all points, with an exchange and where `enough` says so without. False when the operation
  /// met none.
  bool drive(const std::string& mode, Kind kind, const Arm& arm, Exchanges enough = Exchanges::always) {
    const bool met = goThrough(mode, kind, arm);
    if (GetParam().exchanges < enough) return met;
    exchange_ = false;
    const bool metWithout = goThrough(mode + ", without exchange", kind, arm);
    exchange_ = true;
    return met || metWithout;
  }
  bool hasExchange() const { return exchange_; }

 private:
  /// Runs the operation with the fault at point 1, 2, … until it ends without meeting it.
  bool goThrough(const std::string& mode, Kind kind, const Arm& arm) const {
    int failures = 0;
    for (int point = 1;; point += stride) {
      Attempt attempt{.operation = GetParam(), .kind = kind, .point = point};
      World world;
      attempt.operation.prepare(world);
      if (kind == Kind::end || kind == Kind::powerLoss) {
        const int status = Faults::runInChild([&] {
          run(attempt, world, arm);
          if (attempt.threw) Faults::leave(refused);
        });
        attempt.reached = status == Faults::ended;
        attempt.threw = status == refused;
        world.recall();
      } else {
        run(attempt, world, arm);
      }
      const std::string wrong = whatIsWrong(attempt, world);
      EXPECT_EQ(wrong, "") << mode << ", point " << point << " " << attempt.where
                           << (attempt.threw ? ", refused" : "");
      if (!attempt.reached) return point > 1;
      ++points;
      if (!wrong.empty() && ++failures == 4) return false;
    }
  }

  void run(Attempt& attempt, World& world, const Arm& arm) const {
    Faults faults;
    if (!exchange_) faults.refuseExchange();
    arm(faults, world, attempt.point);
    try {
      attempt.operation.run(world);
    } catch (const std::exception&) {
      attempt.threw = true;
    }
    attempt.reached = faults.happened();
    attempt.where = faults.where();
    attempt.next = faults.firstAfterwards();
    // Without an exchange a save right after the last look cannot be seen any more.
    if (!exchange_ && attempt.next == "rename onto") world.giveUpWorks();
  }

  bool exchange_ = true;
};

TEST_P(EveryPoint, MayFail) {
  for (const auto& [name, code] : {std::pair("EIO", EIO), {"ENOSPC", ENOSPC}, {"EINTR", EINTR}}) {
    drive(name, Kind::error, [code = code](Faults& faults, World&, int point) { faults.fail(point, code); });
  }
  for (const auto& [name, code] : {std::pair("broken disk", EIO), {"full disk", ENOSPC}}) {
    drive(name, Kind::failing,
          [code = code](Faults& faults, World&, int point) { faults.fail(point, code, true); });
  }
}

TEST_P(EveryPoint, MayBeTheLast) {
  drive("end of the process", Kind::end, [](Faults& faults, World&, int point) { faults.end(point); });
}

TEST_P(EveryPoint, MayBeFollowedByAPowerLoss) {
  using Lost = VolatileDisk::Lost;
  for (const auto& [name, lost] : {std::pair("all is lost", Lost::everything),
                                   {"data is lost", Lost::data},
                                   {"names are lost", Lost::names}}) {
    std::unique_ptr<VolatileDisk> disk;
    drive(name, Kind::powerLoss, [&, lost = lost](Faults& faults, World& world, int point) {
      disk = std::make_unique<VolatileDisk>(world.folder.url().path());
      faults.losePower(point, *disk, lost);
    });
  }
}

TEST_P(EveryPoint, MayFollowTheLossOfTheBackups) {
  drive("damaged backups", Kind::damage, [](Faults& faults, World& world, int point) {
    faults.at(point, [&world] { world.damageBackups(); });
  });
}

TEST_P(EveryPoint, MayFollowAnotherProgramsSave) {
  using Save = World::Save;
  for (const URL World::*name : GetParam().saves) {
    for (const auto& [how, ways] : {std::pair("rename", std::vector{Save::rename}),
                                    {"append", {Save::append}},
                                    {"unlink", {Save::unlink}},
                                    {"unlink, then write", {Save::unlink, Save::write}},
                                    {"rename twice", {Save::rename, Save::rename}}}) {
      const auto arm = [&, ways = ways](Faults& faults, World& world, int point) {
        faults.watch((world.*name).path());
        faults.at(point, [&world, name, way = ways.front()] { world.save(world.*name, way); });
        if (ways.size() > 1)
          faults.then().at(1, [&world, name, way = ways[1]] { world.save(world.*name, way); });
      };
      drive(how, Kind::save, arm, Exchanges::afterASave);
    }
  }
}

/// The save that no last look can see, right before a file is moved, and then an error or a crash.
TEST_P(EveryPoint, MayBeTheLastAfterASave) {
  for (const URL World::*name : GetParam().saves) {
    for (int move = 1, goesOn = 1; goesOn != 0; ++move) {
      const auto arm = [&](Faults& faults, World& world) -> Faults& {
        const auto save = [&, name] {
          const URL& url = world.*name;
          // Without an exchange nothing sees a save right before the file is overwritten.
          const bool isUnseen = !hasExchange() && faults.where().starts_with("rename ") &&
                                faults.where().ends_with(" -> " + url.path());
          if (!isUnseen) world.save(url, World::Save::rename);
        };
        return faults.at(move, save, FileCall::moves).then();
      };
      const std::string mode = "save before move " + std::to_string(move);
      const auto end = [&](Faults& faults, World& world, int point) { arm(faults, world).end(point); };
      goesOn = drive(mode + ", end", Kind::end, end, Exchanges::afterASave);
      for (const auto& [what, code, lasting] :
           {std::tuple(", error", EIO, false), {", broken disk", EIO, true}, {", full disk", ENOSPC, true}}) {
        const auto fail = [&, code = code, lasting = lasting](Faults& faults, World& world, int point) {
          arm(faults, world).fail(point, code, lasting);
        };
        drive(mode + what, Kind::failing, fail, Exchanges::afterASave);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, EveryPoint, testing::ValuesIn(test::operations()),
                         [](const auto& given) { return std::string(given.param.name); });

/// The fastest file system at hand, and the totals at the end.
class Totals : public testing::Environment {
 public:
  void SetUp() override {
    if (access("/dev/shm", W_OK) == 0) place_.emplace("TMPDIR", "/dev/shm");
  }
  void TearDown() override {
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
    std::printf("%zu fault points in %.1f s\n", points, seconds.count());
  }

 private:
  std::optional<test::ScopedEnvironment> place_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

[[maybe_unused]] const auto* const totals = testing::AddGlobalTestEnvironment(new Totals);

}  // namespace
}  // namespace tidewell
