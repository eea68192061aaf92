// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/Batch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "CompressionKit/batch/KnownFiles.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "engine/FakeTools.h"
#include "support/HEICSample.h"
#include "support/HEIFFile.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using Texts = std::map<std::string, std::string>;

/// "outcome", "outcome reason", "failed" and an errno value, or "failed" and a text.
std::string said(const FileReport& report) {
  std::string text(rawValue(report.outcome));
  if (report.reason) text += " " + std::string(rawValue(*report.reason));
  try {
    if (report.error) std::rethrow_exception(report.error);
  } catch (const FileError& error) {
    return text + " " + std::to_string(error.code());
  } catch (const std::exception& error) {
    return text + " " + error.what();
  }
  return text;
}

class BatchTest : public testing::Test {
 protected:
  BatchTest() {
    for (const char* output : {"jpegli-420-72.jpg", "jpegli-444-72.jpg"}) {
      test::writeJPEGFile(tools.answer(output), test::photoRaster(80, 60), {.quality = 50});
      tools.score(output, 70.5);
    }
    versions("1");
    files::createDirectory(folder / "tmp");
    photo("in/a.jpg", 95);
    photo("in/sub/b.jpg", 20);  // smaller than anything that the tools make of it
    folder.write("in/c.gif", "no picture");
  }
  void photo(const std::string& name, int quality) const {
    files::createDirectories((folder / name).deletingLastPathComponent());
    test::writeJPEGFile(folder / name, test::photoRaster(80, 60), {.quality = quality});
  }
  void versions(const std::string& version) const {
    files::writeAtomically(
        tools.directory().appending("tools.json"),
        R"({"tools": [{"name": "cjpegli", "version": ")" + version + R"(", "pinned": true}]})");
  }
  FolderWalk walk(const std::vector<std::string>& names) const {
    std::vector<std::string> paths;
    paths.reserve(names.size());
    for (const auto& name : names) paths.push_back((folder / name).path());
    return {namedPaths(paths), {.leftOut = {folder / "out"}}};
  }
  /// What is said of each file, by its path below the folder.
  Texts compress(const std::vector<std::string>& names, const BatchOptions& options = {},
                 CompressionEngine::Thresholds floors = {}) {
    const CompressionEngine engine(ToolRunner(tools.directory(), stop.token()), undo, floors);
    Batch batch(engine, queue, &memory);
    FolderWalk files = walk(names);
    Texts texts;
    reports.clear();
    batch.run([&] { return files.next(); }, options,
              {.started = {}, .finished = [&](const FileReport& report) {
                 const std::string name = report.url.path().substr(folder.url().path().size() + 1);
                 EXPECT_TRUE(texts.emplace(name, said(report)).second) << name;
                 reports.emplace(name, report);
               }});
    return texts;
  }
  /// Every file below a folder with its content.
  Texts contents(const std::string& name) const {
    Texts texts;
    if (!files::exists(folder / name)) return texts;
    for (const auto& entry : files::namesInDirectory(folder / name)) {
      const std::string path = URL::file("/" + name).appending(entry).path().substr(1);
      if (files::resourceValues(folder / path).isDirectory) {
        texts.merge(contents(path));
      } else {
        texts[path] = files::read(folder / path);
      }
    }
    return texts;
  }

  const test::TemporaryFolder folder;
  const test::FakeTools tools;
  const test::ScopedEnvironment temporary{"TMPDIR", (folder / "tmp").path().c_str()};
  const std::string conditions = "cjpegli 1; floors [60.0,70.0,70.0]";
  const UndoStore undo{folder / "data/Undo"};
  OutputMemory memory{folder / "outputs.db"};
  CompressionQueue queue{2, folder / "locks"};
  BatchStop stop{queue};
  std::map<std::string, FileReport> reports;
};

