// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/platform/Digest.h"
#include "TidewellDesktop/models/FileIntake.h"
#include "TidewellDesktop/models/FileListProxy.h"
#include "TidewellDesktop/models/Settings.h"
#include "TidewellDesktop/models/Thumbnails.h"
#include "desktop/PrivateBus.h"
#include "support/TestImages.h"

namespace tidewell::desktop {
namespace {

using test::eventually;
using test::TemporaryFolder;
using Column = FileListModel::Column;

FileRow row(const std::string& name, RowState state, std::int64_t before = 0, std::int64_t after = 0) {
  FileRow result{.url = URL::file("/p/" + name), .state = state, .before = before};
  if (isDone(state)) result.after = after;
  return result;
}

TEST(CoreList, CountsAndFindsRows) {
  FileListModel list;
  const QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::Fatal);
  FileListProxy shown(list);
  const QAbstractItemModelTester proxyTester(&shown, QAbstractItemModelTester::FailureReportingMode::Fatal);
  QSignalSpy changes(&list, &FileListModel::dataChanged);

  list.add({row("b.jpg", RowState::waiting, 1000), row("a.png", RowState::waiting, 9),
            row("b.jpg", RowState::waiting, 2000), row("\xff.gif", RowState::waiting, 400),
            row("old.gif", RowState::alreadyCompressed, 70, 70)});
  ASSERT_EQ(list.rowCount(), 4) << "a file named twice is one";
  EXPECT_EQ(list.totals(), (FileListModel::Totals{.files = 3}));
  FileRow failed = row("a.png", RowState::failed, 9);
  failed.after.reset();
  failed.why = "no";
  list.update({row("b.jpg", RowState::replaced, 2000, 500), failed, row("unknown.jpg", RowState::failed),
               row("\xff.gif", RowState::converted, 400, 600)});
  EXPECT_EQ(changes.size(), 1) << "neighbours are told of together";
  EXPECT_EQ(list.totals(),
            (FileListModel::Totals{.files = 3, .done = 3, .failed = 1, .savedBytes = 1500, .ofBytes = 2409}));
  EXPECT_EQ(list.index(0, Column::Saved).data().toString(), "1.5 kB (75%)");
  EXPECT_EQ(list.index(2, Column::Saved).data().toString(), "200 B more (50%)");
  EXPECT_EQ(list.index(1, Column::State).data().toString(), "Failed: no");
  EXPECT_EQ(list.index(2, Column::Name).data().toString(), QString::fromUtf8("\xef\xbf\xbd.gif"));
  EXPECT_EQ(list.index(2, 0).data(FileListModel::PathRole).toByteArray(), "/p/\xff.gif");

