#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/FakeTools.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::FakeTools;
using namespace std::string_view_literals;

constexpr std::size_t originalBytes = 20'000;

/// Decoders stop at an image's end, so a file can have any size above its own.
void pad(const URL& url, std::size_t bytes) {
  std::string data = files::read(url);
  ASSERT_LE(data.size(), bytes);
  data.resize(bytes, 'x');
  files::writeAtomically(url, data, files::Durability::cached);
}

enum class Look { usual, otherPixels, wider, translucent };
/// A JPEG as it usually is, saved with fine quantisation, or that and the first of two pictures.
enum class Source { usual, fine, finePair };

void writeImage(const URL& url, std::size_t bytes, Source source = Source::usual, Look look = Look::usual) {
  auto raster = test::photoRaster(look == Look::wider ? 41 : 40, 30, look == Look::otherPixels ? 2 : 1);
  if (look == Look::translucent) raster.pixels[0][3] = 100;
  const std::uint8_t first = look == Look::otherPixels ? 3 : 1;
  const int transparent = look == Look::translucent ? first : -1;
  const std::string extension = url.pathExtension();
  if (extension == "jpg") {
    test::writeJPEGFile(url, raster, {.quality = source == Source::usual ? 80 : 99});
    // The index of a multi-picture file, which says how many there are.
    const std::string_view index =
        "\xFF\xE2\0\x1CMPF\0MM\0*\0\0\0\x08\0\x01\xB0\x01\0\x04\0\0\0\x01\0\0\0\x02"sv;
    if (source == Source::finePair) files::writeAtomically(url, files::read(url).insert(2, index));
  }
  if (extension == "png") {
    const auto gamma = look == Look::wider ? std::optional(1 / 1.8) : std::nullopt;
    test::writePNGFile(url, raster, {.alpha = look == Look::translucent, .gamma = gamma});
  }
  if (extension == "gif") {
    test::writeGIFFile(url,
                       {.width = 6,
                        .height = 5,
                        .frames = {{.width = 6, .height = 5, .indexes = {first}, .transparent = transparent},
                                   {.width = 6, .height = 5, .indexes = {2}}}});
  }
  pad(url, bytes);
}

struct Answer {
  std::size_t bytes;
  std::optional<double> score = {};  ///< 95.5 unless given
  Look look = Look::usual;
};

struct Outcome {
  std::string encoder;              ///< of the replacement; "skipped", or the error's text
  std::optional<double> score;      ///< of the replacement
  std::vector<std::string> runs;    ///< of all tools, as FakeTools logs them
  std::vector<std::string> judged;  ///< "encoder reason (detail up to its colon)" of each record in the trace
};

struct PlanCase {
  std::vector<std::string> tools;
  std::map<std::string, Answer> answers;
  std::vector<std::string> runs, judged;  ///< of the encoders, and what became of their outputs
  std::string encoder;                    ///< that won, or how the text begins that tells why none did
};

class EncoderPlans : public testing::Test {
 protected:
  /// Compresses an image of `originalBytes` with tools that answer so.
  Outcome compress(const std::string& name, const std::map<std::string, Answer>& answers,
                   const FakeTools& tools = FakeTools(), Source source = Source::usual) const {
    const test::TemporaryFolder folder;
    writeImage(folder / name, originalBytes, source);
    for (const auto& [output, answer] : answers) {
      const URL url = tools.answer(output);
      if (answer.bytes == 0) {
        files::writeAtomically(url, "", files::Durability::cached);
      } else {
        writeImage(url, answer.bytes, Source::usual, answer.look);
      }
      if (answer.score) tools.score(output, *answer.score);
    }
    const CompressionEngine engine(ToolRunner(tools.directory()), UndoStore(folder / "Undo"),
                                   {.quality = 60, .pngQuality = 80, .gifQuality = 65});
    Outcome outcome;
    try {
      const auto result = engine.compress(folder / name, UUID::random());
      outcome.encoder = result.encoder.value_or("skipped");
      outcome.score = result.qualityScore;
    } catch (const std::exception& error) {
      outcome.encoder = error.what();
    }
    outcome.runs = tools.runs();
    const auto reports = files::contentsOfDirectory(folder / "CompressionDiagnostics");
    EXPECT_EQ(reports.size(), 1U);
    const auto report = nlohmann::json::parse(files::read(reports.at(0)));
    const std::map<std::string, std::string> statuses = {
        {"validated", "accepted"}, {"component_error", "error"}, {"missing_component", "unavailable"}};
    for (const auto& attempt : report.at("attempts").get<std::vector<CandidateDiagnostic>>()) {
      const auto status = statuses.find(attempt.reason);
      EXPECT_EQ(attempt.status, status == statuses.end() ? "rejected" : status->second) << attempt.reason;
      outcome.judged.push_back(attempt.encoder + " " + attempt.reason);
      if (attempt.detail)
        outcome.judged.back() += " (" + attempt.detail->substr(0, attempt.detail->find("：")) + ")";
    }
    return outcome;
  }

