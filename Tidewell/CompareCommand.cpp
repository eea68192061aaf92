// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/batch/Comparison.h"
#include "CompressionKit/batch/History.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Signals.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/MetadataNames.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

std::string sideText(const std::string& name, const Comparison::Side& side) {
  std::string text =
      filled(_("{1}, {2}, {3} × {4} pixels"),
             {name, sizeText(side.bytes), std::to_string(side.width), std::to_string(side.height)});
  if (side.frames > 1) text += ", " + counted("{1} frame", "{1} frames", side.frames);
  return text + ", " + (side.profile ? printable(*side.profile) : _("no colour profile"));
}

std::string regionText(const Comparison::Region& region) {
  char difference[32];
  std::snprintf(difference, sizeof difference, "%.2f", region.difference);
  return filled(_("{1} × {2} pixels at {3}, {4}: differs by {5} of 255 on average"),
                {std::to_string(region.width), std::to_string(region.height), std::to_string(region.x),
                 std::to_string(region.y), difference});
}

struct Named {
  ComparedFiles files;
  std::string original, result;  ///< to be shown
};

void print(const Named& named, const Comparison& found, const std::optional<std::string>& picture,
           Terminal& terminal) {
  const auto &original = found.original, &result = found.result;
  std::vector<Fact> facts{
      {_("Original"), sideText(named.original, original)},
      {_("Result"), sideText(named.result, result)},
      {_("Saved"), savedText(original.bytes, result.bytes)},
      {_("Score"), found.score ? filled(_("{1} (100 is identical)"), {scoreText(*found.score)})
                               : _("none: they have no common size or frames")},
      {_("Metadata that went"), metadataText(found.lostMetadata)}};
  if (found.worst) facts.emplace_back(_("Worst region"), regionText(*found.worst));
  if (picture) {
    facts.emplace_back(_("Picture"), found.amplification > 0
                                         ? filled(_("{1}, the difference times {2}"),
                                                  {printable(*picture), std::to_string(found.amplification)})
                                         : _("none: they have no common size"));
  }
  printFacts(facts, terminal);
}

/// The files of a record, where both are what it says; else the status to end with.
std::optional<ExitStatus> take(const UndoStore& store, const UndoRecord& record, Named& named,
                               Terminal& terminal) {
  named.original = named.result = printable(record.originalPath);
  if (record.convertedPath) named.result = printable(*record.convertedPath);
  if (!files::exists(store.backupURL(record))) {
    terminal.complain(filled(_("The backup of “{1}” is gone"), {named.original}));
    return gone;
  }
  named.files = ComparedFiles::of(store, record);
  const std::string found = hash(named.files.result);
  if (found == record.replacementHash) return std::nullopt;
  const bool isOriginal = found == record.originalHash;
  terminal.complain(filled(isOriginal ? _("“{1}” is the original; there is nothing to compare")
                                      : _("“{1}” was edited since and cannot be compared"),
                           {named.result}));
  return isOriginal ? done : editedSince;
}

}  // namespace

int runCompare(const CompareOptions& options, Terminal& terminal) {
  Named named;
  const std::string& first = options.selectors.at(0);
  if (options.selectors.size() > 1) {
    const std::string& second = options.selectors[1];
    named = {
        {.original = URL::file(first), .result = URL::file(second)}, printable(first), printable(second)};
  } else {
    const History history = readHistory(terminal);
    try {
      const auto status = take(history.store(), history.selectOne(first).record, named, terminal);
      if (status) return *status;
    } catch (const SelectionError& error) {
      return tellUnselected(first, error, terminal);
    }
  }
  const auto picture = options.output ? std::optional(URL::file(*options.output)) : std::nullopt;
  const TerminationSignals signals;
  StopSource stop;
  std::optional<Comparison> found;
  try {
    const SignalWatch watch(signals, [&stop] { stop.requestStop(); });
    found = compare(named.files, ToolRunner(locations::toolsDirectory(), stop.token()), picture);
  } catch (const Interrupted&) {
    return 128 + signals.takeAll();
  }
  print(named, *found, options.output, terminal);
  return done;
}

}  // namespace tidewell
