// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <algorithm>
#include <cstdlib>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/compare/CompareModel.h"
#include "TidewellDesktop/compare/ComparePage.h"
#include "TidewellDesktop/compare/PictureView.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell::desktop {
namespace {

using State = CompareModel::State;

TEST(CompareSteps, KeepAnimationsInStep) {
  struct Case {
    std::vector<double> original, result;
    std::vector<PlayerStep> steps;
  };
  const Case cases[] = {
      // By number, however long the result's frames are.
      {{0.1, 0.2}, {0.3, 0.3}, {{{0, 0}, 0.1}, {{1, 1}, 0.2}}},
      // By time: the result joined two frames.
      {{0.5, 0.25, 0.25}, {0.75, 0.25}, {{{0, 0}, 0.5}, {{1, 0}, 0.25}, {{2, 1}, 0.25}}},
      // A still picture stays.
      {{0.5, 0.5, 0.5}, {0.5}, {{{0, 0}, 0.5}, {{1, 0}, 0.5}, {{2, 0}, 0.5}}},
  };
  for (const Case& one : cases) EXPECT_EQ(stepsOf(one.original, one.result), one.steps);
}

TEST(CompareViewport, KeepsWhatIsLookedAt) {
  Viewport viewport;
  viewport.setWindow({400, 400});
  viewport.setPicture({1000, 500});
  EXPECT_DOUBLE_EQ(viewport.scale(), 0.4);
  viewport.setWindow({500, 400});
  EXPECT_DOUBLE_EQ(viewport.scale(), 0.5) << "what is fitted stays so";
  const QPointF anchor(130, 220), kept = viewport.toPicture(anchor);
  for (const double scale : {2.0, 7.0, 1.0}) {
    viewport.zoomTo(scale, anchor);
    EXPECT_NEAR(viewport.toPicture(anchor).x(), kept.x(), 1e-9) << scale;
    EXPECT_NEAR(viewport.toWindow(kept).y(), anchor.y(), 200) << scale;
  }
  viewport.pan({1e6, 1e6});
  EXPECT_EQ(viewport.visible().topLeft(), QPointF(0, 0)) << "no room is wasted";
  viewport.zoomTo(0.001, anchor);
  EXPECT_TRUE(viewport.isFitted());
  EXPECT_EQ(viewport.visible(), QRectF(0, 0, 1000, 500));
}

class CompareTest : public testing::Test {
 protected:
  /// What replaced the file of a name, whose original lies in the store.
  UndoRecord replaced(const URL& file, const URL& replacement) const {
    UndoRecord record = store.prepare(file, replacement, UUID::random(), std::nullopt);
    files::removeItem(file);
    files::copyItem(replacement, file);
    store.commit(record);
    return record;
  }
  UndoRecord still(int width, int height) const {
    const URL file = folder / "photo.png", smaller = folder / "smaller.png";
    const test::Raster photo = test::photoRaster(width, height);
    test::writePNGFile(file, photo);
    test::writePNGFile(smaller, test::Raster(width, height, [&](int x, int y) {
                         test::Pixel pixel = photo.at(x, y);
                         pixel[0] = static_cast<std::uint8_t>(pixel[0] ^ (x == 7 ? 2 : 0));
                         return pixel;
                       }));
    return replaced(file, smaller);
  }
  static void waitFor(const std::function<bool()>& reached) { ASSERT_TRUE(QTest::qWaitFor(reached, 60'000)); }

  const test::TemporaryFolder folder;
  const test::ScopedEnvironment temporary{"TMPDIR", folder.url().path().c_str()},
      state{"XDG_STATE_HOME", folder.url().path().c_str()};
  const UndoStore store{folder / "Undo"};
};

TEST_F(CompareTest, ShowsLargePicturesByTilesThatAreSeen) {
  CompareModel model(store);
  model.open(still(3000, 400));
  EXPECT_EQ(model.state(), State::loading);
  waitFor([&] { return model.tiles().isOpen(); });
  EXPECT_EQ(model.size(Picture::result), QSize(3000, 400));
  EXPECT_EQ(model.whole(Picture::original).width(), 2560);
  ASSERT_TRUE(model.hasDifference());

  PictureView view(model);
  view.resize(600, 300);
  view.setShown(PictureView::Shown::difference);
  view.showActualSize();
  const auto key = [](int column) {
    return TileKey{.picture = Picture::difference, .reduction = 1, .column = column, .row = 0};
  };
  view.grab();
  waitFor([&] { return model.tiles().find(key(2)) != nullptr && model.tiles().find(key(3)) != nullptr; });
  EXPECT_EQ(model.tiles().find(key(0)), nullptr) << "nobody sees it";
  // Whoever moves on has no use for what was to be seen before.
  for (int i = 0; i < 80; ++i) QTest::keyClick(&view, Qt::Key_Left);
  view.grab();
  waitFor([&] { return model.tiles().find(key(0)) != nullptr; });
  const QImage shown = view.grab().toImage();
  EXPECT_EQ(shown.pixelColor(7, 200), QColor(2 * model.amplification(), 0, 0));
  EXPECT_EQ(shown.pixelColor(8, 200), QColor(0, 0, 0));
}

TEST_F(CompareTest, ShowsBothSidesOfTheHandle) {
  const URL file = folder / "plain.png", smaller = folder / "smaller.png";
  const auto plain = [&](const URL& url, const test::Pixel& pixel) {
    test::writePNGFile(url, test::Raster(100, 80, [&](int, int) { return pixel; }), {.alpha = true});
  };
  plain(file, {200, 0, 0, 255});
  plain(smaller, {0, 0, 200, 255});
  ComparePage page(store);
  page.resize(1000, 700);
  page.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&page));
  page.open(replaced(file, smaller));
  waitFor([&] { return page.model().state() == State::ready; });
  auto& view = *page.findChild<PictureView*>();
  struct Case {
    Qt::Key key;
    QColor left, right;
  };
  const QColor red(200, 0, 0), blue(0, 0, 200);
  const int factor = page.model().amplification();
  const QColor difference(200 * factor, 0, 200 * factor);
  for (const Qt::LayoutDirection direction : {Qt::LeftToRight, Qt::RightToLeft}) {
    page.setLayoutDirection(direction);
    const bool mirrored = direction == Qt::RightToLeft;
    for (const Case& one : {Case{Qt::Key_1, red, red}, Case{Qt::Key_3, blue, blue},
                            Case{Qt::Key_2, red, blue}, Case{Qt::Key_D, difference, difference}}) {
      QTest::keyClick(&page, one.key);
      const QImage shown = view.grab().toImage();
      const QPoint middle = shown.rect().center();
      EXPECT_EQ(shown.pixelColor(middle - QPoint(40, 20)), mirrored ? one.right : one.left) << one.key;
      EXPECT_EQ(shown.pixelColor(middle + QPoint(40, -20)), mirrored ? one.left : one.right) << one.key;
    }
  }
}

TEST_F(CompareTest, PlaysInStepAndPauses) {
  const URL file = folder / "moving.gif", smaller = folder / "smaller.gif";
  test::GIFFile gif;
  gif.width = gif.height = 20;
  for (const std::uint8_t index : std::initializer_list<std::uint8_t>{0, 1, 2}) {
    gif.frames.push_back({.width = 20, .height = 20, .indexes = {index}, .delay = 2});
  }
  test::writeGIFFile(file, gif);
  gif.loop = 0;
  test::writeGIFFile(smaller, gif);
  CompareModel model(store);
  model.open(replaced(file, smaller));
  std::array<int, 3> seen{};
  QObject::connect(&model.player(), &Player::frameChanged, [&] {
    ++seen[model.player().position()];
    EXPECT_EQ(model.whole(Picture::original), model.whole(Picture::result));
  });
  waitFor([&] { return *std::ranges::min_element(seen) >= 2; });
  model.player().setPlaying(false);
  QTest::qWait(100);
  const std::size_t stopped = model.player().position();
  QTest::qWait(100);
  EXPECT_EQ(model.player().position(), stopped);
  model.player().step(-1);
  waitFor([&] { return model.player().position() == (stopped + 2) % 3; });
  // It is read while it plays.
  folder.write("moving.gif", files::read(file) + "more");
  model.player().setPlaying(true);
  waitFor([&] { return model.state() == State::failed; });
  EXPECT_FALSE(model.problem().isEmpty());
}

TEST_F(CompareTest, SaysWhyThereIsNothingToSee) {
  CompareModel model(store);
  const URL other = folder / "other.png";
  test::writePNGFile(other, test::photoRaster(30, 20, 9));
  struct Case {
    const char* what;
    std::function<void(const UndoRecord&)> harm;
  };
  const Case cases[] = {
      {"backup gone", [&](const UndoRecord& record) { files::removeItem(store.backupURL(record)); }},
      {"backup is another picture",
       [&](const UndoRecord& record) {
         files::writeAtomically(store.backupURL(record), files::read(other));
       }},
      {"result edited",
       [&](const UndoRecord& record) {
         files::writeAtomically(URL::file(record.originalPath), files::read(other));
       }},
      {"result gone", [&](const UndoRecord&) { files::removeItem(folder / "photo.png"); }},
  };
  for (const Case& one : cases) {
    const UndoRecord record = still(30, 20);
    one.harm(record);
    model.open(record);
    waitFor([&] { return model.state() != State::loading; });
    EXPECT_EQ(model.state(), State::failed) << one.what;
    EXPECT_FALSE(model.problem().isEmpty()) << one.what;
    files::removeItemIfPossible(folder / "photo.png");
  }
  // Another one opened at once takes its place; closed in the middle, nothing comes.
  const UndoRecord small = still(30, 20);
  model.open(small);
  model.open(small);
  waitFor([&] { return model.state() == State::ready; });
  EXPECT_FALSE(model.tiles().isOpen()) << "every pixel is in the whole";
  model.open(small);
  model.close();
  QTest::qWait(200);
  EXPECT_EQ(model.state(), State::empty);
}

}  // namespace
}  // namespace tidewell::desktop
