// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/UUID.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::errnoOf;
using test::TemporaryFolder;

struct stat status(const URL& url) {
  struct stat info {};
  EXPECT_EQ(stat(url.path().c_str(), &info), 0) << url.path();
  return info;
}

std::string tag(const URL& url) {
  char value[64];
  const auto size = getxattr(url.path().c_str(), "user.tidewell", value, sizeof value);
  return size < 0 ? "" : std::string(value, static_cast<std::size_t>(size));
}

TEST(Files, CopiesWholeFilesOrTheirAttributes) {
  const TemporaryFolder folder;
  const URL source = folder.write("a.jpg", std::string(3'000'000, 'x').append("end")),
            copy = folder / "b.jpg";
  const timespec times[2] = {{.tv_sec = 1'000'000, .tv_nsec = 5}, {.tv_sec = 2'000'000, .tv_nsec = 7}};
  ASSERT_EQ(chmod(source.path().c_str(), 0604), 0);
  const bool tagged = setxattr(source.path().c_str(), "user.tidewell", "red", 3, 0) == 0;
  ASSERT_EQ(utimensat(AT_FDCWD, source.path().c_str(), times, 0), 0);
  const URL candidate = folder.write("c.jpg", "candidate");
  files::copyItem(source, copy);
  files::copyAttributes(source, candidate);
  for (const URL& url : {copy, candidate}) {
    EXPECT_EQ(status(url).st_mode & 07777, 0604U);
    EXPECT_EQ(tag(url), tagged ? "red" : "");
  }
  EXPECT_EQ(hash(copy), hash(source));
  EXPECT_EQ(files::resourceValues(copy).bytes, files::resourceValues(source).bytes);
  EXPECT_EQ(files::resourceValues(copy).modifiedAt, files::resourceValues(source).modifiedAt);
  EXPECT_EQ(files::read(candidate), "candidate");
  EXPECT_NE(status(candidate).st_mtim.tv_sec, 2'000'000);
  removexattr(source.path().c_str(), "user.tidewell");
  files::copyAttributes(source, candidate);
  EXPECT_EQ(tag(candidate), "") << "a tag that is gone";

  EXPECT_EQ(errnoOf([&] { files::copyItem(source, copy); }), EEXIST);
  EXPECT_EQ(errnoOf([&] { files::copyItem(folder.url(), folder / "d"); }), EISDIR);
  EXPECT_FALSE(files::exists(folder / "d"));
}

TEST(Files, TakesNoFileFromItsOwnerAndGivesNoGroupMore) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a file of another user";
  constexpr uid_t user = 65534, other = 1234;
  const TemporaryFolder folder;
  const URL source = folder.write("a.jpg", "original"), candidate = folder.write("c.jpg", "candidate");
  ASSERT_EQ(chmod(folder.url().path().c_str(), 0755), 0);
  ASSERT_EQ(chown(candidate.path().c_str(), user, user), 0);
  const struct {
    uid_t owner;
    gid_t group;
    mode_t mode;
    int error;
    mode_t expected;
  } rows[] = {{other, other, 0664, EPERM, 0644}, {user, other, 0664, 0, 0644}, {user, user, 0664, 0, 0664}};
  for (const auto& row : rows) {
    ASSERT_EQ(chown(source.path().c_str(), row.owner, row.group), 0);
    ASSERT_EQ(chmod(source.path().c_str(), row.mode), 0);
    ASSERT_EQ(chmod(candidate.path().c_str(), 0644), 0);
    setfsuid(user);
    const int error = errnoOf([&] { files::copyAttributes(source, candidate); });
    setfsuid(0);
    EXPECT_EQ(error, row.error) << row.owner;
    EXPECT_EQ(status(candidate).st_mode & 07777, row.expected) << row.owner << ":" << row.group;
  }
}

TEST(Files, WritesAllOrNothing) {
  const TemporaryFolder folder;
  const URL file = folder.write("a.json", "old");
  ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
  files::writeAtomically(file, "new");
  EXPECT_EQ(files::read(file), "new");
  EXPECT_EQ(status(file).st_mode & 07777, 0600U);
  // A directory in the way: the write fails and leaves no temporary file.
  files::createDirectory(folder / "d");
  EXPECT_NE(errnoOf([&] { files::writeAtomically(folder / "d", "x"); }), 0);
  EXPECT_EQ(files::contentsOfDirectory(folder.url()).size(), 2U);
}

TEST(Files, ReadsHeadsAndFilesOfUnknownLength) {
  const TemporaryFolder folder;
  const URL file = folder.write("a", std::string(2'500'000, 'y'));
  EXPECT_EQ(files::read(file).size(), 2'500'000U);
  EXPECT_EQ(files::read(file, 10), "yyyyyyyyyy");
  EXPECT_GT(files::read(URL::file("/proc/self/status")).size(), 100U);  // says it has no bytes
  EXPECT_EQ(errnoOf([&] { files::read(folder / "missing"); }), ENOENT);
  EXPECT_EQ(errnoOf([&] { files::read(folder.url()); }), EISDIR);
}

