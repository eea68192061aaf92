// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QLabel>
#include <QTest>
#include <QTreeView>

#include "TidewellDesktop/explain/AttemptsPlot.h"
#include "TidewellDesktop/explain/ExplainPage.h"
#include "support/TemporaryFolder.h"

namespace tidewell::desktop {
namespace {

constexpr const char* report =
    R"({"source":"/p/a.jpg","startedAt":"2025-03-01T08:15:30Z","outcome":"replaced",
  "selectedEncoder":"B","attempts":[
  {"encoder":"A","status":"rejected","reason":"quality_below_threshold","bytes":1000,"score":60.25},
  {"encoder":"B","status":"accepted","reason":"validated","bytes":2000,"score":86.5},
  {"encoder":"C","status":"accepted","reason":"validated","bytes":3000,"score":91},
  {"encoder":"D","status":"error","reason":"component_error","detail":"exit 1"}]})";

TEST(AttemptsModel, SaysEveryAttemptAndThePlotWhatItShows) {
  AttemptsModel model;
  const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  AttemptsPlot plot(model);
  plot.resize(400, 300);
  plot.grab();  // of nothing
  EXPECT_EQ(plot.accessibleDescription().toStdString(), "0 attempts were measured.");
  model.setReport(Report::parse(report));
  std::string table;
  for (int row = 0; row < model.rowCount(); ++row) {
    for (int column = 0; column < model.columnCount(); ++column) {
      table += model.index(row, column).data().toString().toStdString() + (column < 3 ? '|' : '\n');
    }
  }
  EXPECT_EQ(table,
            "A|1.0 kB|60.2|its loss could be seen: the score is too low\n"
            "B|2.0 kB|86.5|taken\nC|3.0 kB|91.0|passed, another was smaller\nD|||the tool failed (exit 1)\n");
  EXPECT_EQ(plot.accessibleDescription().toStdString(),
            "3 attempts were measured. B: 2.0 kB, score 86.5, taken Scores up to 60.2 were too low.");
  const QImage drawn = plot.grab().toImage();
  EXPECT_GT(std::ranges::count_if(std::vector<int>{0, 1, 2, 3},
                                  [&](int row) {
                                    plot.setCurrent(row);
                                    return plot.grab().toImage() != drawn;
                                  }),
            2);  // each of the three points is there to be marked
}

TEST(ExplainPage, ShowsTheReportBeforeAMomentOrThatNoneIsLeft) {
  const test::TemporaryFolder folder;
  const UndoStore store(folder / "Undo");
  const auto at = [](double seconds) { return std::to_string(static_cast<long long>(seconds * 1000)) + "-"; };
  folder.write("CompressionDiagnostics/" + at(1000) + "A.json", report);
  folder.write("CompressionDiagnostics/" + at(2000) + "B.json",
               std::string(report).substr(0, 300));  // cut off
  ExplainPage page(store);
  page.show();
  const auto* table = page.findChild<QTreeView*>();
  const struct {
    const char* path;
    double before;
    bool isFound;
  } rows[] = {{"/p/a.jpg", 3000, true},
              {"/p/a.jpg", 999, false},
              {"/p/b.jpg", 3000, false},
              {"/p/a.jpg", 1000, true}};
  const auto isSaid = [&] {
    return std::ranges::any_of(page.findChildren<QLabel*>(), [](const QLabel* label) {
      return label->isVisible() && label->text().contains(QStringLiteral("No report on"));
    });
  };
  for (const auto& [path, before, isFound] : rows) {
    page.open(URL::file(path), Date::since1970(before));
    EXPECT_FALSE(table->isVisible() || isSaid()) << "of the question before";
    EXPECT_TRUE(QTest::qWaitFor([&] { return table->isVisible() || isSaid(); })) << path << before;
    EXPECT_EQ(table->isVisible(), isFound) << path << before;
    EXPECT_NE(isSaid(), isFound) << path << before;
  }
  page.open(URL::file("/p/" + std::string(200, 'x') + ".jpg"), Date::since1970(1));
  QTest::qWait(100);
  EXPECT_LT(page.minimumSizeHint().width(), 900) << "windows do not grow with names";
}

}  // namespace
}  // namespace tidewell::desktop