TEST_F(BatchTest, PassesOverWhatWasCompressedBefore) {
  const Texts failed{{"in/c.gif", "failed 图片无法解码"}};
  const auto expected = [&](const std::string& a, const std::string& b) {
    Texts texts{{"in/a.jpg", a}, {"in/sub/b.jpg", b}};
    texts.merge(Texts(failed));
    return texts;
  };
  const std::string before = "skipped already_compressed", smallest = "skipped not_smaller";
  const auto bytes = fileSize(folder / "in/a.jpg");
  EXPECT_EQ(compress({"in"}), expected("replaced", smallest));
  FileReport first = reports.at("in/a.jpg");
  EXPECT_EQ(first.originalBytes, bytes);
  EXPECT_EQ(first.finalBytes, fileSize(tools.answer("jpegli-420-72.jpg")));
  EXPECT_EQ(first.score, 70.5);
  EXPECT_EQ(first.record, undo.readRecords().at(0).id);
  EXPECT_EQ(memory.output(hash(folder / "in/a.jpg"))->madeFrom, undo.readRecords().at(0).originalHash);

  EXPECT_TRUE(memory.knowsNothingSmaller(hash(folder / "in/sub/b.jpg"), conditions));

  const auto runs = tools.runs().size();
  EXPECT_EQ(compress({"in"}), expected(before, before));
  EXPECT_EQ(tools.runs().size(), runs);
  EXPECT_EQ(reports.at("in/a.jpg").score, 70.5);
  EXPECT_EQ(reports.at("in/a.jpg").finalBytes, first.finalBytes);
  // An output stays one; that nothing smaller was found holds for the same question only.
  EXPECT_EQ(compress({"in"}, {.compression = {.keepMetadata = true}}), expected(before, smallest));
  EXPECT_EQ(compress({"in"}, {}, {.quality = 61}), expected(before, smallest));
  versions("2");
  EXPECT_EQ(compress({"in"}), expected(before, smallest));
  EXPECT_EQ(compress({"in"}), expected(before, before));
  EXPECT_EQ(compress({"in"}, {.again = true}), expected(smallest, smallest));
  EXPECT_EQ(undo.readRecords().size(), 1U);
  files::removeItem(tools.directory().appending("tools.json"));  // then nothing is known of the tools
  for (int i = 0; i < 2; ++i) EXPECT_EQ(compress({"in"}), expected(before, smallest));
  // A restored original is one again.
  undo.restore(undo.readRecords().at(0));
  EXPECT_EQ(compress({"in/a.jpg"}), (Texts{{"in/a.jpg", "replaced"}}));
}

