// The colour scale and the qubit boxes' tool-tip text.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "view/qubit_color.h"
#include "view/qubit_display.h"

namespace orvex {
namespace {

TEST(QubitColor, KnownPointsOfTheScaleRedInTheLowByte) {
  EXPECT_EQ(RGB(1, 2, 3), 0x030201u);
  EXPECT_EQ(QubitColor(0), 0x00FF00u);
  EXPECT_EQ(QubitColor(1), 0x0000FFu);
  EXPECT_EQ(QubitColor(0.5), RGB(180, 180, 0));
  EXPECT_EQ(QubitColor(0.25), RGB(98, 236, 0));
  EXPECT_EQ(QubitColor(0.75), RGB(236, 98, 0));
}

TEST(QubitColor, ValuesOutsideTheScaleAreClamped) {
  EXPECT_EQ(QubitColor(-0.3), QubitColor(0));
  EXPECT_EQ(QubitColor(-5), QubitColor(0));
  EXPECT_EQ(QubitColor(1.0001), QubitColor(1));
  EXPECT_EQ(QubitColor(7), QubitColor(1));
  EXPECT_EQ(QubitColor(std::numeric_limits<double>::quiet_NaN()), QubitColor(0));
  EXPECT_EQ(QubitColor(std::numeric_limits<double>::infinity()), QubitColor(1));
}

TEST(QubitColor, BrightnessStaysEvenAndRedGrows) {
  int lastRed = -1;
  for (int i = 0; i <= 100; ++i) {
    const RGBColor c = QubitColor(i / 100.0);
    const double radius = std::hypot(RedOf(c), GreenOf(c));
    EXPECT_NEAR(radius, 255, 1.0) << "value " << i / 100.0;
    EXPECT_GE(RedOf(c), lastRed);
    EXPECT_EQ(BlueOf(c), 0);
    lastRed = RedOf(c);
  }
}

TEST(QubitToolTip, ThreeDecimalsRoundingAndSign) {
  EXPECT_EQ(Format000(-0.25), "-0.250");
  EXPECT_EQ(Format000(0.12345), "0.123");
  EXPECT_EQ(Format000(0.9996), "1.000");
  EXPECT_EQ(Format000(0.0625), "0.063");  // an exact half rounds away from zero
  EXPECT_EQ(Format000(-0.0625), "-0.063");
  EXPECT_EQ(Format000(12.5), "12.500");
  EXPECT_EQ(Format000(-1e20), "-100000000000000000000.000");
  EXPECT_EQ(Format000(-0.0), "0.000");
  EXPECT_EQ(Format000(-0.0001), "0.000");
  EXPECT_EQ(QubitToolTip(1, 0, 0.5), "x = 1.000 ,y = 0.000 ,z = 0.500");
  EXPECT_EQ(QubitToolTip(-0.1, 1.2, -2), "x = -0.100 ,y = 1.200 ,z = -2.000");
}

} // namespace
} // namespace orvex
