// The workspace tables: 1-based, checked, sized to the system's fixed bounds.
#include <set>

#include <gtest/gtest.h>

#include "core/error_of.h"
#include "workspace/errors.h"
#include "workspace/workspace.h"

namespace orvex {
namespace {

using test::ErrorNumberOf;

TEST(Workspace, StartsIdleWithEveryTableSized) {
  Workspace ws;
  EXPECT_EQ(ws.MICount, 0);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.NoOutputFiles, 1);
  for (int s = 1; s <= kMaxPrograms; ++s) {
    EXPECT_EQ(ws.CurrentStep(s), -1);
    EXPECT_EQ(ws.EngineEntry[s - 1], -1);
    EXPECT_EQ(ws.Program(s).Name, "");
  }
  EXPECT_FALSE(ws.MITable(500).InUse);
}

TEST(Workspace, IndicesOutsideTheBoundsAreSubscriptErrors) {
  Workspace ws;
  EXPECT_EQ(ErrorNumberOf([&] { ws.MITable(0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.MITable(501); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.Program(11); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.CurrentStep(0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.MIEditorOpen(11); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.StepTable(1001); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.HistoryX(33, 1); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.QubitZ(1, 0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { ws.ProgramQubits(0); }), 9);
  MicroInstruction& mi = ws.MITable(1);
  EXPECT_EQ(ErrorNumberOf([&] { mi.Field(33, 0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { mi.Field(0, 0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { mi.Field(1, 12); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { mi.J(1, 33, 0); }), 9);
  EXPECT_EQ(ErrorNumberOf([&] { mi.J(1, 2, 3); }), 9);
  // The largest indices are inside.
  EXPECT_EQ(ErrorNumberOf([&] {
              mi.Field(32, 11) = mi.J(32, 32, 2) = ws.HistoryZ(32, 1000) = ws.QubitY(10, 32) = 1;
              ws.StepTable(1000) = ws.ProgramQubits(10) = 1;
            }),
            0);
}

TEST(MicroInstruction, ClearDataKeepsNameAndUse) {
  MicroInstruction mi;
  mi.J(2, 3, 1) = 7;
  mi.Field(5, PhiY) = 4;
  mi.Name = "n";
  mi.InUse = true;
  mi.TimeStep = 1;
  mi.InitialState = RandomState;
  mi.ClearData();
  EXPECT_EQ(mi.J(2, 3, 1), 0);
  EXPECT_EQ(mi.Field(5, PhiY), 0);
  EXPECT_EQ(mi.TimeStep, 0);
  EXPECT_EQ(mi.InitialState, 0);
  EXPECT_EQ(mi.Name, "n");
  EXPECT_TRUE(mi.InUse);
}

TEST(Workspace, RndIsUniformInTheUnitInterval) {
  Workspace ws;
  ws.Randomize(1);
  double sum = 0;
  std::set<double> seen;
  for (int i = 0; i < 10000; ++i) {
    double r = ws.Rnd();
    ASSERT_GE(r, 0.0);
    ASSERT_LT(r, 1.0);
    sum += r;
    seen.insert(r);
  }
  EXPECT_NEAR(sum / 10000, 0.5, 0.02);
  EXPECT_GT(seen.size(), 9990u);
  // The same seed repeats the sequence; two fresh workspaces differ.
  ws.Randomize(42);
  double a = ws.Rnd();
  ws.Randomize(42);
  EXPECT_EQ(ws.Rnd(), a);
  Workspace w1, w2;
  EXPECT_NE(w1.Rnd(), w2.Rnd());
}

TEST(Names, InitializeAndMINames) {
  EXPECT_TRUE(IsInitializeMI("initialize.mi"));
  EXPECT_TRUE(IsInitializeMI("INITIALIZE.MP"));
  EXPECT_TRUE(IsInitializeMI("Initialize"));
  EXPECT_FALSE(IsInitializeMI("Initialize.mi.bak"));
  EXPECT_FALSE(IsInitializeMI("Init.MI"));
  EXPECT_TRUE(IsMIName("a.mi"));
  EXPECT_TRUE(IsMIName("xmi"));
  EXPECT_FALSE(IsMIName("a.MP"));
  EXPECT_FALSE(IsMIName("i"));
}

} // namespace
} // namespace orvex