/// A file that was compressed before, and one that nothing makes smaller: in place and as copies.
TEST_F(BatchTest, StripsAlsoWhatIsNotCompressedAgain) {
  using namespace std::string_literals;
  const std::string secret = "\xFF\xFE\0\x08SECRET"s;
  for (const char* name : {"in/a.jpg", "in/sub/b.jpg"}) {
    files::writeAtomically(folder / name, files::read(folder / name).insert(20, secret));
  }
  const BatchOptions keeping{.compression = {.keepMetadata = true}};
  const BatchOptions stripping{.compression = {.stripMetadata = true}};
  const auto run = [&](const BatchOptions& options) {
    Texts texts = compress({"in"}, options);
    texts.erase("in/c.gif");
    return texts;
  };
  const auto said = [](const std::string& a, const std::string& b) {
    return Texts{{"in/a.jpg", a}, {"in/sub/b.jpg", b}};
  };
  const auto saysIt = [&](const std::string& name) {
    return files::read(folder / name).find("SECRET") != std::string::npos;
  };
  EXPECT_EQ(run(keeping), said("replaced", "skipped not_smaller"));
  EXPECT_TRUE(saysIt("in/a.jpg") && saysIt("in/sub/b.jpg"));
  const std::string small = files::read(tools.answer("jpegli-420-72.jpg"));
  const auto runs = tools.runs();

  auto copying = stripping, rehearsing = stripping;
  copying.output = folder / "out";
  rehearsing.dryRun = true;
  EXPECT_EQ(compress({"in/a.jpg"}, copying), (Texts{{"in/a.jpg", "written"}}));
  EXPECT_EQ(files::read(folder / "out/a.jpg"), small);
  EXPECT_EQ(compress({"in/a.jpg"}, rehearsing), (Texts{{"in/a.jpg", "replaced"}}));
  EXPECT_EQ(compress({"in/sub/b.jpg"}, keeping), (Texts{{"in/sub/b.jpg", "skipped already_compressed"}}));
  EXPECT_EQ(tools.runs(), runs);
  EXPECT_TRUE(saysIt("in/a.jpg"));

  EXPECT_EQ(compress({"in/sub/b.jpg"}, copying), (Texts{{"in/sub/b.jpg", "written"}}));
  EXPECT_FALSE(saysIt("out/b.jpg"));
  EXPECT_EQ(run(stripping), said("replaced", "replaced"));
  EXPECT_EQ(files::read(folder / "in/a.jpg"), small);
  EXPECT_EQ(files::read(folder / "in/sub/b.jpg"), files::read(folder / "out/b.jpg"));
  EXPECT_EQ(reports.at("in/a.jpg").encoder, "strip");
  EXPECT_EQ(reports.at("in/a.jpg").score, 70.5);
  EXPECT_EQ(memory.output(hash(folder / "in/a.jpg"))->score, 70.5) << "its pixels lost no more than that";
  EXPECT_TRUE(reports.at("in/a.jpg").record);
  EXPECT_EQ(run(stripping), said("skipped already_compressed", "skipped already_compressed"));
  EXPECT_EQ(reports.at("in/a.jpg").score, 70.5);

  // What was only not worth it can be compressed when it is.
  photo("c.jpg", 95);
  files::writeAtomically(folder / "c.jpg", files::read(folder / "c.jpg").insert(20, secret));
  auto demanding = stripping;
  demanding.compression.minimumSaving = MinimumSaving{.percent = 99};
  for (const auto& [options, encoder] : {std::pair(demanding, "strip"), {BatchOptions{}, "Jpegli q72 420"}}) {
    EXPECT_EQ(compress({"c.jpg"}, options), (Texts{{"c.jpg", "replaced"}}));
    EXPECT_EQ(reports.at("c.jpg").encoder, encoder);
  }
}

/// The PNG beside a HEIC file may have been stripped since.
TEST_F(BatchTest, KnowsAConversionThatWasStripped) {
  const URL heic = folder / "x.heic";
  test::HEIFFile{}.write(heic);
  const URL png = folder.write("x.png", "stripped");
  const auto remember = [&](const std::string& made, const std::string& from) {
    memory.remember({made, from, Date::now(), {}, {}, fileSize(png), ""});
  };
  const KnownFiles known(memory, {});
  remember("full", hash(heic));
  EXPECT_FALSE(known.find(heic, true));
  remember(hash(png), "full");
  EXPECT_TRUE(known.find(heic, true));
}