  const auto names = [&] {
    QStringList result;
    for (int at = 0; at < shown.rowCount(); ++at) result << shown.index(at, Column::Name).data().toString();
    return result;
  };
  shown.sort(Column::Before, Qt::DescendingOrder);
  EXPECT_EQ(names().front(), "b.jpg");
  shown.setShown(FileListProxy::Shown::passedOver);
  EXPECT_EQ(names(), QStringList("old.gif"));
  shown.setShown(FileListProxy::Shown::all);
  shown.setFilterFixedString("A.P");
  EXPECT_EQ(names(), QStringList("a.png"));
  EXPECT_EQ(shown.fileRow(shown.index(0, 0)).why, "no");
  list.update({row("b.jpg", RowState::restored, 2000)});
  EXPECT_EQ(list.totals(),
            (FileListModel::Totals{.files = 3, .done = 3, .failed = 1, .restored = 1, .ofBytes = 409}));
  list.add({row("a.png", RowState::waiting, 9)});  // done again, in its place
  EXPECT_EQ(list.totals().done, 2);
  list.removeAll();
  EXPECT_EQ(list.totals(), FileListModel::Totals());
}

TEST(CoreIntake, FindsPicturesAndPassesOverWhatIsKnown) {
  const TemporaryFolder folder;
  const auto picture = [&](const char* name, unsigned shade) {
    URL file = folder.write(name, "");
    test::writePNGFile(file, test::photoRaster(32, 24, shade));
    return file;
  };
  const URL fresh = picture("in/a.png", 1), known = picture("in/b.png", 2);
  const URL text = folder.write("notes.txt", "x");
  folder.write("in/readme.txt", "x");
  const URL memory = folder / "outputs.db";
  OutputMemory(memory).remember({.hash = hash(known),
                                 .madeFrom = "0",
                                 .when = Date::now(),
                                 .encoder = {},
                                 .score = 91,
                                 .bytes = fileSize(known),
                                 .tools = {}});

  FileIntake intake(memory, folder.url());
  std::vector<FileRow> found;
  QSignalSpy finished(&intake, &FileIntake::finished);
  QObject::connect(&intake, &FileIntake::found, [&](const std::vector<FileRow>& rows) {
    found.insert(found.end(), rows.begin(), rows.end());
  });
  intake.add({folder / "in", text, folder / "gone", fresh});
  ASSERT_TRUE(eventually([&] { return finished.size() == 1; }));
  ASSERT_EQ(found.size(), 4U);
  EXPECT_EQ(found[0].url, fresh);
  EXPECT_EQ(found[0].state, RowState::waiting);
  EXPECT_EQ(found[0].before, fileSize(fresh));
  EXPECT_EQ(found[1].state, RowState::alreadyCompressed);
  EXPECT_EQ(found[1].score, 91);
  EXPECT_EQ(found[2].state, RowState::skipped);
  EXPECT_EQ(found[2].why, "not a supported format");
  EXPECT_EQ(found[3].state, RowState::failed);
  EXPECT_TRUE(found[3].why.contains("there is no such file"));
  found.clear();
  intake.add({known}, true);
  ASSERT_TRUE(eventually([&] { return finished.size() == 2; }));
  EXPECT_EQ(found.at(0).state, RowState::waiting);
}

TEST(CoreSettings, ChangeOnlyTheirOwnLines) {
  const std::string off = "KeepMetadata=false\nKeepTimes=true\nNotifyAtEnd=true\nCompressAtOnce=true\n";
  const std::pair<std::string, std::string> cases[] = {
      {"", "[Desktop]\n" + off},
      {"[Tidewell]\nTidewellCommandToken=KeepMetadata=true",
       "[Tidewell]\nTidewellCommandToken=KeepMetadata=true\n\n[Desktop]\n" + off},
      {"# x\r\n[Desktop]\nKeepTimes = true\nOther=1\n\xff\n[Tidewell]\nKeepTimes=false\n",
       "# x\r\n[Desktop]\n" + off + "Other=1\n\xff\n[Tidewell]\nKeepTimes=false\n"},
      {"[Desktop]\nKeepTimes=false\n[Desktop]\nKeepTimes=true\nNotifyAtEnd=maybe",
       "[Desktop]\n" + off + "[Desktop]\n"},
      {"[Desktop]", "[Desktop]\n" + off},
  };
  for (const auto& [before, after] : cases) {
    const TemporaryFolder folder;
    const bool isNew = before.empty();
    const URL file = folder / "real.conf", link = isNew ? file : folder / "tidewell.conf";
    if (!isNew) {
      folder.write("real.conf", before);
      ASSERT_EQ(symlink("real.conf", link.path().c_str()), 0);
      ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
    }
    {
      Settings settings(link);
      auto values = settings.values();
      EXPECT_TRUE(values.keepTimes && values.notifyAtEnd && !values.compressAtOnce) << before;
      values.keepMetadata = false;
      settings.set(values);
      values.compressAtOnce = true;
      settings.set(values);
    }
    EXPECT_EQ(files::read(file), after);
    struct stat info {};
    stat(file.path().c_str(), &info);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_NE(files::resourceValues(link).isSymbolicLink, isNew);
    EXPECT_TRUE(Settings(link).values().compressAtOnce);
  }
  // What cannot be a file of ours is left alone, and said.
  const TemporaryFolder folder;
  ASSERT_EQ(mkfifo((folder / "pipe").path().c_str(), 0600), 0);
  Settings settings(folder / "pipe");
  QSignalSpy failed(&settings, &Settings::saveFailed);
  settings.set({.keepTimes = false});
  EXPECT_TRUE(eventually([&] { return !failed.isEmpty(); }));
}

TEST(CoreThumbnails, MakeOnlyWhatIsStillWanted) {
  const TemporaryFolder folder;
  std::vector<URL> files;
  for (unsigned number = 0; number < 40; ++number) {
    files.push_back(folder.write(std::to_string(number) + ".png", ""));
    test::writePNGFile(files.back(), test::photoRaster(32, 24, number));
  }
  files[1] = folder.write("broken.png", "no picture");
  constexpr int bytes = 4 * 16 * 12 * 4;  // for four pictures
  Thumbnails thumbnails(16, bytes);
  QStringList made;
  QObject::connect(&thumbnails, &Thumbnails::ready, [&](const QByteArray& path) { made << path; });
  thumbnails.want(files);
  const URL last = files.back();
  thumbnails.want({last});
  const auto path = QByteArray::fromStdString(last.path());
  ASSERT_TRUE(eventually([&] { return !thumbnails.image(path).isNull(); }));
  EXPECT_LE(made.size(), 3) << "those that were begun, and the last";
  EXPECT_LE(std::max(thumbnails.image(path).width(), thumbnails.image(path).height()), 16);
  made.clear();
  thumbnails.want({files[2], files[3], files[4], files[5]});
  ASSERT_TRUE(eventually([&] { return made.size() == 4; }));
  EXPECT_TRUE(thumbnails.image(path).isNull()) << "the oldest went for the newest";
  EXPECT_TRUE(thumbnails.image(QByteArray::fromStdString(files[1].path())).isNull());
}

}  // namespace
}  // namespace tidewell::desktop
