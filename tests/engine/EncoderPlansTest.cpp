// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
#include <sstream>
#include <thread>

#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "engine/EngineTest.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::FakeTools;
using namespace std::string_literals;
using Strings = std::vector<std::string>;

constexpr std::size_t originalBytes = 20'000;

/// A JPEG as it usually is, saved with fine quantisation, or that and the first of two pictures.
enum class Source { usual, fine, finePair };

/// Of `bytes` bytes, for decoders stop at an image's end. `look` says what is wrong with it, if anything.
void writeImage(const URL& url, std::size_t bytes, Source source, std::string look = "") {
  const bool isUnsound = look.ends_with("!");
  if (isUnsound) look.pop_back();
  auto raster = test::photoRaster(look == "wider" ? 41 : 40, 30, look == "pixels" ? 2 : 1);
  if (look == "translucent") raster.pixels[0][3] = 100;
  const std::uint8_t first = look == "pixels" ? 3 : 1;
  const int transparent = look == "translucent" ? first : -1;
  const std::string extension = url.pathExtension();
  if (extension == "jpg") test::writeJPEGFile(url, raster, {.quality = source == Source::usual ? 80 : 99});
  if (extension == "png") {
    const auto gamma = look == "wider" ? std::optional(1 / 1.8) : std::nullopt;
    test::writePNGFile(url, raster, {.alpha = look == "translucent", .gamma = gamma});
  }
  if (extension == "gif") {
    test::GIFFrame frame{.width = 6, .height = 5, .indexes = {first}, .transparent = transparent};
    test::GIFFrame second{.width = 6, .height = 5, .indexes = {2}}, last = second;
    if (look == "later") second.disposal = 2, last.transparent = 2;
    test::writeGIFFile(url, {.width = 6, .height = 5, .frames = {frame, second, second, second, last}});
  }
  std::string data = files::read(url);
  // The last frame's data begins with an impossible size of its codes.
  if (look == "broken") data.at(data.rfind("\x2C\0\0\0\0\6\0\5\0"s) + 10) = 12;
  if (isUnsound) ++data.back();  // the sum of the last chunk, behind all pixels
  // The index of a multi-picture file, which says how many there are.
  if (source == Source::finePair) {
    data.insert(2, "\xFF\xE2\0\x1CMPF\0MM\0*\0\0\0\x08\0\x01\xB0\x01\0\x04\0\0\0\x01\0\0\0\x02"s);
  }
  ASSERT_TRUE(data.size() <= bytes || bytes == 0);
  data.resize(bytes, 'x');
  files::writeAtomically(url, data, files::Durability::cached);
}

/// The steps are "OUTPUT ANSWER VERDICT, ...". An answer is the output's size, with "/" its score and with
/// ":" what is wrong with it; "-" where the encoder fails, "=" where the test has prepared it. A verdict is
/// the reason in the trace: "ok" and "low" stand for the usual ones, "unjudged" for none. "TOOL MISSING"
/// records which tool is missing for the steps of another.
struct PlanCase {
  const char* what;
  std::string steps;
  std::string winner;  ///< the encoder chosen, or how the text begins that says why there is none
  Source source = Source::usual;
  std::string tools = "cjpegli pngquant oxipng gifsicle ssimulacra2";
};

