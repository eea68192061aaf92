// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// What the units of a HEVC stream (ITU-T H.265, "NAL units") say at their start.
namespace tidewell::hevc {

struct Unit {
  int type = 0;
  int layer = 0;
  bool isSlice = false;
  bool startsPicture = false;  ///< the first slice of a picture
};

/// How many bytes of a unit `unitAt` reads.
constexpr std::size_t unitHead = 3;
/// Nothing when fewer bytes than its header are there.
std::optional<Unit> unitAt(std::string_view head);

constexpr int sequenceParameterSet = 33;
/// More than the part of a sequence parameter set that `sequence` reads can take.
constexpr std::size_t parameterSetHead = 2048;

struct Sequence {
  std::uint64_t codedPixels = 0;  ///< what a decoder reserves memory for
  std::uint64_t width = 0;        ///< of the part that is shown
  std::uint64_t height = 0;
  struct Colors {  ///< code points of ITU-T H.273
    int primaries;
    int transfer;
  };
  std::optional<Colors> colors;
};

/// By the start of a sequence parameter set, its header included; nothing for one that makes no sense.
std::optional<Sequence> sequence(std::string_view unit);

}  // namespace tidewell::hevc
