// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/URL.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

TEST(URL, TakesPathsApart) {
  const struct {
    const char *path, *last, *extension, *stem, *parent;
  } cases[] = {
      {"/a/photo.JPG", "photo.JPG", "JPG", "photo", "/a"}, {"/a/.jpg", ".jpg", "", ".jpg", "/a"},
      {"/a.b/photo", "photo", "", "photo", "/a.b"},        {"/photo.", "photo.", "", "photo.", "/"},
      {"/a/x.tar.gz/", "x.tar.gz", "gz", "x.tar", "/a"},   {"/", "/", "", "/", "/"},
  };
  for (const auto& c : cases) {
    const URL url = URL::file(c.path);
    EXPECT_EQ(url.lastPathComponent(), c.last) << c.path;
    EXPECT_EQ(url.pathExtension(), c.extension) << c.path;
    EXPECT_EQ(url.stem(), c.stem) << c.path;
    EXPECT_EQ(url.deletingLastPathComponent().path(), c.parent) << c.path;
  }
}

TEST(URL, ResolvesRelativePathsAgainstTheCurrentDirectoryOnly) {
  char* current = get_current_dir_name();
  EXPECT_EQ(URL::file("./a/../b.png").path(), std::string(current) + "/./a/../b.png");
  free(current);
  EXPECT_EQ(URL::file("/a/./b//../c.png").standardized().path(), "/a/c.png");
}

TEST(URL, Parses) {
  const auto command = URL::parse("tidewell-background://compress?token=a%3Db&files=W10%3D+/&empty#x");
  ASSERT_TRUE(command);
  EXPECT_EQ(command->scheme(), "tidewell-background");
  EXPECT_EQ(command->host(), "compress");
  ASSERT_TRUE(command->queryItems());
  const std::vector<URL::QueryItem> expected = {
      {"token", "a=b"}, {"files", "W10=+/"}, {"empty", std::nullopt}};
  EXPECT_EQ(*command->queryItems(), expected);

  EXPECT_EQ(URL::parse("Tidewell-Background://Compress")->host(), "Compress");
  EXPECT_FALSE(URL::parse("Tidewell-Background://Compress")->queryItems());
  EXPECT_EQ(URL::parse("file:///a%20b/%E6%BD%AE%FF.png"), URL::file("/a b/潮\xFF.png"));
  EXPECT_EQ(URL::parse("file://localhost/a.png"), URL::file("/a.png"));
  for (const char* bad :
       {"", "/plain/path", "1x:/", "file://elsewhere/a.png", "file:///a%00b", "file:relative"}) {
    EXPECT_FALSE(URL::parse(bad)) << bad;
  }
}

TEST(URL, ResolvesTheLinksOfWhatExists) {
  const test::TemporaryFolder folder;
  folder.write("real/photo.jpg", "");
  const auto path = [&](const char* name) { return (folder / name).path(); };
  ASSERT_EQ(symlink("real", path("linked").c_str()), 0);
  ASSERT_EQ(symlink("real/photo.jpg", path("link.jpg").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
  const auto resolved = [](const std::string& text) { return URL::file(text).resolvingSymlinks().path(); };
  EXPECT_EQ(resolved(path("linked/photo.jpg")), resolved(path("link.jpg")));
  for (const char* name : {"linked/photo.jpg", "linked/missing.jpg", "linked", "link.jpg", "dangling",
                           "dangling/photo.jpg", "missing/photo.jpg", "linked/photo.jpg/below"}) {
    EXPECT_EQ(resolved(path(name)), std::filesystem::weakly_canonical(path(name))) << name;
  }
  for (const char* root : {"/", "/missing.jpg"}) EXPECT_EQ(resolved(root), root);
}

}  // namespace
}  // namespace tidewell