class EncoderPlans : public testing::Test {
 protected:
  /// The tool and its arguments, directories taken off paths, and the label in the trace.
  std::pair<std::string, std::string> step(const std::string& output) {
    const auto part = [&](std::size_t from) { return output.substr(from, output.rfind('.') - from); };
    const std::string gifsicle = "-Okeep-empty --no-ignore-errors ";
    if (output.starts_with("jpegli-")) {
      const std::string chroma = output.substr(7, 3), quality = part(11);
      return {"cjpegli a.jpg " + output + " --quality=" + quality + " --chroma_subsampling=" + chroma +
                  " --quiet",
              "Jpegli q" + quality + " " + chroma};
    }
    if (output.starts_with("quant-")) {
      const Strings rungs[] = {
          {"90", "0.25", "1"}, {"90", "1.0", "4"}, {"100", "1.0", "4"}, {"100", "0.0", "4"}};
      const auto& r = rungs[output[6] - '0'];
      return {"pngquant --quality=0-" + r[0] + " --speed " + r[2] + " --floyd=" + r[1] + " --output " +
                  output + " -- a.png",
              "pngquant q" + r[0] + " floyd" + r[1] + " s" + r[2]};
    }
    const std::string oxipng = "oxipng --threads 1 -o 1 --out " + output + " ";
    if (output == "palette-opt.png") return {oxipng + accepted_, step(accepted_).second + " + OxiPNG"};
    if (output == "lossless.png") return {oxipng + "a.png", "OxiPNG"};
    if (output == "optimized.gif") return {"gifsicle -O2 " + gifsicle + "a.gif -o " + output, "Gifsicle -O2"};
    if (output.starts_with("lossy-")) {
      return {"gifsicle -O2 " + gifsicle + "--gamma=1 --lossy=" + part(6) + " a.gif -o " + output,
              "Gifsicle lossy" + part(6)};
    }
    if (output.starts_with("gif-palette-")) {
      return {
          "pngquant " + part(12) + " --speed 1 --floyd=0.25 --output " + output + " -- gif-colour-sample.png",
          ""};
    }
    return {"gifsicle -O3 " + gifsicle + "--gamma=1 --use-colormap gif-palette-" + part(7) +
                ".txt --no-dither --lossy=4 a.gif -o " + output,
            "pngquant GIF " + part(7) + " colors + Gifsicle lossy4"};
  }

  /// Prepares the answers, and notes what is to be run and recorded.
  void prepare(const std::string& steps, const FakeTools& tools) {
    runs_.clear();
    judged_.clear();
    std::istringstream list(steps);
    for (std::string text; std::getline(list, text, ',');) {
      std::istringstream words(text);
      std::string output, answer, verdict;
      words >> output >> answer >> verdict;
      if (output.starts_with('4')) output.insert(0, "jpegli-").append(".jpg");
      if (verdict.empty()) {
        judged_.push_back(output.append(" unavailable missing_component (").append(answer).append(")"));
        continue;
      }
      std::istringstream description(answer);
      std::size_t bytes = 0;
      char mark = 0;
      if (description >> bytes) {
        std::string look;
        double score = 0;
        description >> mark;
        if (mark == '/' && description >> score) tools.score(output, score);
        if (mark == ':') description >> look;
        writeImage(tools.answer(output), bytes, Source::usual, look);
      }
      const auto [run, label] = step(output);
      runs_.push_back(run);
      const std::string failed = "candidate error component_error (";
      if (verdict == "ok") {
        judged_.push_back(label + " accepted validated");
        accepted_ = output;
      } else if (verdict == "fails") {
        judged_.push_back(failed + "压缩组件运行失败)");
      } else if (verdict == "undecodable") {
        judged_.push_back(failed + "图片无法解码)");
      } else if (verdict == "metadata_mismatch") {
        judged_.push_back(label + " rejected metadata_mismatch (Untagged sRGB -> RGB gamma 1.8)");
        judged_.push_back(failed + "压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致)");
      } else if (verdict != "unjudged") {
        judged_.push_back(label + " rejected " + (verdict == "low" ? "quality_below_threshold" : verdict));
      }
    }
  }

  /// Compresses an image of `originalBytes`; the score of the winner.
  std::optional<double> compress(const std::string& name, const PlanCase& c, const FakeTools& tools) {
    prepare(c.steps, tools);
    const test::TemporaryFolder folder;
    writeImage(folder / name, originalBytes, c.source);
    const UndoStore undo(folder / "Undo");
    const CompressionEngine engine(ToolRunner(tools.directory()), undo,
                                   {.quality = 60, .pngQuality = 80, .gifQuality = 65});
    CompressionResult result;
    const std::string error = test::textOf([&] { result = engine.compress(folder / name, UUID::random()); });
    const std::string winner = error == "no error" ? result.encoder.value_or("skipped") : error;
    EXPECT_TRUE(winner.starts_with(c.winner)) << winner;
    Strings runs = tools.runs();
    std::erase_if(runs, [](const auto& run) { return run.starts_with("ssimulacra2"); });
    EXPECT_EQ(runs, runs_);
    const auto report = test::latestReport(undo);
    Strings judged;
    for (const auto& attempt : report.at("attempts").get<std::vector<CandidateDiagnostic>>()) {
      judged.push_back(attempt.encoder + " " + attempt.status + " " + attempt.reason);
      if (attempt.detail) judged.back() += " (" + attempt.detail->substr(0, attempt.detail->find("：")) + ")";
    }
    EXPECT_EQ(judged, judged_);
    return result.qualityScore;
  }

