// Layout rules of the qubit read-out and the qubit window: stripe bands, the instruction
// list's height for many qubits, the grid shape, box positions and box sizes.
#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "view/qubit_display.h"
#include "view/qubit_grid.h"
#include "workspace/errors.h"

namespace orvex {
namespace {

TEST(InstructionListHeight, OnlyMoreThanEightQubitsShortenTheList) {
  EXPECT_FALSE(InstructionListHeight(6000, 1).has_value());
  EXPECT_FALSE(InstructionListHeight(6000, 8).has_value());
  EXPECT_EQ(InstructionListHeight(6000, 9), 6000 - 2865);
  EXPECT_EQ(InstructionListHeight(6000, 16), 6000 - 2865);
  EXPECT_EQ(InstructionListHeight(6000, 17), 6000 - 3865);
  EXPECT_EQ(InstructionListHeight(6000, 24), 6000 - 3865);
  EXPECT_EQ(InstructionListHeight(6000, 25), 6000 - 4865);
  EXPECT_EQ(InstructionListHeight(6000, 32), 6000 - 4865);
}

TEST(StripeBands, BoundariesFollowTheThirds) {
  const StripeBands b = StripeBandsFor(30);
  EXPECT_EQ(b.h, 10);
  EXPECT_EQ(b.xFirst, 0);
  EXPECT_EQ(b.xLast, 10);
  EXPECT_EQ(b.yFirst, 11);
  EXPECT_EQ(b.yLast, 20);
  EXPECT_EQ(b.zFirst, 21);
  EXPECT_EQ(b.zLast, 29);
  EXPECT_EQ(b.separator1, 10);
  EXPECT_EQ(b.separator2, 20);
}

TEST(StripeBands, LeftoverRowsGoToTheLastStripe) {
  const StripeBands b = StripeBandsFor(32);
  EXPECT_EQ(b.h, 10);
  EXPECT_EQ(b.zFirst, 21);
  EXPECT_EQ(b.zLast, 31);
}

TEST(QubitGridShape, TableByNumberOfQubits) {
  auto shape = [](int n) {
    const GridShape s = QubitGridShape(n);
    return std::pair(s.perColumn, s.columns);
  };
  EXPECT_EQ(shape(1), std::pair(1, 1));
  EXPECT_EQ(shape(2), std::pair(1, 2));
  EXPECT_EQ(shape(3), std::pair(2, 2));
  EXPECT_EQ(shape(7), std::pair(4, 2));
  EXPECT_EQ(shape(8), std::pair(4, 2));
  EXPECT_EQ(shape(9), std::pair(4, 3));
  EXPECT_EQ(shape(12), std::pair(4, 3));
  EXPECT_EQ(shape(16), std::pair(4, 4));
  EXPECT_EQ(shape(17), std::pair(5, 5));
  EXPECT_EQ(shape(25), std::pair(5, 5));
  EXPECT_EQ(shape(26), std::pair(5, 7));
  EXPECT_EQ(shape(32), std::pair(5, 7));
}

TEST(QubitGridShape, EveryQubitGetsItsOwnCellInsideTheGrid) {
  for (int n = 1; n <= 32; ++n) {
    const GridShape s = QubitGridShape(n);
    EXPECT_GE(s.perColumn * s.columns, n) << n;
    std::set<std::pair<int, int>> cells;
    for (int q = 1; q <= n; ++q) {
      const GridCell c = QubitGridCell(s, q);
      EXPECT_LT(c.column, s.columns) << n << " " << q;
      EXPECT_LT(c.row, s.perColumn) << n << " " << q;
      cells.insert({c.column, c.row});
    }
    EXPECT_EQ(static_cast<int>(cells.size()), n);
  }
}

TEST(QubitGridShape, OutsideOneToThirtyTwoIsASubscriptError) {
  for (int n : {0, -1, 33}) {
    try {
      QubitGridShape(n);
      ADD_FAILURE() << n;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.number(), 9);
    }
  }
}

TEST(QubitGridCell, ColumnsFillTopToBottomFirst) {
  const GridShape nine = QubitGridShape(9);  // 3 columns of 4
  EXPECT_EQ(QubitGridCell(nine, 1).column, 0);
  EXPECT_EQ(QubitGridCell(nine, 4).row, 3);
  EXPECT_EQ(QubitGridCell(nine, 4).column, 0);
  EXPECT_EQ(QubitGridCell(nine, 5).column, 1);
  EXPECT_EQ(QubitGridCell(nine, 5).row, 0);
  EXPECT_EQ(QubitGridCell(nine, 9).column, 2);
  EXPECT_EQ(QubitGridCell(nine, 9).row, 0);
  const GridShape all = QubitGridShape(32);  // 7 columns of 5
  EXPECT_EQ(QubitGridCell(all, 32).column, 6);
  EXPECT_EQ(QubitGridCell(all, 32).row, 1);
}

TEST(QubitBoxSize, FourSizesGrowAndConvertAtTheEdge) {
  EXPECT_EQ(QubitBoxPixels(0), 64);
  EXPECT_EQ(QubitBoxPixels(1), 96);
  EXPECT_EQ(QubitBoxPixels(2), 144);
  EXPECT_EQ(QubitBoxPixels(3), 200);
  EXPECT_EQ(QubitBoxPixels(1, 192.0), 192);  // twice the dots per inch, twice the pixels
  EXPECT_EQ(QubitBoxTwips(-1), QubitBoxTwips(0));
  EXPECT_EQ(QubitBoxTwips(9), QubitBoxTwips(3));
  EXPECT_EQ(TwipsToPixels(1440, 96), 96);
}

} // namespace
} // namespace orvex
