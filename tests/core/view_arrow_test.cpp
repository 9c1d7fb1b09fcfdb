// The qubit window's arrow: when it is drawn, its length, and that the picture's axes agree
// with the labels x, y and z.
#include <gtest/gtest.h>

#include <cmath>

#include "view/qubit_arrow.h"

namespace orvex {
namespace {

TEST(QubitArrow, NoArrowAtTheCentreOrBelowOneThirtyEighth) {
  EXPECT_FALSE(QubitArrowFor(0.5, 0.5, 0.5).visible);
  // A direction just shorter than 1/38 along each axis.
  const double d = 0.999 / 38;
  EXPECT_FALSE(QubitArrowFor(0.5 - d, 0.5, 0.5).visible);
  EXPECT_FALSE(QubitArrowFor(0.5, 0.5 + d, 0.5).visible);
  EXPECT_FALSE(QubitArrowFor(0.5, 0.5, 0.5 - d).visible);
  EXPECT_FALSE(QubitArrowFor(0.5 + d / 2, 0.5 - d / 2, 0.5 + d / 2).visible);  // |d| < 1/38
  // Just longer than 1/38.
  const double e = 1.001 / 38;
  EXPECT_TRUE(QubitArrowFor(0.5, 0.5, 0.5 + e).visible);
  EXPECT_FALSE(QubitArrowFor(NAN, 0.5, 0.5).visible);
}

TEST(QubitArrow, LengthAndDirectionComponents) {
  const QubitArrow up = QubitArrowFor(0.5, 0.5, 0);  // |0>
  EXPECT_DOUBLE_EQ(up.a, 0);
  EXPECT_DOUBLE_EQ(up.b, 0);
  EXPECT_DOUBLE_EQ(up.c, -0.5);
  EXPECT_DOUBLE_EQ(up.L, 19);
  EXPECT_DOUBLE_EQ(up.length, 20.5 * 19 / 38);
  const QubitArrow mixed = QubitArrowFor(0.2, 0.9, 0.7);
  EXPECT_DOUBLE_EQ(mixed.a, 0.3);
  EXPECT_NEAR(mixed.b, -0.4, 1e-15);
  EXPECT_NEAR(mixed.c, 0.2, 1e-15);
  EXPECT_NEAR(mixed.L, std::sqrt(0.09 + 0.16 + 0.04) * 38, 1e-12);
  // Components in the order a, c, b on the renderer's three axes.
  EXPECT_DOUBLE_EQ(mixed.tip.x, 0.3 * 20.5);
  EXPECT_NEAR(mixed.tip.y, 0.2 * 20.5, 1e-12);
  EXPECT_NEAR(mixed.tip.z, -0.4 * 20.5, 1e-12);
  EXPECT_NEAR(std::sqrt(mixed.tip.x * mixed.tip.x + mixed.tip.y * mixed.tip.y +
                        mixed.tip.z * mixed.tip.z),
              mixed.length, 1e-12);
}

double Along(const Vec3& v, char axis) {
  const Vec3 u = LabelledAxis(axis);
  return v.x * u.x + v.y * u.y + v.z * u.z;
}

TEST(QubitArrow, PointsAtTheLabelOfItsSpinComponent) {
  // Values are (1 - <sigma>)/2, so a value of 0 is the + eigenstate of that component.
  EXPECT_GT(Along(QubitArrowFor(0.5, 0.5, 0).tip, 'z'), 10);    // |0>: towards z
  EXPECT_LT(Along(QubitArrowFor(0.5, 0.5, 1).tip, 'z'), -10);   // |1>: away from z
  EXPECT_GT(Along(QubitArrowFor(0, 0.5, 0.5).tip, 'x'), 10);    // |+>: towards x
  EXPECT_GT(Along(QubitArrowFor(0.5, 0, 0.5).tip, 'y'), 10);    // |+i>: towards y
  EXPECT_NEAR(Along(QubitArrowFor(0, 0.5, 0.5).tip, 'z'), 0, 1e-12);
}

TEST(QubitArrow, LabelledAxesFormARightHandedFrame) {
  const Vec3 x = LabelledAxis('x'), y = LabelledAxis('y'), z = LabelledAxis('z');
  const Vec3 xy = {x.y * y.z - x.z * y.y, x.z * y.x - x.x * y.z, x.x * y.y - x.y * y.x};
  EXPECT_DOUBLE_EQ(xy.x, z.x);
  EXPECT_DOUBLE_EQ(xy.y, z.y);
  EXPECT_DOUBLE_EQ(xy.z, z.z);
}

TEST(SceneCamera, ZIsUpAndTheArrowHeadIsForeshortened) {
  const SceneCamera cam;
  const double R = kSphereRadius;
  // z up on the screen (y grows downwards).
  EXPECT_LT(cam.Project({0, -R, 0}).y, cam.Project({}).y - 0.8 * R);
  // The nearer end of an axis looks larger than the farther one.
  const Vec3 nearEnd = LabelledAxis('x');
  EXPECT_LT(cam.Depth({nearEnd.x * R, nearEnd.y * R, nearEnd.z * R}), 0);
  // Every point of the sphere projects inside its outline.
  for (int i = 0; i < 200; ++i) {
    const double t = i * 0.1, s = i * 0.37;
    const Vec3 p = {R * std::sin(t) * std::cos(s), R * std::cos(t), R * std::sin(t) * std::sin(s)};
    const Point2 q = cam.Project(p);
    EXPECT_LE(std::hypot(q.x, q.y), cam.OutlineRadius() + 1e-9);
  }
}

TEST(ArrowShapes, HeadEndsAtTheTipAndPointsAwayShowTheBase) {
  const SceneCamera cam;
  const QubitArrow up = QubitArrowFor(0.5, 0.5, 0);
  const ArrowShapes s = BuildArrowShapes(up, cam);
  ASSERT_GE(s.head.size(), 3u);
  ASSERT_GE(s.shaft.size(), 3u);
  bool tipOnOutline = false;
  for (const Point2& p : s.head) tipOnOutline |= std::hypot(p.x - s.tip.x, p.y - s.tip.y) < 1e-9;
  EXPECT_TRUE(tipOnOutline);
  // Of two opposite arrows exactly one shows its head's base disk.
  const ArrowShapes down = BuildArrowShapes(QubitArrowFor(0.5, 0.5, 1), cam);
  EXPECT_NE(s.capFacesViewer, down.capFacesViewer);
  // An arrow without length has no shapes.
  EXPECT_TRUE(BuildArrowShapes(QubitArrowFor(0.5, 0.5, 0.5), cam).head.empty());
}

TEST(ConvexHull, DropsInnerPoints) {
  const auto hull = ConvexHull({{0, 0}, {2, 0}, {2, 2}, {0, 2}, {1, 1}, {1, 0}});
  EXPECT_EQ(hull.size(), 4u);
}

} // namespace
} // namespace orvex