  void expect(const std::string& name, const std::vector<PlanCase>& cases) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      std::istringstream tools(c.tools);
      compress(name, c, FakeTools(Strings(std::istream_iterator<std::string>(tools), {})));
    }
  }

 private:
  Strings runs_, judged_;
  std::string accepted_;  ///< the latest output that was accepted
};

TEST_F(EncoderPlans, SearchTheQualityOfAJPEG) {
  const std::vector<PlanCase> cases = {
      {"the first is good and small", "420-72 9000/60 ok", "Jpegli q72 420"},
      {"4:2:0 is given up at its first rejection", "420-72 9000/59.9 low, 444-72 9500/64 ok",
       "Jpegli q72 444"},
      {"larger ones lead downwards by at most 12, then 4:4:4 is tried",
       "420-72 20000/90 ok, 420-60 20000/71 ok, 444-72 19000/80 ok", "Jpegli q72 444"},
      {"and no further than to the lowest quality",
       "420-72 20000/90 ok, 420-60 20000/90 ok, 444-72 9000/80 ok", "Jpegli q72 444"},
      {"an excess of one is not worth a step", "420-72 20000/71 ok, 444-72 9000/70 ok", "Jpegli q72 444"},
      {"the step follows the score's excess", "420-72 30000/75 ok, 420-66 25000/71.5 ok, 420-65 11000/66 ok",
       "Jpegli q65 420"},
      {"a fine original: 4:4:4 first, upwards while rejected",
       "444-90 9000/85.9 low, 444-93 9000/85 low, 444-95 9000/85 low, 444-96 9000/86 ok", "Jpegli q96 444",
       Source::fine},
      {"a rejection between accepted ones halves what is left",
       "444-90 30000/95 ok, 444-80 9000/80 low, 444-85 9000/84 low, 444-87 9000/88 ok", "Jpegli q87 444",
       Source::fine},
      {"and ends where nothing is left",
       "444-90 30000/88 ok, 444-88 9000/84 low, 444-89 9000/85 low, 420-90 9000/86 ok", "Jpegli q90 420",
       Source::fine},
      {"a fine one with more pictures in it: as usual, but held to more",
       "420-72 9000/69.9 low, 444-72 9000/70 ok", "Jpegli q72 444", Source::finePair},
      {"and brought down less", "420-72 20000/80 ok, 420-68 9000/70 ok", "Jpegli q68 420", Source::finePair},
      {"a failing encoder ends one chroma value only", "420-72 - fails, 444-72 9000/70 ok", "Jpegli q72 444"},
      {"nothing is good enough",
       "420-72 9000/10 low, 444-72 9000/10 low, 444-84 9000/10 low, 444-90 9000/10 low, "
       "444-96 21000/99 ok",
       "skipped"},
      {"every encoder run fails", "420-72 - fails, 444-72 - fails",
       "压缩组件运行失败：cjpegli（退出码 3）：cp: cannot stat"},
      {"without the metric", "", "缺少压缩组件：ssimulacra2", Source::usual, "cjpegli"},
      {"without cjpegli", "", "缺少压缩组件：cjpegli", Source::usual, "ssimulacra2"},
  };
  expect("a.jpg", cases);
}

