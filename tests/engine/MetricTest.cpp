// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/Metric.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/Script.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::Pixel;
using test::Raster;
using test::TemporaryFolder;

TEST(QualityAssessment, ReadsOneFiniteNumber) {
  for (const auto& [output, score] :
       {std::pair("  85.123\n", 85.123), {"-3.5", -3.5}, {"100", 100}, {"\t7e1\r\n", 70}})
    EXPECT_EQ(QualityAssessment::parsedScore(output), score);
  for (const char* bad : {"", " \n", "nan", "inf", "-inf", "score 3", "3 4", "3,5", "0x10", "1e999"})
    EXPECT_THROW(QualityAssessment::parsedScore(bad), CompressionError) << bad;
}

class TwoViews : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"work", "shown", "original"}) files::createDirectory(folder_ / name);
    test::writePNGFile(image_, raster_);
    views_ = views::overviewAndDetail(*ImageSource::open(image_), 0, 2048, 768);
    original_ = QualityAssessment::writeViews(views_, folder_ / "original", "0");
  }

  /// Stands in for the metric: `overview` and `detail` are what it does for each view.
  double score(const std::string& overview, const std::string& detail, const StopToken& stop = {}) {
    test::writeScript(folder_, "tools/ssimulacra2",
                      "cp \"$1\" \"$2\" " + (folder_ / "shown").path() + R"(; case "$1 $2" in
                         *overview-0.png*overview-1.png) )" +
                          overview + R"(;;
                         *detail-0.png*detail-1.png) )" +
                          detail + R"(;;
                       esac)");
    return QualityAssessment::score(original_, views_, folder_ / "work", ToolRunner(folder_ / "tools", stop));
  }

  const TemporaryFolder folder_;
  const URL image_ = folder_ / "a.png";
  const Raster raster_ = test::photoRaster(2100, 790);
  views::Pair views_;
  QualityAssessment::ViewFiles original_;
};

TEST_F(TwoViews, TheWorseOneCounts) {
  EXPECT_EQ(score("echo 84.0", "echo 71.25"), 71.25);
  EXPECT_EQ(score("echo 61.5", "echo 71.25"), 61.5);
  const auto overview = ImageSource::open(folder_ / "shown/overview-0.png")->properties(0);
  EXPECT_EQ(std::pair(overview.width, overview.height), std::pair(std::int64_t{2048}, std::int64_t{770}));
  const auto detail = test::decoded(folder_ / "shown/detail-1.png");
  EXPECT_EQ(detail.size(), 768U * 768 * 4);
  const Pixel& corner = raster_.at((2100 - 768) / 2, (790 - 768) / 2);
  EXPECT_TRUE(std::equal(corner.begin(), corner.end(), detail.begin()));
  EXPECT_TRUE(files::contentsOfDirectory(folder_ / "work").empty()) << "no scratch directory stays";
}

TEST_F(TwoViews, RunSideBySideAndEndTogether) {
  // Each waits for the other to have begun.
  const std::string meeting = (folder_ / "meeting").path();
  const auto meet = [&](const char* me, const char* other) {
    return "touch " + meeting + me + "; while [ ! -e " + meeting + other + " ]; do sleep 0.01; done; echo 80";
  };
  EXPECT_EQ(score(meet("1", "2"), meet("2", "1")), 80);

  // The overview's error wins, whichever comes first, and the other run is ended for it: it never would be.
  const auto failure = [&](const std::string& overview, const std::string& detail) {
    return test::textOf([&] { score(overview, detail); });
  };
  EXPECT_NE(failure("sleep 0.1; echo over >&2; exit 3", "echo no").find("over"), std::string::npos);
  EXPECT_NE(failure("echo over >&2; exit 3", "exec sleep 1000").find("over"), std::string::npos);
  EXPECT_NE(failure("echo 80", "echo deep >&2; exit 4").find("deep"), std::string::npos);

  StopSource stop;
  std::thread stopping([&] {
    while (!files::exists(folder_ / "late")) std::this_thread::yield();
    stop.requestStop();
  });
  const std::string late = "touch " + (folder_ / "late").path() + "; exec sleep 1000";
  EXPECT_THROW(score("echo 80", late, stop.token()), Interrupted);
  stopping.join();
  EXPECT_TRUE(files::contentsOfDirectory(folder_ / "work").empty());
}

TEST(Inspection, MakesViewsOfLargeImages) {
  const TemporaryFolder folder;
  for (const auto& [width, large] : {std::pair(4000, false), {4001, true}}) {
    const URL url = folder / (std::to_string(width) + ".png");
    test::writePNGFile(url, Raster(width, 2000, [](int, int) { return Pixel{90, 120, 150, 255}; }));
    const auto found = ImageFacts::inspection(url, ImageFacts::Views::wanted);
    EXPECT_EQ(found.facts, ImageFacts::inspect(url));
    EXPECT_EQ(found.views.has_value(), large) << width;
    if (found.views) {
      EXPECT_EQ(found.views->overview.width, 2048);
      EXPECT_EQ(found.views->detail.height, 768);
    }
  }
}

}  // namespace
}  // namespace tidewell
