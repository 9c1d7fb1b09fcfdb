// Walking a program as the engine does: called programs expanded, halts placed.
#include "run/run_position.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace orvex::test {
namespace {

TEST(RunPosition, HaltsFollowTheWalk) {
  // MI(1) BP(2) MI(3) MI(3) BP(4)
  const std::vector<WalkEvent> walk = {{false, 1}, {true, 2}, {false, 3}, {false, 3}, {true, 4}};
  EXPECT_EQ(NextHalt(walk, 0, 0), 2);
  EXPECT_EQ(NextHalt(walk, 2, 0), 5);  // a run from a breakpoint passes it
  EXPECT_EQ(NextHalt(walk, 5, 0), std::nullopt);
  EXPECT_EQ(NextHalt(walk, 0, 1), 1);
  EXPECT_EQ(NextHalt(walk, 1, 1), 3);  // a step passes over breakpoints
  EXPECT_EQ(NextHalt(walk, 4, 1), std::nullopt);
  EXPECT_EQ(RowAt(walk, 0), 0);
  EXPECT_EQ(RowAt(walk, 2), 2);
  EXPECT_EQ(RowAt(walk, 4), 3);
}

TEST(RunPosition, CalledProgramsAreExpandedAndBounded) {
  TempDir dir;
  Workspace ws;
  ws.AppDir = dir.path();
  dir.write("run/inner.mp", "@progs/Inner.kvp\r\n");
  dir.write("progs/inner.kvp", "@X.MI\r\n!breakpoint\r\n");
  dir.write("run/self.MP", "@run/self.kvp\r\n");
  dir.write("run/self.kvp", "@self.MP\r\n");
  ProgramSlot& p = ws.Program(1);
  p.Rows = {{"Start", kIconStart}, {"A", kIconMI}, {"Inner", kIconProgramRow},
            {"Inner", kIconProgramRow}, {"Breakpoint", kIconBreakpoint}};
  auto walk = WalkProgram(ws, 1, dir.path() + "run/");
  ASSERT_TRUE(walk);
  ASSERT_EQ(walk->size(), 6u);
  EXPECT_EQ((*walk)[2].row, 2);
  EXPECT_TRUE((*walk)[2].breakpoint);
  EXPECT_EQ((*walk)[3].row, 3);
  EXPECT_EQ((*walk)[5].row, 4);
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/", 5));  // more events than allowed

  p.Rows.push_back({"self", kIconProgramRow});  // calls itself without end
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/"));
  p.Rows.back() = {"missing", kIconProgramRow};
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/"));
}

} // namespace
} // namespace orvex::test
