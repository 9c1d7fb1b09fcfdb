// Walking a program as the engine does: called programs expanded, MIs described by their files
// in the run directory, halts placed at every granularity, the status line of a halt.
#include "run/run_position.h"

#include <gtest/gtest.h>

#include "mi/mi_file.h"
#include "support/test_support.h"

namespace orvex::test {
namespace {

WalkEvent MI(const std::string& name, int row, std::int64_t m, std::int64_t n, double tau) {
  WalkEvent e;
  e.row = row;
  e.name = name;
  e.mainSteps = m;
  e.subSteps = n;
  e.timeStep = tau;
  return e;
}
WalkEvent Breakpoint(int row) {
  WalkEvent e;
  e.breakpoint = true;
  e.row = row;
  return e;
}

// Every halt from the start until the program ends, at one granularity.
std::vector<RunPosition> Halts(const std::vector<WalkEvent>& walk, int mode, int granularity) {
  std::vector<RunPosition> halts;
  RunPosition at;
  while (auto next = NextHalt(walk, at, mode, granularity)) {
    halts.push_back(*next);
    at = *next;
    if (halts.size() > 100) break;
  }
  return halts;
}

// INIT (0 main steps), A (2 main steps of 3), a breakpoint, B (1 main step of 1).
const std::vector<WalkEvent> kWalk = {MI("INIT", 1, 0, 1, 0), MI("A", 2, 2, 3, 0.5),
                                      Breakpoint(3), MI("B", 4, 1, 1, 2)};

TEST(RunPosition, HaltsAtEveryGranularity) {
  using P = RunPosition;
  // Runs stop after breakpoints only.
  EXPECT_EQ(Halts(kWalk, 0, 0), (std::vector<P>{{3, 0}}));
  // Program steps: one MI each; the breakpoint is no step.
  EXPECT_EQ(Halts(kWalk, 1, 0), (std::vector<P>{{1, 0}, {2, 0}, {4, 0}}));
  // Main steps: an MI of no main steps is one step all the same.
  EXPECT_EQ(Halts(kWalk, 1, -1), (std::vector<P>{{1, 0}, {1, 3}, {2, 0}, {4, 0}}));
  // Intermediate steps.
  EXPECT_EQ(Halts(kWalk, 1, 1),
            (std::vector<P>{{1, 0}, {1, 1}, {1, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 0}, {4, 0}}));

  // A run from inside A finishes it and stops at the breakpoint; so does a program step.
  EXPECT_EQ(NextHalt(kWalk, {1, 4}, 0, 1), (P{3, 0}));
  EXPECT_EQ(NextHalt(kWalk, {1, 4}, 1, 0), (P{2, 0}));
  // Main steps from inside a main step go to its end.
  EXPECT_EQ(NextHalt(kWalk, {1, 1}, 1, -1), (P{1, 3}));
  // Past the end: nothing.
  EXPECT_EQ(NextHalt(kWalk, {4, 0}, 1, 1), std::nullopt);
  EXPECT_EQ(NextHalt(kWalk, {9, 0}, 0, 0), std::nullopt);
}

TEST(RunPosition, RowTimeAndStatusLine) {
  EXPECT_EQ(RowAt(kWalk, {0, 0}), 0);
  EXPECT_EQ(RowAt(kWalk, {1, 0}), 1);   // INIT done
  EXPECT_EQ(RowAt(kWalk, {1, 4}), 2);   // A under way
  EXPECT_EQ(RowAt(kWalk, {3, 0}), 3);   // after the breakpoint
  EXPECT_EQ(RowAt(kWalk, {5, 0}), -1);  // beyond the walk

  EXPECT_DOUBLE_EQ(ProgramTimeAt(kWalk, {1, 4}), 4 * 0.5 / 3);
  EXPECT_DOUBLE_EQ(ProgramTimeAt(kWalk, {4, 0}), 2 * 0.5 + 2);

  EXPECT_EQ(PositionText(kWalk, {0, 0}), "Start, t = 0");
  EXPECT_EQ(PositionText(kWalk, {1, 0}), "INIT, main step 0 of 0, t = 0");
  EXPECT_EQ(PositionText(kWalk, {1, 3}), "A, main step 1 of 2, t = 0.5");
  EXPECT_EQ(PositionText(kWalk, {1, 4}), "A, main step 2 of 2, intermediate step 1 of 3, t = 0.666667");
  EXPECT_EQ(PositionText(kWalk, {3, 0}), "Breakpoint, t = 1");
  EXPECT_EQ(PositionText(kWalk, {4, 0}), "B, main step 1 of 1, t = 3");
}

TEST(RunPosition, TheWalkReadsStepsFromTheRunDirectoryAndExpandsCalls) {
  TempDir dir;
  Workspace ws;
  ws.AppDir = dir.path();
  MicroInstruction a;
  a.FieldSteps = 4;
  a.IntermediateSteps = 0;  // counts as one
  a.TimeStep = 0.25;
  a.TimeStepInPi = 1;  // written as τ·2π, read back as τ
  dir.write("run/A.MI", FormatMI(a, 2, 0.5));
  MicroInstruction x;
  x.FieldSteps = 2;
  x.IntermediateSteps = 10;
  x.TimeStep = 0.1;
  dir.write("run/x.mi", FormatMI(x, 2, 0.5));
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
  EXPECT_EQ((*walk)[0].mainSteps, 4);
  EXPECT_EQ((*walk)[0].subSteps, 1);
  EXPECT_NEAR((*walk)[0].timeStep, 0.25 * 6.28318530717958, 1e-12);
  EXPECT_EQ((*walk)[1].name, "X");  // inside Inner: its own MI, marking the calling row
  EXPECT_EQ((*walk)[1].row, 2);
  EXPECT_EQ((*walk)[1].subSteps, 10);
  EXPECT_DOUBLE_EQ((*walk)[1].timeStep, 0.1);
  EXPECT_TRUE((*walk)[2].breakpoint);
  EXPECT_EQ((*walk)[3].row, 3);
  EXPECT_EQ((*walk)[5].row, 4);
  // A step in the called program's MI marks the calling row and names the MI.
  EXPECT_EQ(RowAt(*walk, {1, 10}), 2);
  EXPECT_EQ(PositionText(*walk, {1, 10}).rfind("X, main step 1 of 2, t = ", 0), 0u);
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/", 5));  // more events than allowed

  p.Rows.push_back({"self", kIconProgramRow});  // calls itself without end
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/"));
  p.Rows.back() = {"missing", kIconProgramRow};
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/"));
  p.Rows.back() = {"NoSuchMI", kIconMI};
  EXPECT_FALSE(WalkProgram(ws, 1, dir.path() + "run/"));
}

} // namespace
} // namespace orvex::test
