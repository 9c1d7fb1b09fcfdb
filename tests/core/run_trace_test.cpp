// The trace of a run (run/run_trace.h) and Pause, against the stand-in engine with and without
// its trace and state entries.
#include "run/run_trace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "run/run_controller.h"
#include "run_fixture.h"

namespace orvex::test {
namespace {

class RunTraceTest : public RunFixture {
protected:
  void UseExtrasEngine() {
    const char* path = std::getenv("ORVEX_FAKE_EXTRAS_ENGINE");
    ASSERT_TRUE(path && *path) << "the stand-in engine with extras is not known";
    setenv("ORVEX_ENGINE", path, 1);
  }
  ProgramTrace& trace() { return ws.Traces[0]; }
};

TEST(RunTraceModel, CsvPurityPopulationsAndThinning) {
  ProgramTrace t;
  const double x[2] = {0.5, 0.125}, y[2] = {0.5, 1.0 / 3}, z[2] = {0, 1};
  AppendTracePoint(t, 0.25, 2, x, y, z);
  EXPECT_EQ(TraceCsv(t), "t,qubit,Qx,Qy,Qz\n0.25,1,0.5,0.5,0\n"
                         "0.25,2,0.125,0.333333333333333,1\n");
  // |r| of |0> is 1, of the centre 0; sigma = 1 - 2Q.
  EXPECT_DOUBLE_EQ(Purity(0.5, 0.5, 0), 1);
  EXPECT_DOUBLE_EQ(Purity(0.5, 0.5, 0.5), 0);
  EXPECT_NEAR(Purity(0.25, 0.5, 0.5), 0.5, 1e-15);
  auto sigmaZ = TraceCurve(t, 2, 2, true);
  ASSERT_EQ(sigmaZ.size(), 1u);
  EXPECT_DOUBLE_EQ(sigmaZ[0].second, -1);
  EXPECT_DOUBLE_EQ(TraceCurve(t, 1, 3, false)[0].second, 1);

  // Basis index b = sum bit_q 2^(q-1); labels read qubit 1 first. |q1=1,q2=0,q3=0> is b = 1.
  std::vector<double> amps(16, 0.0);
  amps[2 * 1] = std::sqrt(0.7);
  amps[2 * 6 + 1] = std::sqrt(0.3);  // b = 6: q2 = q3 = 1, imaginary
  auto pops = LargestPopulations(amps, 3, 32);
  ASSERT_EQ(pops.size(), 8u);
  EXPECT_EQ(pops[0].label, "100");
  EXPECT_NEAR(pops[0].probability, 0.7, 1e-15);
  EXPECT_EQ(pops[1].label, "011");
  EXPECT_NEAR(pops[1].probability, 0.3, 1e-15);
  EXPECT_EQ(pops[2].label, "000");  // ties in index order
  EXPECT_TRUE(LargestPopulations(std::vector<double>(4), 3).empty());  // too few amplitudes

  // A full trace halves its density but keeps its first and newest points.
  ProgramTrace big;
  for (std::size_t k = 0; k <= kMaxTracePoints; ++k)
    AppendTracePoint(big, static_cast<double>(k), 1, x, y, z);
  EXPECT_LE(big.Points.size(), kMaxTracePoints / 2 + 2);
  EXPECT_DOUBLE_EQ(big.Points.front().Time, 0);
  EXPECT_DOUBLE_EQ(big.Points.back().Time, static_cast<double>(kMaxTracePoints));
  for (std::size_t k = 1; k < big.Points.size(); ++k)
    ASSERT_LT(big.Points[k - 1].Time, big.Points[k].Time);
}

TEST_F(RunTraceTest, EngineRecordsAreDrainedAfterEveryCallAndClearedByStartAndReset) {
  UseExtrasEngine();
  // A lasts 2 main steps of 0.5: the breakpoint after it stands at t = 1.
  dir.write("app/MI/demo/A.MI", "NUMBER OF FIELD STEPS\r\n2\r\nEND\r\nTIME STEP\r\n0.5\r\nEND\r\n");
  // The first call returns early with two records, the second halts at the breakpoint with one.
  const std::string script = "0 1 1 0  .1 .1 .1  .2 .2 .2\n"
                             "T 0 .5 .5 0 .5 .5 0\n"
                             "T 0.5 .4 .5 .1 .5 .5 0\n"
                             "0 1 0 0  .3 .3 .3  .4 .4 .4\n"
                             "T 1.0 .3 .3 .3 .4 .4 .4\n"
                             "0 0 0 0  .9 .9 .9  .9 .9 .9\n"
                             "T 2.0 .9 .9 .9 .9 .9 .9\n";
  // Nobody watching: the engine keeps no records and each call gives one point, the start
  // |00> first.
  Script(script);
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(trace().Points.size(), 3u);
  EXPECT_FALSE(trace().FromEngine);
  EXPECT_DOUBLE_EQ(trace().Points[0].Q[0], 0.5);
  EXPECT_DOUBLE_EQ(trace().Points[1].Q[0], 0.1);
  EXPECT_DOUBLE_EQ(trace().Points[2].Time, 1.0);
  ResetProgram(ws, ui, 1);

  trace().Wanted = true;  // a trace window is open
  std::remove((dir.path() + "calls.log").c_str());
  Script(script);
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.Program(1).Status, "Program halted");
  ASSERT_EQ(trace().Points.size(), 3u);
  EXPECT_EQ(trace().Qubits, 2);
  EXPECT_DOUBLE_EQ(trace().Points[1].Time, 0.5);
  EXPECT_DOUBLE_EQ(trace().Points[1].Q[0], 0.4);
  EXPECT_DOUBLE_EQ(trace().Points[2].Q[5], 0.4);  // qubit 2's z
  EXPECT_DOUBLE_EQ(trace().Marker, 1.0);  // halted: the position is marked