  /// What of the runs is left when the metric's are taken out.
  static std::vector<std::string> encoderRuns(const Outcome& outcome) {
    std::vector<std::string> runs = outcome.runs;
    std::erase_if(runs, [](const auto& run) { return run.starts_with("ssimulacra2"); });
    return runs;
  }

  void expect(const std::string& name, const std::vector<PlanCase>& cases) const {
    for (const auto& c : cases) {
      const Outcome outcome = compress(name, c.answers, FakeTools(c.tools));
      EXPECT_EQ(encoderRuns(outcome), c.runs);
      EXPECT_EQ(outcome.judged, c.judged);
      EXPECT_TRUE(outcome.encoder.starts_with(c.encoder)) << outcome.encoder;
    }
  }
};

TEST_F(EncoderPlans, SearchTheQualityOfAJPEG) {
  const struct {
    const char* what;
    Source source;
    std::map<std::string, Answer> answers;
    std::string tried, encoder;
  } cases[] = {
      {"the first is good and small", Source::usual, {{"420-72", {9000, 60}}}, "420-72", "Jpegli q72 420"},
      {"4:2:0 is given up at its first rejection",
       Source::usual,
       {{"420-72", {9000, 59.9}}, {"444-72", {9500, 64}}},
       "420-72 444-72",
       "Jpegli q72 444"},
      {"larger ones lead downwards by at most 12, then 4:4:4 is tried",
       Source::usual,
       {{"420-72", {20000, 90}}, {"420-60", {20000, 71}}, {"444-72", {19000, 80}}},
       "420-72 420-60 444-72",
       "Jpegli q72 444"},
      {"an excess of one is not worth a step",
       Source::usual,
       {{"420-72", {20000, 71}}, {"444-72", {9000, 70}}},
       "420-72 444-72",
       "Jpegli q72 444"},
      {"the step follows the score's excess",
       Source::usual,
       {{"420-72", {30000, 75}}, {"420-66", {25000, 71.5}}, {"420-65", {11000, 66}}},
       "420-72 420-66 420-65",
       "Jpegli q65 420"},
      {"a fine original: 4:4:4 first, upwards while rejected",
       Source::fine,
       {{"444-90", {9000, 85.9}}, {"444-93", {9000, 85}}, {"444-95", {9000, 85}}, {"444-96", {9000, 86}}},
       "444-90 444-93 444-95 444-96",
       "Jpegli q96 444"},
      {"a rejection between accepted ones halves what is left",
       Source::fine,
       {{"444-90", {30000, 95}}, {"444-80", {9000, 80}}, {"444-85", {9000, 84}}, {"444-87", {9000, 88}}},
       "444-90 444-80 444-85 444-87",
       "Jpegli q87 444"},
      {"a fine one with more pictures in it: as usual, but held to more",
       Source::finePair,
       {{"420-72", {9000, 69.9}}, {"444-72", {9000, 70}}},
       "420-72 444-72",
       "Jpegli q72 444"},
      {"and brought down less",
       Source::finePair,
       {{"420-72", {20000, 80}}, {"420-68", {9000, 70}}},
       "420-72 420-68",
       "Jpegli q68 420"},
      {"a failing encoder ends one chroma value only",
       Source::usual,
       {{"444-72", {9000, 70}}},
       "420-72 444-72",
       "Jpegli q72 444"},
      {"nothing is good enough",
       Source::usual,
       {{"420-72", {9000, 10}},
        {"444-72", {9000, 10}},
        {"444-84", {9000, 10}},
        {"444-90", {9000, 10}},
        {"444-96", {21000, 99}}},
       "420-72 444-72 444-84 444-90 444-96",
       "skipped"},
      {"every encoder run fails",
       Source::usual,
       {},
       "420-72 444-72",
       "压缩组件运行失败：cjpegli（退出码 3）：cp: cannot stat"},
  };
  for (const auto& c : cases) {
    std::map<std::string, Answer> answers;
    for (const auto& [step, answer] : c.answers) answers.emplace("jpegli-" + step + ".jpg", answer);
    const Outcome outcome = compress("photo.jpg", answers, FakeTools(), c.source);
    std::string tried;
    for (const auto& run : encoderRuns(outcome)) {
      tried += (tried.empty() ? "" : " ") + run.substr(run.find("jpegli-") + 7, 6);
    }
    EXPECT_EQ(tried, c.tried) << c.what;
    EXPECT_TRUE(outcome.encoder.starts_with(c.encoder)) << c.what << ": " << outcome.encoder;
  }
}