TEST(Files, MakesAndRemovesTrees) {
  const TemporaryFolder folder;
  const URL outside = folder.write("outside/kept", "x");
  files::createDirectories(folder / "a/b/c");
  files::createDirectories(folder / "a/b/c");
  ASSERT_EQ(symlink(outside.deletingLastPathComponent().path().c_str(), (folder / "a/link").path().c_str()),
            0);
  EXPECT_TRUE(files::resourceValues(folder / "a/link").isSymbolicLink);
  files::removeItem(folder / "a");
  EXPECT_FALSE(files::exists(folder / "a"));
  EXPECT_TRUE(files::exists(outside));
  EXPECT_EQ(errnoOf([&] { files::removeItem(folder / "a"); }), ENOENT);
  // Deeper than descriptors reach, and than a path may be long.
  Descriptor level(open(folder.url().path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int depth = 0; depth < 1500; ++depth) {
    ASSERT_EQ(mkdirat(level.get(), "ab", 0700), 0);
    level = Descriptor(openat(level.get(), "ab", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  files::removeItem(folder / "ab");
  EXPECT_FALSE(files::exists(folder / "ab"));
  EXPECT_EQ(errnoOf([&] { files::createDirectory(folder / "x/y"); }), ENOENT);
  EXPECT_EQ(errnoOf([&] { files::createDirectories(outside.appending("z")); }), ENOTDIR);
  EXPECT_EQ(errnoOf([&] { files::createDirectories(outside); }), EEXIST);
}

TEST(Files, FindsTheUsersPlaces) {
  const test::ScopedEnvironment home("HOME", "/home/someone");
  const struct {
    const char* name;
    URL (*place)();
    const char* byDefault;
    std::string below = {};
  } cases[] = {{"XDG_DATA_HOME", locations::applicationSupportDirectory, "/home/someone/.local/share"},
               {"XDG_CONFIG_HOME", locations::configurationDirectory, "/home/someone/.config"},
               {"XDG_STATE_HOME", locations::stateDirectory, "/home/someone/.local/state", "/tidewell"},
               {"TMPDIR", locations::temporaryDirectory, "/tmp"}};
  for (const auto& c : cases) {
    for (const char* unset : {static_cast<const char*>(nullptr), "", "relative"}) {
      const test::ScopedEnvironment variable(c.name, unset);
      EXPECT_EQ(c.place().path(), c.byDefault + c.below) << c.name;
    }
    const test::ScopedEnvironment variable(c.name, "/elsewhere/");
    EXPECT_EQ(c.place().path(), "/elsewhere" + c.below) << c.name;
  }
}

TEST(Digest, HashesAcrossPieces) {
  const TemporaryFolder folder;
  const char* ofNothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
  EXPECT_EQ(hash(folder.write("empty", "")), ofNothing);
  const std::string large(3'500'000, 'z');
  EXPECT_EQ(hash(folder.write("large", large)), hash(std::string_view(large)));
  EXPECT_EQ(fileSize(folder / "large"), 3'500'000);
  EXPECT_EQ(errnoOf([&] { fileSize(folder / "missing"); }), ENOENT);
}

TEST(UUID, RoundTripsInUpperCase) {
  const UUID uuid = UUID::random();
  EXPECT_EQ(uuid.string().size(), 36U);
  EXPECT_EQ(uuid.string()[14], '4');
  EXPECT_EQ(UUID::parse(uuid.string()), uuid);
  EXPECT_EQ(UUID::parse("01234567-89ab-cdef-0123-456789abcdef")->string(),
            "01234567-89AB-CDEF-0123-456789ABCDEF");
  for (const char* bad : {"", "01234567-89ab-cdef-0123-456789abcde", "01234567-89ab-cdef-0123_456789abcdef",
                          "g1234567-89ab-cdef-0123-456789abcdef"}) {
    EXPECT_FALSE(UUID::parse(bad)) << bad;
  }
}

TEST(Errors, TellTheUserWhatAndWhy) {
  EXPECT_STREQ(FileError("打开", "/a/照片.jpg", ENOENT).what(), "无法打开“照片.jpg”：文件不存在");
  EXPECT_EQ(localizedDescription(std::bad_alloc()), "内存不足");
  EXPECT_EQ(localizedDescription(std::make_exception_ptr(Interrupted())), Interrupted().what());
  EXPECT_EQ(localizedDescription(std::make_exception_ptr(42)), "内部错误");
}

}  // namespace
}  // namespace tidewell
