// The program editor's qubit boxes and the "Color table" legend, read back from pixels.
#include <gtest/gtest.h>

#include <QImage>
#include <QSignalSpy>
#include <QTest>

#include "view/gui/colors.h"
#include "view/gui/qubit_stripes.h"
#include "view/qubit_color.h"
#include "workspace/workspace.h"

namespace orvex {
namespace {

::testing::AssertionResult PixelIs(const QImage& img, int x, int y, int r, int g, int b) {
  const QColor c = img.pixelColor(x, y);
  if (c.red() == r && c.green() == g && c.blue() == b) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") is (" << c.red()
                                       << ", " << c.green() << ", " << c.blue() << "), expected ("
                                       << r << ", " << g << ", " << b << ")";
}

TEST(QubitStripes, XYZStripesInScaleColoursBlackSeparatorsClampedValues) {
  // h = 10: x on rows 0..9, separator on 10, y on 11..19, separator on 20, z on 21..29.
  const QImage img = QubitStripesPixmap(QSize(40, 30), 1.0, 0.5, 0.0).toImage();
  for (int x : {0, 20, 39}) {
    for (int row : {0, 5, 9}) EXPECT_TRUE(PixelIs(img, x, row, 255, 0, 0));
    EXPECT_TRUE(PixelIs(img, x, 10, 0, 0, 0));
    for (int row : {11, 15, 19}) EXPECT_TRUE(PixelIs(img, x, row, 180, 180, 0));
    EXPECT_TRUE(PixelIs(img, x, 20, 0, 0, 0));
    for (int row : {21, 25, 29}) EXPECT_TRUE(PixelIs(img, x, row, 0, 255, 0));
  }
  // Values off the scale are clamped; the leftover row belongs to z.
  const QImage odd = QubitStripesPixmap(QSize(12, 31), 0.25, -2.0, 9.0).toImage();
  const RGBColor quarter = QubitColor(0.25);
  EXPECT_TRUE(PixelIs(odd, 3, 2, RedOf(quarter), GreenOf(quarter), 0));
  EXPECT_TRUE(PixelIs(odd, 3, 15, 0, 255, 0));
  EXPECT_TRUE(PixelIs(odd, 3, 30, 255, 0, 0));
}

TEST(QubitBox, ValuesSetToolTipAndPaintAndALeftClickIsReported) {
  QubitBox box;
  box.resize(36, 30);
  box.setValues(1, 0, 0.5);
  EXPECT_EQ(box.toolTip(), QStringLiteral("x = 1.000 ,y = 0.000 ,z = 0.500\n|r| = 1.414"));
  const QImage img = box.grab().toImage();
  ASSERT_EQ(img.width(), 36);
  EXPECT_TRUE(PixelIs(img, 18, 4, 255, 0, 0));
  EXPECT_TRUE(PixelIs(img, 18, 15, 0, 255, 0));
  EXPECT_TRUE(PixelIs(img, 18, 25, 180, 180, 0));
  EXPECT_TRUE(PixelIs(img, 18, 10, 0, 0, 0));

  // Only a left click is reported.
  box.show();
  QSignalSpy spy(&box, &QubitBox::clicked);
  QTest::mouseClick(&box, Qt::LeftButton);
  EXPECT_EQ(spy.count(), 1);
  QTest::mouseClick(&box, Qt::RightButton);
  EXPECT_EQ(spy.count(), 1);
}

TEST(QubitBox, ProgramRefreshTakesTheSlotsValues) {
  Workspace ws;
  ws.ProgramQubits(3) = 2;
  ws.QubitX(3, 1) = 1;
  ws.QubitY(3, 1) = 0;
  ws.QubitZ(3, 1) = 0.5;
  ws.QubitX(3, 2) = 0.25;
  ws.QubitX(2, 1) = 0.75;  // another program's value
  QubitBox a, b, c;
  c.setValues(0.1, 0.2, 0.3);
  UpdateQubitBoxes(ws, 3, {&a, &b, &c});
  EXPECT_EQ(a.toolTip(), QStringLiteral("x = 1.000 ,y = 0.000 ,z = 0.500\n|r| = 1.414"));
  EXPECT_DOUBLE_EQ(b.x(), 0.25);
  EXPECT_DOUBLE_EQ(c.x(), 0.1);  // beyond the program's qubits: untouched
  ws.ProgramQubits(3) = 0;       // after a reset nothing is painted
  UpdateQubitBoxes(ws, 3, {&a});
  EXPECT_DOUBLE_EQ(a.x(), 1);
}

// Pixels of the (white) digit in a rectangle.
int WhitePixels(const QImage& img, const QRect& r) {
  int n = 0;
  for (int y = r.top(); y <= r.bottom(); ++y)
    for (int x = r.left(); x <= r.right(); ++x) {
      const QColor c = img.pixelColor(x, y);
      if (c.red() > 200 && c.green() > 200 && c.blue() > 200) ++n;
    }
  return n;
}

TEST(ColorTable, RedOnTopGreenAtTheBottomDigitsInWhite) {
  Colors colors;
  EXPECT_EQ(colors.windowTitle(), QStringLiteral("Color table"));
  colors.resize(100, 260);
  const QImage img = colors.legend().toImage();
  ASSERT_EQ(img.size(), QSize(100, 260));
  EXPECT_TRUE(PixelIs(img, 2, 0, 255, 0, 0));
  EXPECT_TRUE(PixelIs(img, 2, 259, 0, 255, 0));
  EXPECT_TRUE(PixelIs(img, 97, 130, 180, 180, 0));  // the middle is 0.5
  // Red falls and green rises from top to bottom.
  for (int y = 1; y < 260; ++y) {
    EXPECT_LE(img.pixelColor(2, y).red(), img.pixelColor(2, y - 1).red()) << y;
    EXPECT_GE(img.pixelColor(2, y).green(), img.pixelColor(2, y - 1).green()) << y;
  }
  // "1" at top centre, "0" at bottom centre, nothing white in the corners.
  EXPECT_GT(WhitePixels(img, QRect(35, 0, 30, 20)), 5);
  EXPECT_GT(WhitePixels(img, QRect(35, 240, 30, 20)), 5);
  EXPECT_EQ(WhitePixels(img, QRect(0, 0, 25, 20)), 0);
  EXPECT_EQ(WhitePixels(img, QRect(75, 240, 25, 20)), 0);
  EXPECT_EQ(WhitePixels(img, QRect(0, 100, 100, 60)), 0);
}

TEST(ColorTable, FillsATallWindowWithoutGaps) {
  Colors colors;
  colors.resize(40, 2500);
  const QImage img = colors.legend().toImage();
  ASSERT_EQ(img.height(), 2500);
  for (int y = 0; y < 2500; ++y) {
    const QColor c = img.pixelColor(0, y);
    ASSERT_GT(c.red() + c.green(), 200) << "unpainted row " << y;
  }
  EXPECT_TRUE(PixelIs(img, 0, 0, 255, 0, 0));
  EXPECT_TRUE(PixelIs(img, 0, 2499, 0, 255, 0));
}

} // namespace
} // namespace orvex