TEST_F(EncoderPlans, QuantiseThenOptimiseAPNG) {
  const std::string rungs[] = {
      "pngquant --quality=0-90 --speed 1 --floyd=0.25 --output quant-0.png -- a.png",
      "pngquant --quality=0-90 --speed 4 --floyd=1.0 --output quant-1.png -- a.png",
      "pngquant --quality=0-100 --speed 4 --floyd=1.0 --output quant-2.png -- a.png",
      "pngquant --quality=0-100 --speed 4 --floyd=0.0 --output quant-3.png -- a.png"};
  const std::string lossless = "oxipng --threads 1 -o 1 --out lossless.png a.png";
  const std::string failed = "candidate component_error (压缩组件运行失败)";
  const std::string unquantised = "pngquant missing_component (ssimulacra2)";
  expect("a.png",
         {
             {{"pngquant", "oxipng", "ssimulacra2"},
              {{"quant-0.png", {9000, 79.9}}, {"quant-1.png", {9000, 80}}, {"palette-opt.png", {8000}}},
              {rungs[0], rungs[1], "oxipng --threads 1 -o 1 --out palette-opt.png quant-1.png"},
              {"pngquant q90 floyd0.25 s1 quality_below_threshold", "pngquant q90 floyd1.0 s4 validated",
               "pngquant q90 floyd1.0 s4 + OxiPNG validated"},
              "pngquant q90 floyd1.0 s4 + OxiPNG"},
             // Failures and outputs that are too large lead to the next rung, and in the end to the lossless
             // step.
             {{"pngquant", "oxipng", "ssimulacra2"},
              {{"quant-0.png", {0}},
               {"quant-1.png", {originalBytes}},
               {"quant-3.png", {9000, 5}},
               {"lossless.png", {12000}}},
              {rungs[0], rungs[1], rungs[2], rungs[3], lossless},
              {"pngquant q90 floyd0.25 s1 empty_output", "pngquant q90 floyd1.0 s4 not_smaller", failed,
               "pngquant q100 floyd0.0 s4 quality_below_threshold", "OxiPNG validated"},
              "OxiPNG"},
             {{"pngquant", "oxipng"},
              {{"lossless.png", {12000}}},
              {lossless},
              {unquantised, "OxiPNG validated"},
              "OxiPNG"},
             // What is not the same picture any more.
             {{"pngquant", "oxipng", "ssimulacra2"},
              {{"quant-0.png", {9000, {}, Look::wider}},
               {"quant-1.png", {9000, {}, Look::translucent}},
               {"quant-2.png", {9000}},
               {"palette-opt.png", {8000, {}, Look::otherPixels}}},
              {rungs[0], rungs[1], rungs[2], "oxipng --threads 1 -o 1 --out palette-opt.png quant-2.png"},
              {"pngquant q90 floyd0.25 s1 metadata_mismatch (Untagged sRGB -> RGB gamma 1.8)",
               "candidate component_error (压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致)",
               "pngquant q90 floyd1.0 s4 alpha_mismatch", "pngquant q100 floyd1.0 s4 validated",
               "pngquant q100 floyd1.0 s4 + OxiPNG pixels_changed"},
              "pngquant q100 floyd1.0 s4"},
             {{"oxipng"},
              {{"lossless.png", {9000, {}, Look::otherPixels}}},
              {lossless},
              {"pngquant missing_component (pngquant)", "OxiPNG pixels_changed"},
              "skipped"},
             {{"pngquant", "ssimulacra2"},
              {{"quant-0.png", {9000}}},
              {rungs[0]},
              {"pngquant q90 floyd0.25 s1 validated"},
              "pngquant q90 floyd0.25 s1"},
             {{"ssimulacra2"}, {}, {}, {}, "缺少压缩组件：pngquant / oxipng"},
             {{"pngquant", "oxipng", "ssimulacra2"},  // the last error is told
              {},
              {rungs[0], rungs[1], rungs[2], rungs[3], lossless},
              std::vector<std::string>(5, failed),
              "压缩组件运行失败：oxipng（退出码 3）："},
         });
}