TEST_F(BatchTest, ADryRunChangesNothing) {
  const Texts before = contents("in");
  const auto values = files::resourceValues(folder / "in/a.jpg");
  folder.write("tmp/mine", "");
  for (const bool writes : {false, true}) {
    const BatchOptions options{.dryRun = true,
                               .output = writes ? std::optional(folder / "out") : std::nullopt};
    const Texts texts = compress({"in", "gone"}, options);
    EXPECT_EQ(texts, (Texts{{"in/a.jpg", writes ? "written" : "replaced"},
                            {"in/sub/b.jpg", writes ? "written not_smaller" : "skipped not_smaller"},
                            {"in/c.gif", "failed 图片无法解码"},
                            {"gone", "failed 2"}}));
    EXPECT_EQ(reports.at("in/a.jpg").finalBytes, fileSize(tools.answer("jpegli-420-72.jpg")));
    EXPECT_EQ(reports.at("in/a.jpg").score, 70.5);
    EXPECT_EQ(contents("in"), before);
    EXPECT_EQ(files::resourceValues(folder / "in/a.jpg"), values);
    EXPECT_EQ(contents("tmp"), (Texts{{"tmp/mine", ""}}));
    for (const char* name : {"data", "out"}) EXPECT_FALSE(files::exists(folder / name)) << name;
    EXPECT_FALSE(memory.knowsNothingSmaller(hash(folder / "in/sub/b.jpg"), conditions));
  }
  // It fails where the copies would: at a name of two, and where nothing can be written, also what is known.
  photo("other/a.jpg", 90);
  const BatchOptions copies{.dryRun = true, .output = folder / "out", .ahead = 1};
  EXPECT_EQ(compress({"in/a.jpg", "other/a.jpg"}, copies),
            (Texts{{"in/a.jpg", "written"}, {"other/a.jpg", "failed " + std::to_string(EEXIST)}}));
  compress({"in/sub/b.jpg"});
  EXPECT_EQ(compress({"in/sub/b.jpg"}, {.dryRun = true, .output = folder / "tmp/mine/out"}),
            (Texts{{"in/sub/b.jpg", "failed " + std::to_string(ENOTDIR)}}));
}

