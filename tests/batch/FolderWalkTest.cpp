// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/FolderWalk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/UUID.h"
#include "support/Faults.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using Lines = std::vector<std::string>;

/// A line for each file found, its path in a tree of copies, "!" and an errno value in place of one.
Lines found(FolderWalk walk) {
  Lines lines;
  while (const auto file = walk.next()) {
    std::string line = (file->isNamed ? "=" : "") + file->treePath;
    try {
      if (file->error) std::rethrow_exception(file->error);
    } catch (const FileError& error) {
      line += "!" + std::to_string(error.code());
    }
    lines.push_back(line);
  }
  return lines;
}

class FolderWalkTest : public testing::Test {
 protected:
  FolderWalkTest() {
    for (const char* name :
         {"t/b.jpg", "t/a.PNG", "t/raw/c.heic", "t/raw/x/d.gif", "t/.h/e.jpg", "t/.f.jpg", "t/notes.txt",
          "t/.tidewell-1/g.jpg", "t/z.jpg", "out/o.jpg", "u/.v.png", backup.c_str()}) {
      folder.write(name, "12345");
    }
    folder.write(backup.substr(0, backup.rfind('.')) + ".json", "{}");
    const auto link = [&](const char* target, const char* name) {
      EXPECT_EQ(symlink(target, (folder / name).path().c_str()), 0);
    };
    link("b.jpg", "t/link.jpg");
    link("raw", "t/linked");
    link("t", "way");
    mkfifo((folder / "t/pipe.jpg").path().c_str(), 0600);
  }
  Lines walk(const Lines& names, const WalkOptions& options = {}) const {
    Lines paths;
    paths.reserve(names.size());
    for (const auto& name : names) paths.push_back(folder.url().path() + "/" + name);
    return found(FolderWalk(namedPaths(paths), options));
  }
  const std::string backup = "u/.x/" + UUID::random().string() + "/" + UUID::random().string() + ".jpg";
  const test::TemporaryFolder folder;
};

TEST_F(FolderWalkTest, FindsWhatIsToBeCompressed) {
  const Lines all{"t/a.PNG", "t/b.jpg", "t/raw/c.heic", "t/raw/x/d.gif", "t/z.jpg"};
  const struct {
    Lines names;
    WalkOptions options;
    Lines expected;
  } rows[] = {
      {{"t"}, {}, all},
      {{"t/", "t/b.jpg", "./t//raw", "way"}, {}, all},  // each once, by whatever way
      {{"t/b.jpg", "t"}, {}, {"=b.jpg", "t/a.PNG", "t/raw/c.heic", "t/raw/x/d.gif", "t/z.jpg"}},
      {{"way/raw"}, {}, {"raw/c.heic", "raw/x/d.gif"}},
      {{"t/raw/."}, {}, {"c.heic", "x/d.gif"}},  // contents, as cp has it
      {{"t/notes.txt", "u/.v.png", "t/link.jpg"}, {}, {"=notes.txt", "=.v.png", "=link.jpg"}},
      {{"u"}, {}, {}},
      {{"u", "t/.h"}, {.hidden = true}, {"u/.v.png", ".h/e.jpg"}},
      {{"t"}, {.excludes = {"raw"}}, {"t/a.PNG", "t/b.jpg", "t/z.jpg"}},
      {{"t"}, {.excludes = {"raw/x/", "[a-b].*"}}, {"t/raw/c.heic", "t/z.jpg"}},
      {{"t"}, {.excludes = {"raw/d.gif", "t/*", "c.*"}}, {"t/a.PNG", "t/b.jpg", "t/raw/x/d.gif", "t/z.jpg"}},
      {{"t/raw"}, {.excludes = {"raw"}}, {"raw/c.heic", "raw/x/d.gif"}},  // named paths are not asked
      {{"t"},
       {.excludes = {"[abz].*"}, .leftOut = {folder / "none", folder / "way/../t/raw/x"}},
       {"t/raw/c.heic"}},
      {{"gone", "t/raw", "t/b.jpg/x"}, {}, {"=gone!2", "raw/c.heic", "raw/x/d.gif", "=x!20"}},
  };
  for (const auto& [names, options, expected] : rows) {
    EXPECT_EQ(walk(names, options), expected) << testing::PrintToString(names);
  }
  EXPECT_EQ(found(FolderWalk(namedPaths({""}), {})), Lines{"=!2"});
  FolderWalk walk(namedPaths({(folder / "t").path()}), {.leftOut = {folder / "t/raw/new"}});
  EXPECT_EQ(walk.next()->url, folder / "t/a.PNG");
  EXPECT_EQ(walk.next()->bytes, 5);
  folder.write("t/raw/new/copy.jpg", "");  // the copies go there once there are any
  EXPECT_EQ(found(std::move(walk)), (Lines{"t/raw/c.heic", "t/raw/x/d.gif", "t/z.jpg"}));
}

TEST_F(FolderWalkTest, GoesOnAfterAFailure) {
  const WalkOptions options{.leftOut = {folder / "none"}};
  const Lines all = walk({"t", "out"}, options);
  for (int point = 1;; ++point) {
    test::Faults faults;
    faults.fail(point, EIO);
    const Lines lines = walk({"t", "out"}, options);
    if (!faults.happened()) break;
    std::size_t failed = 0, rest = 0;
    for (const auto& line : lines) line.ends_with("!5") ? ++failed : rest += std::ranges::count(all, line);
    EXPECT_EQ(failed, 1U) << faults.where();
    EXPECT_EQ(rest + 1, lines.size());
    EXPECT_TRUE(lines.back() == "out/o.jpg" || lines.back().starts_with("=out!") ||
                lines.back() == "out/o.jpg!5");
  }
}

TEST_F(FolderWalkTest, ReadsPathsAsTheyCome) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Descriptor writing(ends[1]);
  StopSource stop;
  PathSource paths = nulSeparatedPaths(Descriptor(ends[0]), folder / "list", stop.token());
  const auto write = [&](const std::string& text) {
    ASSERT_EQ(::write(writing.get(), text.data(), text.size()), std::ssize(text));
  };
  const std::string longPath(100'000, 'x');
  write(std::string("a\nb\0\0c\0", 7));
  EXPECT_EQ(paths(), "a\nb");
  EXPECT_EQ(paths(), "c");
  fcntl(writing.get(), F_SETPIPE_SZ, 1 << 20);
  write(longPath + std::string("\0last", 5));
  EXPECT_EQ(paths(), longPath);
  std::thread stopping([&] { stop.requestStop(); });
  EXPECT_EQ(paths(), std::nullopt);  // what the pipe holds of a path is none
  stopping.join();
}

}  // namespace
}  // namespace tidewell