TEST_F(EncoderPlans, OptimiseAGIFThenLoseALittleThenShareAPalette) {
  const std::string optimised = "gifsicle -O2 -Okeep-empty --no-ignore-errors a.gif -o optimized.gif";
  const auto lossy = [](const std::string& level) {
    return "gifsicle -O2 -Okeep-empty --no-ignore-errors --gamma=1 --lossy=" + level + " a.gif -o lossy-" +
           level + ".gif";
  };
  const auto palette = [](const std::string& colours) {
    return "pngquant " + colours + " --speed 1 --floyd=0.25 --output gif-palette-" + colours +
           ".png -- gif-colour-sample.png";
  };
  const auto shared = [](const std::string& colours) {
    return "gifsicle -O3 -Okeep-empty --no-ignore-errors --gamma=1 --use-colormap gif-palette-" + colours +
           ".txt --no-dither --lossy=4 a.gif -o shared-" + colours + ".gif";
  };
  const std::string failed = "candidate component_error (压缩组件运行失败)";
  expect(
      "a.gif",
      {
          {{"gifsicle", "ssimulacra2", "pngquant"},
           {{"optimized.gif", {12000}}, {"lossy-12.gif", {12000}}},
           {optimised, lossy("12")},
           {"Gifsicle -O2 validated", "Gifsicle lossy12 validated"},
           "Gifsicle -O2"},  // of equal ones the first
          // 18000 bytes is not below 90 %: the ladder ends without a verdict; a palette is then worth a try.
          {{"gifsicle", "ssimulacra2", "pngquant"},
           {{"optimized.gif", {19000}}, {"lossy-12.gif", {18000}}},
           {optimised, lossy("12"), palette("192")},
           {"Gifsicle -O2 validated", failed},
           "Gifsicle -O2"},
          {{"gifsicle", "ssimulacra2"},
           {{"lossy-12.gif", {9000, {}, Look::translucent}}, {"lossy-4.gif", {17999}}},
           {optimised, lossy("12"), lossy("4")},
           {failed, "Gifsicle lossy12 gif_frame_quality_or_alpha", "Gifsicle lossy4 validated"},
           "Gifsicle lossy4"},
          {{"gifsicle"},
           {{"optimized.gif", {15000}}},
           {optimised},
           {"Gifsicle -O2 validated"},
           "Gifsicle -O2"},
          {{"gifsicle"},
           {{"optimized.gif", {15000, {}, Look::otherPixels}}},
           {optimised},
           {"Gifsicle -O2 pixels_changed"},
           "skipped"},
          {{"pngquant"}, {}, {}, {}, "缺少压缩组件：gifsicle"},
      });

  // A palette's answer is a PNG with PLTE; the first count is judged by a frame and rejected.
  const FakeTools tools;
  for (const char* colours : {"192", "255"}) {
    files::writeAtomically(tools.answer(std::string("gif-palette-") + colours + ".png"),
                           test::pngOfOneRow(1, 8, 3, std::string(1, '\0'), test::pngChunk("PLTE", "abc")));
  }
  tools.score("frame-0.png", 65);
  tools.score("frame-1.png", 64.5);
  tools.first("case \"$*\" in *shared-255*) rm -f \"$here/scores/frame-1.png\";; esac");
  const Outcome outcome = compress("a.gif", {{"shared-192.gif", {9000}}, {"shared-255.gif", {9500}}}, tools);
  EXPECT_EQ(encoderRuns(outcome),
            (std::vector<std::string>{optimised, lossy("12"), lossy("4"), palette("192"), shared("192"),
                                      palette("255"), shared("255")}));
  EXPECT_EQ(outcome.encoder, "pngquant GIF 255 colors + Gifsicle lossy4");
  EXPECT_EQ(outcome.score, 65) << "the worst frame counts";
  EXPECT_EQ(outcome.judged[outcome.judged.size() - 2],
            "pngquant GIF 192 colors + Gifsicle lossy4 gif_frame_quality_or_alpha");
}

}  // namespace
}  // namespace tidewell
