// Layout rules of the qubit read-out and the qubit window: stripe bands, the instruction
// list's height for many qubits, the grid shape, box positions and box sizes.
#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

#include "view/qubit_display.h"
#include "view/qubit_grid.h"
#include "core/error_of.h"
#include "workspace/errors.h"

namespace orvex {
namespace {

TEST(InstructionListHeight, OnlyMoreThanEightQubitsShortenTheList) {
  EXPECT_FALSE(InstructionListHeight(6000, 1).has_value());
  EXPECT_FALSE(InstructionListHeight(6000, 8).has_value());
  for (auto [qubits, cut] : {std::pair(9, 2865), {16, 2865}, {17, 3865}, {24, 3865}, {25, 4865}, {32, 4865}})
    EXPECT_EQ(InstructionListHeight(6000, qubits), 6000 - cut) << qubits;
}

TEST(StripeBands, BoundariesFollowTheThirdsAndLeftoverRowsGoToTheLastStripe) {
  const StripeBands b = StripeBandsFor(30);
  EXPECT_EQ((std::vector<int>{b.h, b.xFirst, b.xLast, b.separator1, b.yFirst, b.yLast, b.separator2,
                              b.zFirst, b.zLast}),
            (std::vector<int>{10, 0, 10, 10, 11, 20, 20, 21, 29}));
  const StripeBands c = StripeBandsFor(32);
  EXPECT_EQ((std::vector<int>{c.h, c.zFirst, c.zLast}), (std::vector<int>{10, 21, 31}));
}

TEST(QubitGridShape, TableByNumberOfQubits) {
  // {qubits, per column, columns}
  const int table[][3] = {{1, 1, 1}, {2, 1, 2},  {3, 2, 2},  {7, 4, 2},  {8, 4, 2},  {9, 4, 3},
                          {12, 4, 3}, {16, 4, 4}, {17, 5, 5}, {25, 5, 5}, {26, 5, 7}, {32, 5, 7}};
  for (const auto& row : table) {
    const GridShape s = QubitGridShape(row[0]);
    EXPECT_EQ(std::pair(s.perColumn, s.columns), std::pair(row[1], row[2])) << row[0];
  }
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
    EXPECT_EQ(test::ErrorNumberOf([&] { QubitGridShape(n); }), 9) << n;
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
