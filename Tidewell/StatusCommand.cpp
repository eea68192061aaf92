// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/batch/Batch.h"
#include "CompressionKit/batch/History.h"
#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

struct Tool {
  std::string name;
  std::string version;  ///< empty when unknown
  bool isThere = false;
};

std::vector<Tool> tools() {
  const ToolRunner runner(locations::toolsDirectory());
  std::vector<Tool> found;
  constexpr std::string_view names[] = {"cjpegli", "pngquant", "oxipng", "gifsicle",
                                        QualityAssessment::metricTool};
  for (const auto name : names) {
    found.push_back({.name = std::string(name), .version = "", .isThere = runner.has(name)});
  }
  try {
    const auto manifest = nlohmann::json::parse(files::read(runner.directory().appending("tools.json")));
    for (const auto& entry : manifest.at("tools")) {
      for (auto& tool : found) {
        if (entry.at("name") == tool.name) entry.at("version").get_to(tool.version);
      }
    }
  } catch (const nlohmann::json::exception&) {
  } catch (const FileError&) {
  }
  return found;
}

struct Totals {
  std::int64_t records = 0, restorable = 0;
  std::int64_t backupBytes = 0;
  std::int64_t savedBytes = 0;  ///< by every replacement on record
};

Totals totals(const History& history) {
  Totals sum;
  for (const auto& entry : history.entries()) {
    const UndoRecord& record = entry.record;
    ++sum.records;
    if (record.state == UndoRecord::State::committed) sum.savedBytes += savedBytes(record);
    if (history.state(entry) == History::State::restorable) ++sum.restorable;
    try {
      sum.backupBytes += files::resourceValues(history.store().backupURL(record)).bytes;
    } catch (const FileError&) {  // gone
    }
  }
  return sum;
}

void printJSON(const UndoStore& store, const Totals& sum, Terminal& terminal) {
  nlohmann::ordered_json line;
  putPath(line, "store", store.root().path());
  line["records"] = sum.records;
  line["restorable"] = sum.restorable;
  line["backupBytes"] = sum.backupBytes;
  line["savedBytes"] = sum.savedBytes;
  const CompressionEngine::Thresholds floors;
  line["limits"] = {
      {"backupBytes", maximumBackupBytes},
      {"backupSeconds", UndoStore::backupRetention},
      {"jobs", CompressionQueue::recommendedConcurrentTasks()},
      {"minimumScores", {{"jpeg", floors.quality}, {"png", floors.pngQuality}, {"gif", floors.gifQuality}}}};
  line["tools"] = nlohmann::ordered_json::array();
  for (const auto& [name, version, isThere] : tools()) {
    nlohmann::ordered_json tool = {{"name", name}, {"available", isThere}};
    if (!version.empty()) tool["version"] = version;
    line["tools"].push_back(std::move(tool));
  }
  terminal.print(line.dump());
}

void printText(const UndoStore& store, const Totals& sum, Terminal& terminal) {
  const CompressionEngine::Thresholds floors;
  std::vector<Fact> facts{
      {_("Store"), printable(store.root().path())},
      {_("Backups"),
       filled(_("{1} of at most {2}, kept for {3}"), {sizeText(sum.backupBytes), sizeText(maximumBackupBytes),
                                                      durationText(UndoStore::backupRetention)})},
      {_("Records"),
       filled(_("{1}, {2} can be restored"), {std::to_string(sum.records), std::to_string(sum.restorable)})},
      {_("Saved"), sizeText(sum.savedBytes)},
      {_("Lowest scores"),
       filled(_("JPEG {1}, PNG {2}, GIF {3}"),
              {scoreText(floors.quality), scoreText(floors.pngQuality), scoreText(floors.gifQuality)})},
      {_("Files at once"), std::to_string(CompressionQueue::recommendedConcurrentTasks())}};
  for (const auto& [name, version, isThere] : tools()) {
    facts.emplace_back(name, !isThere ? _("missing") : version.empty() ? _("version unknown") : version);
  }
  printFacts(facts, terminal);
}

}  // namespace

int runStatus(const StatusOptions& options, Terminal& terminal) {
  const History history = readHistory(terminal);
  const Totals sum = totals(history);
  options.json ? printJSON(history.store(), sum, terminal) : printText(history.store(), sum, terminal);
  return done;
}

}  // namespace tidewell
