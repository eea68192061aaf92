// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/diagnostics/CompressionTrace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <thread>

#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/platform/Files.h"
#include "support/Faults.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using nlohmann::json;

std::vector<URL> filesIn(const URL& directory) {
  return files::contentsOfDirectory(directory);
}

TEST(CompressionTrace, WritesAReportWithoutWhatIsAbsent) {
  const test::TemporaryFolder folder;
  const CompressionTrace trace(URL::file("/a/\xFF.jpg"), Date::since1970(1700000000.4));
  ReportDirectory directory(folder / "reports/deep");
  trace.save(directory);
  const auto reports = filesIn(folder / "reports/deep");
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_TRUE(reports[0].lastPathComponent().starts_with("1700000000400-"));
  const json expected = {{"attempts", json::array()},
                         {"outcome", "failed"},
                         {"source", "/a/\uFFFD.jpg"},
                         {"startedAt", "2023-11-14T22:13:20Z"}};
  const std::string text = files::read(reports[0]);
  EXPECT_EQ(json::parse(text), expected);
  for (const auto& [key, value] : expected.items()) {  // people read it: one member per line
    EXPECT_NE(text.find("\n  \"" + key + "\": " + value.dump()), std::string::npos) << text;
  }
}

TEST(CompressionTrace, RecordsAttemptsWithinItsLimits) {
  const test::TemporaryFolder folder;
  CompressionTrace trace(URL::file("/a.jpg"));
  trace.outcome = "replaced";
  trace.selectedEncoder = "Jpegli q72 420";
  trace.profile = "Display P3";
  const CandidateDiagnostic accepted{"Jpegli q72 420", "accepted", "validated", 1234, 71.0625, std::nullopt};
  std::string longDetail;
  for (int i = 0; i < 1200; ++i) longDetail += "潮";
  trace.append(accepted);
  trace.append({"candidate", "error", "component_error", std::nullopt, std::nullopt, longDetail});
  for (int i = 0; i < 200; ++i) trace.append(accepted);
  EXPECT_EQ(trace.events().size(), 100U);
  EXPECT_EQ(trace.events()[1].detail->size(), 3000U);

  ReportDirectory directory(folder / "reports");
  {
    test::Faults faults;
    faults.fail(1, EIO, false, test::FileCall::flushes);
    trace.save(directory);
    EXPECT_FALSE(faults.happened()) << "a file waited for the disk, for a report";
  }
  const auto reports = filesIn(folder / "reports");
  ASSERT_EQ(reports.size(), 1U);
  const json report = json::parse(files::read(reports[0]));
  EXPECT_EQ(report.at("profile"), "Display P3");
  EXPECT_EQ(report.at("attempts").size(), 100U);
  EXPECT_EQ(report.at("attempts")[0].get<CandidateDiagnostic>(), accepted);
  EXPECT_FALSE(report.at("attempts")[1].contains("bytes") || report.at("attempts")[1].contains("score"));
}

TEST(CompressionTrace, KeepsTheNewestHundredReports) {
  const test::TemporaryFolder folder;
  for (int i = 0; i < 104; ++i) {
    folder.write("16000000000" + std::to_string(100 + i) + "-AB-cd.json", "{}");
  }
  const std::vector<std::string> strangers = {"notes.json", "1-xyz.json",     "-AB.json",
                                              "1-.json",    "12-AB.json.bak", "1.json"};
  for (const auto& stranger : strangers) folder.write(stranger, "");
  ReportDirectory directory(folder.url());
  const auto save = [&](double second) {
    CompressionTrace(URL::file("/a.jpg"), Date::since1970(second)).save(directory);
    EXPECT_EQ(filesIn(folder.url()).size(), 100U + strangers.size());
  };
  save(1700000000);
  for (const auto& stranger : strangers) EXPECT_TRUE(files::exists(folder / stranger)) << stranger;
  EXPECT_FALSE(files::exists(folder / "16000000000104-AB-cd.json"));
  EXPECT_TRUE(files::exists(folder / "16000000000105-AB-cd.json"));
  save(1700000001);
  EXPECT_FALSE(files::exists(folder / "16000000000105-AB-cd.json"));
  for (int i = 0; i < 3; ++i) folder.write("170000000000" + std::to_string(i) + "-AB.json", "{}");
  std::this_thread::sleep_for(ReportDirectory::listingLifetime);
  save(1700000002);
}

TEST(CompressionTrace, NeverFails) {
  const test::TemporaryFolder folder;
  folder.write("file", "x");
  ReportDirectory directory(folder / "file/reports");
  CompressionTrace(URL::file("/a.jpg")).save(directory);
  EXPECT_EQ(files::read(folder / "file"), "x");
}

}  // namespace
}  // namespace tidewell