TEST_F(EncoderPlans, QuantiseThenOptimiseAPNG) {
  const std::vector<PlanCase> cases = {
      {"the first rung that is good enough, optimised",
       "quant-0.png 9000/79.9 low, quant-1.png 9000/80 ok, palette-opt.png 8000 ok",
       "pngquant q90 floyd1.0 s4 + OxiPNG"},
      {"failures and outputs that are too large lead to the next rung, and in the end to the lossless "
       "step",
       "quant-0.png 0 empty_output, quant-1.png 20000 not_smaller, quant-2.png - fails, "
       "quant-3.png 9000/5 low, lossless.png 12000 ok",
       "OxiPNG"},
      {"what is not the same picture any more",
       "quant-0.png 9000:wider metadata_mismatch, quant-1.png 9000:translucent alpha_mismatch, "
       "quant-2.png 9000 ok, "
       "palette-opt.png 8000:pixels pixels_changed",
       "pngquant q100 floyd1.0 s4"},
      {"what is broken at its end, whatever it shows",
       "quant-0.png 9000:! undecodable, quant-1.png 9000:wider! undecodable, "
       "quant-2.png 9000:translucent! undecodable, quant-3.png 9000 ok, palette-opt.png 8000:! undecodable",
       "pngquant q100 floyd0.0 s4"},
      {"and where pixels must be the same", "pngquant pngquant, lossless.png 9000:pixels! undecodable",
       "图片无法解码", Source::usual, "oxipng"},
      {"the last error is told",
       "quant-0.png - fails, quant-1.png - fails, "
       "quant-2.png - fails, quant-3.png - fails, lossless.png - fails",
       "压缩组件运行失败：oxipng（退出码 3）："},
      {"without the metric", "pngquant ssimulacra2, lossless.png 12000 ok", "OxiPNG", Source::usual,
       "pngquant oxipng"},
      {"without pngquant", "pngquant pngquant, lossless.png 9000:pixels pixels_changed", "skipped",
       Source::usual, "oxipng"},
      {"without oxipng", "quant-0.png 9000 ok", "pngquant q90 floyd0.25 s1", Source::usual,
       "pngquant ssimulacra2"},
      {"with the metric alone", "", "缺少压缩组件：pngquant / oxipng", Source::usual, "ssimulacra2"},
  };
  expect("a.png", cases);
}

TEST_F(EncoderPlans, OptimiseAGIFThenLoseALittleThenShareAPalette) {
  const std::vector<PlanCase> cases = {
      {"of equal ones the first", "optimized.gif 12000 ok, lossy-12.gif 12000 ok", "Gifsicle -O2"},
      {"90 % is over the budget: the ladder ends without a verdict, and a palette is worth a try",
       "optimized.gif 19000 ok, lossy-12.gif 18000 unjudged, gif-palette-192.png - fails", "Gifsicle -O2"},
      {"a milder level",
       "optimized.gif - fails, lossy-12.gif 9000:translucent gif_frame_quality_or_alpha, "
       "lossy-4.gif 17999 ok",
       "Gifsicle lossy4"},
      {"the first level fails long before its turn",
       "optimized.gif 15000 ok, lossy-12.gif - fails, lossy-4.gif 9000 ok", "Gifsicle lossy4"},
      {"without the metric", "optimized.gif 15000 ok", "Gifsicle -O2", Source::usual, "gifsicle pngquant"},
      {"without pngquant", "optimized.gif 19000 ok, lossy-12.gif 18000 unjudged", "Gifsicle -O2",
       Source::usual, "gifsicle ssimulacra2"},
      {"other pixels", "optimized.gif 15000:pixels pixels_changed", "skipped", Source::usual, "gifsicle"},
      {"without gifsicle", "", "缺少压缩组件：gifsicle", Source::usual, "pngquant ssimulacra2"},
  };
  expect("a.gif", cases);

  // A palette's answer is a PNG with PLTE; all but the last count are judged by a frame and rejected.
  const FakeTools tools;
  for (const char* colours : {"192", "255", "128"}) {
    files::writeAtomically(tools.answer("gif-palette-"s + colours + ".png"),
                           test::pngOfOneRow(1, 8, 3, std::string(1, '\0'), test::pngChunk("PLTE", "abc")));
  }
  tools.score("frame-0.png", 65);
  tools.score("frame-1.png", 64.5);
  tools.first("case \"$*\" in *shared-128*) rm -f \"$here/scores/frame-1.png\";; esac");
  const PlanCase shared{
      "a shared palette",
      "optimized.gif - fails, lossy-12.gif 9000 gif_frame_quality_or_alpha, lossy-4.gif - fails, "
      "gif-palette-192.png = unjudged, shared-192.gif 9000 gif_frame_quality_or_alpha, "
      "gif-palette-255.png = unjudged, shared-255.gif 9500 gif_frame_quality_or_alpha, "
      "gif-palette-128.png = unjudged, shared-128.gif 9600 ok",
      "pngquant GIF 128 colors + Gifsicle lossy4"};
  EXPECT_EQ(compress("a.gif", shared, tools), 65) << "the worst frame counts";
}

