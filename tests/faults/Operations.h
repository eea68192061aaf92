// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "faults/World.h"

namespace tidewell::test {

/// What stands under the two names; "" for nothing.
struct Names {
  std::string photo, png;
  bool operator==(const Names&) const = default;
};

/// Something that the kit does, with what is seen of it from outside: one state or the other, never a third.
struct Operation {
  const char* name;
  std::function<void(World&)> prepare;  ///< without faults
  std::function<void(World&)> run;
  Names before, after;
  enum class Exchanges { never, afterASave, always } exchanges;  ///< files, where the file system can
  std::vector<const URL World::*> saves = {};                    ///< where other programs interfere
  std::function<std::string(const World&, bool swept)> alsoWrong = {};
  bool rollsBack = false;  ///< without faults it ends as it began, with an error
};

const std::vector<Operation>& operations();

}  // namespace tidewell::test