TEST_F(BatchTest, WritesCopiesAndLeavesTheOriginals) {
  photo("in/taken.jpg", 95);
  folder.write("out/in/taken.jpg", "mine");
  folder.write("notes.txt", "");
  chmod((folder / "in/a.jpg").path().c_str(), 0640);
  const files::Times past{.accessed = {1000, 0}, .modified = {2000, 5}};
  for (const char* name : {"in/a.jpg", "in/sub/b.jpg"}) files::setTimes(folder / name, past);
  const Texts before = contents("in");
  const std::string small = files::read(tools.answer("jpegli-420-72.jpg"));
  const auto isPast = [&](const std::string& name) {
    return files::times(folder / name).modified.tv_sec == past.modified.tv_sec;
  };
  for (const bool keeps : {true, false}) {
    const std::string out = keeps ? "out" : "out2";
    const BatchOptions options{.compression = {.keepTimes = keeps}, .output = folder / out};
    Texts texts = compress({"in", "notes.txt", "in/a.jpg"}, options);
    EXPECT_EQ(texts.extract("in/taken.jpg").mapped(), keeps ? "failed " + std::to_string(EEXIST) : "written");
    EXPECT_EQ(texts, (Texts{{"in/a.jpg", "written"},
                            {"in/sub/b.jpg", keeps ? "written not_smaller" : "written already_compressed"},
                            {"in/c.gif", "failed 图片无法解码"},
                            {"notes.txt", "skipped unsupported"}}));
    EXPECT_EQ(contents(out), (Texts{{out + "/in/a.jpg", small},
                                    {out + "/in/taken.jpg", keeps ? "mine" : small},
                                    {out + "/in/sub/b.jpg", before.at("in/sub/b.jpg")}}));
    EXPECT_EQ(contents("in"), before);
    EXPECT_EQ(reports.at("in/a.jpg").output, folder / (out + "/in/a.jpg"));
    struct stat info {};
    EXPECT_EQ(stat((folder / (out + "/in/a.jpg")).path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640U);
    for (const char* name : {"/in/a.jpg", "/in/sub/b.jpg"}) EXPECT_EQ(isPast(out + name), keeps) << name;
  }
  EXPECT_TRUE(undo.readRecords().empty() && !files::exists(undo.diagnosticsDirectory()));
  // The copies are outputs, too.
  EXPECT_EQ(compress({"out2/in/a.jpg"}), (Texts{{"out2/in/a.jpg", "skipped already_compressed"}}));
  // Where nothing can be written, nothing is lost.
  folder.write("file", "");
  EXPECT_EQ(compress({"in/a.jpg"}, {.output = folder / "file"}), (Texts{{"in/a.jpg", "failed 17"}}));
  tools.first("echo more >> '" + (folder / "in/a.jpg").path() + "'");
  EXPECT_EQ(compress({"in/a.jpg"}, {.output = folder / "out3"}),
            (Texts{{"in/a.jpg", "failed 原文件在压缩过程中被其他程序修改"}}));
  EXPECT_TRUE(contents("out3").empty());
  // What is about to stand under a name is remembered before it does.
  OutputMemory other(folder / "other.db");
  FolderWalk changing = walk({"in/a.jpg"});
  Batch(CompressionEngine(ToolRunner(tools.directory()), undo, {}), queue, &other)
      .run([&] { return changing.next(); }, {}, {});
  EXPECT_TRUE(undo.readRecords().empty() && other.output(hash(tools.answer("jpegli-420-72.jpg"))));
}

TEST_F(BatchTest, ConvertsOnceAndUnderNamesOfTheOriginalsFolder) {
  TIDEWELL_NEEDS_HEIF_ENCODER();
  files::createDirectory(folder / "heic");
  test::encodeHEIC(test::slopes()).write(folder / "heic/x.heic");
  folder.write("heic/x.png", "no picture");
  const test::Raster flat{96, 64, [](int, int) { return test::Pixel{90, 90, 60, 255}; }};
  test::writePNGFile(tools.answer("quant-0.png"), flat);
  const Texts texts = compress({"heic"}, {.output = folder / "out"});
  EXPECT_EQ(texts.at("heic/x.heic"), "written");
  EXPECT_EQ(reports.at("heic/x.heic").output, folder / "out/heic/x（潮汐井1）.png");
  const CompressionOptions demanding{.minimumSaving = MinimumSaving{.percent = 100}};
  EXPECT_EQ(compress({"heic/x.heic"}, {.compression = demanding, .output = folder / "out"}),
            (Texts{{"heic/x.heic", "written below_minimum"}}));
  EXPECT_EQ(files::read(folder / "out/x.heic"), files::read(folder / "heic/x.heic"));
  auto stripping = demanding;  // which no copy of the HEIC file would be
  stripping.stripMetadata = true;
  EXPECT_EQ(compress({"heic/x.heic"}, {.compression = stripping, .output = folder / "stripped"}),
            (Texts{{"heic/x.heic", "written"}}));
  EXPECT_EQ(contents("stripped").begin()->first, "stripped/x（潮汐井1）.png");
  files::copyItem(folder / "heic/x.heic", folder / "heic/x.HEIF");  // of one PNG's name
  for (const char* outcome : {"written", "failed 17"}) {            // the second run finds both taken
    for (const auto& [path, said] : compress({"heic/x.heic", "heic/x.HEIF"}, {.output = folder / "one"})) {
      EXPECT_EQ(said, outcome) << path;
    }
    for (const char* png : {"one/x（潮汐井1）.png", "one/x（潮汐井2）.png"}) {
      EXPECT_TRUE(files::exists(folder / png)) << png;
    }
  }
  files::removeItem(folder / "heic/x.HEIF");
  const std::string heic = "heic/x.heic", png = "png/x（潮汐井1）.png";  // the name of both in one folder
  files::createDirectory(folder / "png");
  test::writePNGFile(folder / png, flat);
  for (const bool rehearses : {true, false}) {
    const auto meeting = [&](const std::vector<std::string>& names) {
      return compress(names, {.dryRun = rehearses, .output = folder / ("from " + names[0]), .ahead = 1});
    };
    EXPECT_EQ(meeting({heic, png}), (Texts{{heic, "written"}, {png, "failed 17"}}));
    EXPECT_EQ(meeting({png, heic}),
              (Texts{{heic, "written"}, {png, "written already_compressed"}}));  // the same bytes
    EXPECT_EQ(reports.at(heic).output->lastPathComponent(), "x（潮汐井2）.png");
  }
  EXPECT_EQ(contents("from " + png).size(), 2U);
  EXPECT_EQ(compress({"heic/x.heic"}, {.dryRun = true}).at("heic/x.heic"), "converted");
  const auto planned = reports.at("heic/x.heic");
  EXPECT_EQ(compress({"heic/x.heic"}).at("heic/x.heic"), "converted");
  const auto report = reports.at("heic/x.heic");
  EXPECT_EQ(report.output, folder / "heic/x（潮汐井1）.png");
  EXPECT_EQ(report.output, planned.output);
  EXPECT_EQ(report.finalBytes, planned.finalBytes);
  const Texts known = compress({"heic"});
  EXPECT_EQ(known.at("heic/x.heic"), "skipped already_compressed");
  EXPECT_EQ(known.at("heic/x（潮汐井1）.png"), "skipped already_compressed");
  undo.restore(undo.readRecords().at(0));  // which takes the PNG away
  EXPECT_EQ(compress({"heic/x.heic"}).at("heic/x.heic"), "converted");
}

TEST_F(BatchTest, HoldsFewFilesAtOnceAndEndsEarly) {
  for (int i = 0; i < 60; ++i) folder.write("many/" + std::to_string(i) + ".jpg", "no picture");
  const CompressionEngine engine(ToolRunner(tools.directory(), stop.token()), undo, {});
  Batch batch(engine, queue, nullptr);
  enum class End { ofTheList, bySource, byObserver, byItsOwnStop, byStop };
  for (const End end : {End::ofTheList, End::bySource, End::byObserver, End::byItsOwnStop, End::byStop}) {
    StopSource own;
    FolderWalk files(namedPaths({(folder / "many").path()}), {}, stop.token());
    std::size_t taken = 0, told = 0, interrupted = 0;
    std::atomic<std::size_t> started = 0;
    const auto next = [&]() -> std::optional<Found> {
      EXPECT_LT(taken - told, 8U);
      if (end == End::bySource && taken == 20) throw std::runtime_error("source");
      auto file = files.next();
      taken += file ? 1 : 0;
      return file;
    };
    const auto finished = [&](const FileReport& report) {
      EXPECT_EQ(report.outcome, FileReport::Outcome::failed);
      EXPECT_LT(report.number, taken);
      if (said(report) == "failed " + std::string(Interrupted().what())) ++interrupted;
      ++told;
      if (end == End::byObserver && told == 20) throw std::runtime_error("observer");
      if (end == End::byItsOwnStop && told == 20) own.requestStop();
      if (end == End::byStop && told == 20) stop.stop();
    };
    const auto run = [&] {
      batch.run(next, {.stop = own.token()},
                {.started = [&](const Found&) { ++started; }, .finished = finished});
    };
    if (end == End::bySource || end == End::byObserver) {
      EXPECT_THROW(run(), std::runtime_error);
      EXPECT_LT(told, 60U);
    } else {
      run();
      EXPECT_EQ(told, taken);
      EXPECT_EQ(end == End::byStop, taken < 60);
    }
    // A stop also reaches files that have started.
    EXPECT_LE(started, taken);
    EXPECT_GE(started + interrupted, taken);
    EXPECT_TRUE(interrupted == 0 || end == End::byItsOwnStop || end == End::byStop);
    EXPECT_TRUE(interrupted > 0 || end != End::byItsOwnStop);
  }
}

TEST_F(BatchTest, TellsHowMuchWillBeBackedUp) {
  const auto total = fileSize(folder / "in/a.jpg") + fileSize(folder / "in/sub/b.jpg") + 10;
  EXPECT_TRUE(exceeds(walk({"in", "in/a.jpg"}), total - 1));
  EXPECT_FALSE(exceeds(walk({"in", "in/a.jpg"}), total));
  EXPECT_EQ(backupBytes(undo), 0);
  compress({"in"});
  EXPECT_EQ(backupBytes(undo), reports.at("in/a.jpg").originalBytes);
}

}  // namespace
}  // namespace tidewell