TEST_F(EncoderPlans, JudgeAGIFByTheFirstFrameAtFault) {
  const struct {
    const char* what;
    double secondScore, lastScore;
    const char* output;
    const char* verdict;
    int measured;
  } cases[] = {
      {"a low score before a frame that is broken", 64, 90, "broken", "gif_frame_quality_or_alpha", 2},
      {"a broken frame after a good score", 65, 64, "broken", "undecodable", 4},
      {"a low score before other alpha", 64, 90, "later", "gif_frame_quality_or_alpha", 2},
      {"other alpha before a low score", 65, 64, "later", "gif_frame_quality_or_alpha", 4},
      {"other alpha at first", 65, 65, "translucent", "gif_frame_quality_or_alpha", 0},
      {"a low score at last", 65, 64, "", "gif_frame_quality_or_alpha", 5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const FakeTools tools;
    tools.score("frame-1.png", c.secondScore);
    tools.score("frame-4.png", c.lastScore);
    const std::string output = *c.output ? ":"s + c.output : "";
    compress(
        "a.gif",
        {c.what,
         "optimized.gif 12000 ok, lossy-12.gif 9000" + output + " " + c.verdict + ", lossy-4.gif - fails",
         "Gifsicle -O2"},
        tools);
    const Strings runs = tools.runs();
    EXPECT_EQ(std::ranges::count_if(runs, [](const auto& run) { return run.starts_with("ssimulacra2"); }),
              c.measured);
  }
}

TEST_F(EncoderPlans, MakeTheFirstLossyGIFWhileTheLosslessOneIsJudged) {
  // Instead of the lossless output there is a pipe, and whoever opens it waits for the lossy tool to do so.
  const test::TemporaryFolder folder;
  const FakeTools tools;
  prepare("lossy-12.gif 9000 ok", tools);
  tools.first(R"(for out in "$@"; do :; done
    case $out in
      *optimized.gif) mkfifo "$out"; exit;;
      *lossy-12.gif) : > "${out%lossy-12.gif}optimized.gif";;
    esac)");
  writeImage(folder / "a.gif", originalBytes, Source::usual);
  const UndoStore undo(folder / "Undo");
  const CompressionEngine engine(ToolRunner(tools.directory()), undo, {});
  engine.compress(folder / "a.gif", UUID::random(), {.stripMetadata = true});  // opens each output at once
  const auto attempts = test::latestReport(undo).at("attempts").get<std::vector<CandidateDiagnostic>>();
  ASSERT_GE(attempts.size(), 2U);
  EXPECT_EQ(attempts[0].status, "error") << "a pipe is no image";
  EXPECT_EQ(attempts[1].encoder + " " + attempts[1].status, "Gifsicle lossy12 accepted");
}

TEST_F(EncoderPlans, StopWhileAGIFIsMadeOrScored) {
  for (const bool isScored : {false, true}) {
    const test::TemporaryFolder folder;
    const URL gif = folder / "photos/a.gif";
    files::createDirectory(gif.deletingLastPathComponent());
    writeImage(gif, originalBytes, Source::usual);
    const std::string before = files::read(gif);
    const FakeTools tools;
    prepare("optimized.gif 12000 ok, lossy-12.gif 9000 ok", tools);
    const test::Signpost working(folder / "working");
    const std::string wait = "echo here > '" + working.path() + "'; exec sleep 60";
    if (isScored) {
      test::writeScript(folder, "metric", wait);
      const URL metric = tools.directory().appending("ssimulacra2");
      files::removeItem(metric);
      ASSERT_EQ(symlink((folder / "metric").path().c_str(), metric.path().c_str()), 0);
    } else {
      tools.first("case \"$*\" in *lossy-12*) " + wait + ";; esac");
    }
    StopSource stop;
    const CompressionEngine engine(ToolRunner(tools.directory(), stop.token()), UndoStore(folder / "Undo"),
                                   {});
    std::thread stopper([&] {
      EXPECT_EQ(working.wait(), "here");
      stop.requestStop();
    });
    EXPECT_THROW(engine.compress(gif, UUID::random()), Interrupted);
    stopper.join();
    EXPECT_EQ(files::read(gif), before);
    EXPECT_EQ(files::namesInDirectory(gif.deletingLastPathComponent()).size(), 1U) << "no frames are left";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no tool is left";
  }
}

}  // namespace
}  // namespace tidewell