  StepBack(ws, ui, 1);  // back to the start: the marker moves to t = 0
  EXPECT_DOUBLE_EQ(trace().Marker, 0);

  RunProgram(ws, ui, 1, kModeRun);  // continues to the end
  ASSERT_EQ(ws.Program(1).Status, "Program has finished");
  ASSERT_EQ(trace().Points.size(), 4u);
  EXPECT_DOUBLE_EQ(trace().Points[3].Time, 2.0);
  EXPECT_LT(trace().Marker, 0);  // nothing halted

  // A new start empties the trace (and the engine's pending records).
  Script("0 1 0 0\nT 7 .1 .1 .1 .1 .1 .1\n");
  std::remove((dir.path() + "calls.log").c_str());
  RunProgram(ws, ui, 1, kModeStep);
  ASSERT_EQ(trace().Points.size(), 1u);
  EXPECT_DOUBLE_EQ(trace().Points[0].Time, 7);
  ResetProgram(ws, ui, 1);
  EXPECT_TRUE(trace().Points.empty());
  EXPECT_LT(trace().Marker, 0);
}

TEST_F(RunTraceTest, WithoutTraceEntriesEverySuccessfulCallIsOnePoint) {
  dir.write("app/MI/demo/A.MI", "NUMBER OF FIELD STEPS\r\n2\r\nEND\r\nTIME STEP\r\n0.5\r\nEND\r\n");
  Script("0 1 1 0  .1 .2 .3  .4 .5 .6\n"
         "0 1 0 0  .2 .2 .2  .6 .6 .6\n"
         "7 1 0 0 | broken\n");
  RunProgram(ws, ui, 1, kModeRun);
  // The start |00> at t = 0, then one point per call, the last at the halt's time.
  ASSERT_EQ(trace().Points.size(), 3u);
  EXPECT_DOUBLE_EQ(trace().Points[0].Time, 0);
  EXPECT_DOUBLE_EQ(trace().Points[0].Q[0], 0.5);
  EXPECT_DOUBLE_EQ(trace().Points[1].Q[2], 0.3);
  EXPECT_DOUBLE_EQ(trace().Points[2].Q[3], 0.6);
  EXPECT_DOUBLE_EQ(trace().Points[2].Time, 1.0);
  EXPECT_DOUBLE_EQ(trace().Marker, 1.0);
  EXPECT_DOUBLE_EQ(ws.StepTime[1], trace().Marker);
  for (std::size_t k = 1; k < trace().Points.size(); ++k)
    EXPECT_LE(trace().Points[k - 1].Time, trace().Points[k].Time);

  dialogs.answer(platform::Answer::OK);
  RunProgram(ws, ui, 1, kModeRun);  // the failed call adds nothing
  EXPECT_EQ(trace().Points.size(), 3u);
}

// Runs program 1, asking to pause it at the n-th pause for the user interface; true when the
// pause was accepted.
bool RunPausingAt(ScriptedDialogs& dialogs, Workspace& ws, RunUi& ui, int mode, int pauseAt) {
  int pumps = 0;
  bool accepted = false;
  dialogs.onKeepResponsive = [&] {
    if (++pumps == pauseAt) accepted = PauseProgram(ws, 1);
  };
  RunProgram(ws, ui, 1, mode);
  dialogs.onKeepResponsive = nullptr;
  return accepted;
}

TEST_F(RunTraceTest, PauseHaltsAtTheNextEarlyReturnAndContinuingEndsAsAnUninterruptedRun) {
  const std::string script = "0 1 1 0  .1 .1 .1  .1 .1 .1\n"
                             "0 1 1 0  .2 .2 .2  .2 .2 .2\n"
                             "0 1 1 0  .3 .3 .3  .3 .3 .3\n"
                             "0 0 0 0  .8 .7 .6  .5 .4 .3\n";
  // Uninterrupted.
  Script(script);
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.Program(1).Status, "Program has finished");
  const double endX = ws.QubitX(1, 1), endZ = ws.QubitZ(1, 2);
  const auto plainCalls = Calls().size();

  // Paused after the second call, then continued.
  std::remove((dir.path() + "calls.log").c_str());
  EXPECT_TRUE(RunPausingAt(dialogs, ws, ui, kModeRun, 2));
  EXPECT_EQ(Calls().size(), 2u);  // no call after the pause
  EXPECT_EQ(ws.RunningProgram, 1);
  EXPECT_FALSE(ws.EngineBusy);
  EXPECT_EQ(ws.Program(1).Status, "Program halted");
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .2);
  EXPECT_EQ(ws.CurrentStep(1), 1);
  EXPECT_FALSE(ws.PauseRequested);
  EXPECT_FALSE(PauseProgram(ws, 1));  // nothing runs now

  StepBack(ws, ui, 1);  // back to the last recorded step before the pause: the start
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .5);
  RunProgram(ws, ui, 1, kModeRun);  // Start continues: the engine keeps its context
  auto calls = Calls();
  ASSERT_EQ(calls.size(), plainCalls);
  EXPECT_TRUE(Has(calls[2], "entry=0 flags=1,")) << calls[2];
  EXPECT_EQ(ws.Program(1).Status, "Program has finished");
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), endX);
  EXPECT_DOUBLE_EQ(ws.QubitZ(1, 2), endZ);

  // A step is never paused.
  std::remove((dir.path() + "calls.log").c_str());
  EXPECT_FALSE(RunPausingAt(dialogs, ws, ui, kModeStep, 1));
  EXPECT_EQ(Calls().size(), 4u);
}

} // namespace
} // namespace orvex::test
