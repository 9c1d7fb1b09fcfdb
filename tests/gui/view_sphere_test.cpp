// The qubit window: the sphere pictures read back from pixels, the grid of boxes and the
// animation frame.
#include <gtest/gtest.h>

#include <QImage>
#include <QScreen>
#include <QCoreApplication>

#include "view/gui/sphere_renderer.h"
#include "view/gui/squbit.h"
#include "view/qubit_grid.h"
#include "workspace/errors.h"
#include "workspace/workspace.h"

namespace orvex {
namespace {

// The arrow is orange; nothing else in the picture is.
bool IsArrow(const QColor& c) {
  return c.red() > 150 && c.red() - c.blue() > 90 && c.green() > 60 && c.green() < c.red() - 20;
}

struct ArrowPixels {
  int count = 0;
  double meanX = 0, meanY = 0;  // relative to the picture's centre, y downwards
};

ArrowPixels FindArrow(const QImage& img) {
  ArrowPixels a;
  for (int y = 0; y < img.height(); ++y)
    for (int x = 0; x < img.width(); ++x)
      if (IsArrow(img.pixelColor(x, y))) {
        ++a.count;
        a.meanX += x - img.width() / 2.0;
        a.meanY += y - img.height() / 2.0;
      }
  if (a.count) {
    a.meanX /= a.count;
    a.meanY /= a.count;
  }
  return a;
}

TEST(QubitSphere, ArrowFollowsTheStateAndVanishesNearTheCentre) {
  const int edge = 144;
  const ArrowPixels zero = FindArrow(QubitSphereImage(edge, 0.5, 0.5, 0));  // |0>
  const ArrowPixels one = FindArrow(QubitSphereImage(edge, 0.5, 0.5, 1));   // |1>
  const ArrowPixels plus = FindArrow(QubitSphereImage(edge, 0, 0.5, 0.5));  // |+>
  const ArrowPixels plusI = FindArrow(QubitSphereImage(edge, 0.5, 0, 0.5)); // |+i>
  for (const ArrowPixels* a : {&zero, &one, &plus, &plusI}) ASSERT_GT(a->count, 50);
  EXPECT_LT(zero.meanY, -10);  // up, towards the label z
  EXPECT_GT(one.meanY, 10);    // down
  EXPECT_LT(plus.meanX, -5);   // towards the x label at the lower left
  EXPECT_GT(plus.meanY, 0);
  EXPECT_GT(plusI.meanX, 10);  // towards the y label at the right
  // None at the centre or below the threshold.
  EXPECT_EQ(FindArrow(QubitSphereImage(96, 0.5, 0.5, 0.5)).count, 0);
  EXPECT_EQ(FindArrow(QubitSphereImage(96, 0.5, 0.5, 0.5 + 0.9 / 38)).count, 0);
  EXPECT_GT(FindArrow(QubitSphereImage(96, 0.5, 0.5, 0.5 + 0.3)).count, 0);
}

TEST(QubitSphere, SameValuesSamePictureAtEverySize) {
  for (int size = 0; size < kQubitSizes; ++size) {
    const int edge = QubitBoxPixels(size);
    const QImage a = QubitSphereImage(edge, 0.2, 0.3, 0.9);
    EXPECT_EQ(a, QubitSphereImage(edge, 0.2, 0.3, 0.9));
    EXPECT_NE(a, QubitSphereImage(edge, 0.2, 0.3, 0.1));
    EXPECT_GT(FindArrow(a).count, 0) << edge;
  }
}

TEST(sQubit, BoxesFillColumnsOfTheGrid) {
  Workspace ws;
  ws.QubitSize = 1;
  sQubit w(ws, 9);
  EXPECT_EQ(w.windowTitle(), QStringLiteral("Qubits"));
  EXPECT_TRUE(w.windowFlags() & Qt::WindowStaysOnTopHint);
  const int s = QubitBoxPixels(1, w.logicalDpiY());
  EXPECT_EQ(w.boxEdge(), s);
  EXPECT_EQ(w.qubits(), 9);
  EXPECT_EQ(w.box(1)->geometry(), QRect(0, 0, s, s));
  EXPECT_EQ(w.box(4)->geometry(), QRect(0, 3 * s, s, s));
  EXPECT_EQ(w.box(5)->geometry(), QRect(s, 0, s, s));
  EXPECT_EQ(w.box(9)->geometry(), QRect(2 * s, 0, s, s));
  for (int q = 1; q <= 9; ++q)
    EXPECT_EQ(w.box(q)->toolTip(), QStringLiteral("Qubit %1").arg(q));
  EXPECT_THROW(w.box(10), RuntimeError);
  EXPECT_EQ(w.size(), QSize(3 * s, 4 * s));  // fitted around the grid
  EXPECT_THROW(sQubit(ws, 0), RuntimeError);
  EXPECT_THROW(sQubit(ws, 33), RuntimeError);
}

TEST(sQubit, SizeSettingAndLargestGrid) {
  Workspace ws;
  ws.QubitSize = 0;
  sQubit w(ws, 32);
  const int small = QubitBoxPixels(0, w.logicalDpiY());
  EXPECT_EQ(w.box(32)->geometry(), QRect(6 * small, small, small, small));
  ws.QubitSize = 3;
  w.Relayout();
  const int large = QubitBoxPixels(3, w.logicalDpiY());
  EXPECT_EQ(w.boxEdge(), large);
  EXPECT_EQ(w.box(32)->geometry(), QRect(6 * large, large, large, large));
  EXPECT_EQ(w.box(6)->geometry(), QRect(large, 0, large, large));
  // Seven columns of the largest boxes do not fit the test screen: the window stays on it
  // and scrolls.
  const QRect avail = w.screen()->availableGeometry();
  if (7 * large > avail.width()) {
    EXPECT_LE(w.width(), avail.width());
    EXPECT_LE(w.height(), avail.height());
    EXPECT_TRUE(avail.contains(w.geometry()));
  }
}

TEST(sQubit, FrameDoesNothingWithAnimationOff) {
  Workspace ws;
  ws.QubitSize = 0;
  sQubit w(ws, 2);
  w.ShowValues(1, 0.5, 0.5, 0);
  w.show();
  QCoreApplication::processEvents();
  const QImage before = w.box(1)->grab().toImage();
  const int paints = w.box(1)->paintCount();
  ws.AnimateQubits = 0;
  ws.EngineX[0] = 0.5;
  ws.EngineY[0] = 0.5;
  ws.EngineZ[0] = 1;
  w.Frame();
  QCoreApplication::processEvents();
  EXPECT_EQ(w.framesDrawn(), 0);
  EXPECT_EQ(w.box(1)->paintCount(), paints);
  EXPECT_DOUBLE_EQ(w.box(1)->C(), 0);
  EXPECT_EQ(w.box(1)->grab().toImage(), before);
}

TEST(sQubit, FrameDrawsTheEngineArraysWhenAnimating) {
  Workspace ws;
  ws.QubitSize = 0;
  sQubit w(ws, 3);
  w.show();
  QCoreApplication::processEvents();
  const QImage before = w.box(3)->grab().toImage();
  const int paints = w.box(3)->paintCount();
  ws.AnimateQubits = 1;
  ws.EngineX = {};
  ws.EngineY = {};
  ws.EngineZ = {};
  ws.EngineX[2] = 0.5;  // qubit 3 sits at index 2
  ws.EngineY[2] = 0.5;
  ws.EngineZ[2] = 1;
  w.Frame();
  EXPECT_EQ(w.framesDrawn(), 1);
  EXPECT_GT(w.box(3)->paintCount(), paints);  // painted during the frame's event pass
  EXPECT_DOUBLE_EQ(w.box(3)->A(), 0.5);
  EXPECT_DOUBLE_EQ(w.box(3)->C(), 1);
  EXPECT_DOUBLE_EQ(w.box(1)->A(), 0);
  const QImage after = w.box(3)->grab().toImage().convertToFormat(QImage::Format_RGB32);
  EXPECT_NE(after, before.convertToFormat(QImage::Format_RGB32));
  EXPECT_EQ(after, QubitSphereImage(w.boxEdge(), 0.5, 0.5, 1).convertToFormat(QImage::Format_RGB32));
}

} // namespace
} // namespace orvex
