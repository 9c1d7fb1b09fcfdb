// The run controller against the stand-in engine: start, breakpoints, steps, the step history,
// finish, reset, engine errors and refusals.
#include "run/run_controller.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "mi/mi_file.h"
#include "run_fixture.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Icon;

class RunControllerTest : public RunFixture {};

TEST_F(RunControllerTest, StartHaltsAtBreakpointAndContinuesToTheEnd) {
  dir.write("app/progs/OLD.mi", "stale");
  dir.write("app/progs/x.Mp", "stale");
  // Two calls to the breakpoint (the first asks to be called again), then one to the end.
  Script("0 1 1 0  .1 .2 .3  .4 .5 .6\n"
         "0 1 0 0  .5 .5 .5  .6 .6 .6\n"
         "0 0 0 0  1 0 0  0 1 0\n");
  ws.QubitX(1, 1) = 0.25;

  RunProgram(ws, ui, 1, kModeRun);

  auto calls = Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_TRUE(Has(calls[0], "progress=1 runMode=0 noOutputFiles=1 entry=-1 flags=0,0,0,0"))
      << calls[0];
  EXPECT_TRUE(Has(calls[0], "q1=0,0,0"));  // ordinary calls pass EngineX/Y/Z
  EXPECT_TRUE(Has(calls[0], "name=main.kvp cwd=" + app + "progs")) << calls[0];
  EXPECT_TRUE(Has(calls[1], "entry=0 flags=1,0,0,0")) << calls[1];
  EXPECT_EQ(ws.EngineProgramName, "main.kvp" + std::string(24, ' '));

  EXPECT_FALSE(dir.exists("app/progs/OLD.mi"));
  EXPECT_FALSE(dir.exists("app/progs/x.Mp"));
  EXPECT_EQ(dir.read("app/progs/A.MI"), "mi a\r\n");
  EXPECT_EQ(ws.RunningProgram, 1);
  EXPECT_FALSE(ws.EngineBusy);
  EXPECT_EQ(ws.Program(1).Status, "Program halted");
  EXPECT_EQ(ws.Program(1).CurrentRow, 3);  // the breakpoint row
  EXPECT_EQ(ws.CurrentStep(1), 1);
  EXPECT_EQ(ws.ProgramQubits(1), 2);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .5);
  EXPECT_DOUBLE_EQ(ws.QubitZ(1, 2), .6);
  EXPECT_EQ(ui.count("disable 1"), 1);
  EXPECT_EQ(ui.count("enable 1"), 0);
  EXPECT_EQ(dialogs.keepResponsiveCalls, 2);
  EXPECT_EQ(ui.count("display 1"), 1);  // not animated: once, at the end
  EXPECT_EQ(ui.events.back(), "display 1");

  // Continuing keeps the run directory as it is.
  dir.write("app/progs/added.MI", "kept");
  RunProgram(ws, ui, 1, kModeRun);

  calls = Calls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_TRUE(Has(calls[2], "progress=1 runMode=0 noOutputFiles=1 entry=0 flags=0,0,0,0"))
      << calls[2];
  EXPECT_EQ(dir.read("app/progs/added.MI"), "kept");
  EXPECT_EQ(ws.Program(1).Status, "Program has finished");
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.CurrentStep(1), -1);
  EXPECT_EQ(ws.EngineEntry[0], -1);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), 1);
  EXPECT_DOUBLE_EQ(ws.QubitY(1, 2), 1);
  EXPECT_EQ(ui.count("disable 1"), 2);
  EXPECT_EQ(ui.count("enable 1"), 1);
  EXPECT_TRUE(dialogs.shown.empty());

  // A finished program starts from the beginning again, in a freshly prepared directory.
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_TRUE(Has(Calls().back(), "entry=-1")) << Calls().back();
  EXPECT_FALSE(dir.exists("app/progs/added.MI"));
}

TEST_F(RunControllerTest, StepsAreRecordedAndBackRestoresThem) {
  Script("0 1 0 0  .1 0 0  0 0 0\n"
         "0 1 0 0  .2 0 0  0 0 0\n"
         "0 1 0 0  .3 0 0  0 0 0\n"
         "0 1 0 0  .4 0 0  0 0 0\n");
  ws.QubitX(1, 1) = 0.75;  // shown before the run: not the program's start
  ws.QubitZ(1, 2) = 0.75;

  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 1);  // INITIALIZE
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);  // A
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 4);  // B: a breakpoint is never a step
  EXPECT_EQ(ws.CurrentStep(1), 3);
  EXPECT_EQ(RecordedSteps(ws), 4);
  for (auto& call : Calls()) EXPECT_TRUE(Has(call, "runMode=1")) << call;
  EXPECT_EQ(ui.count("disable 1"), 3);

  const auto callsBefore = Calls().size();
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.CurrentStep(1), 2);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .2);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  StepBack(ws, ui, 1);
  StepBack(ws, ui, 1);
  // The "Start" row shows the register the engine starts from, |00>: Q = (½, ½, 0).
  EXPECT_EQ(ws.CurrentStep(1), 0);
  for (int q = 1; q <= 2; ++q) {
    EXPECT_DOUBLE_EQ(ws.QubitX(1, q), .5);
    EXPECT_DOUBLE_EQ(ws.QubitY(1, q), .5);
    EXPECT_DOUBLE_EQ(ws.QubitZ(1, q), 0);
  }
  EXPECT_EQ(ws.Program(1).CurrentRow, 0);
  EXPECT_EQ(dialogs.status(), "Start, t = 0");
  EXPECT_EQ(dialogs.beeps, 0);
  StepBack(ws, ui, 1);  // nothing before the start
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_EQ(ws.CurrentStep(1), 0);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .5);
  EXPECT_EQ(Calls().size(), callsBefore);  // Back never calls the engine
  EXPECT_EQ(ws.RunningProgram, 1);
  EXPECT_EQ(ws.Program(1).Status, "Program halted");

  // The engine goes on from where it stopped: the next step follows the last recorded one.
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.CurrentStep(1), 4);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .4);
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);  // no MI row after B
  EXPECT_TRUE(dialogs.shown.empty());

  // After a run to the end the next start is from |00> again, not from the end's values.
  Script("0 0 0 0  1 1 1  1 1 1\n0 1 0 0  .2 .2 .2  .2 .2 .2\n");
  std::remove((dir.path() + "calls.log").c_str());
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.RunningProgram, -1);
  ASSERT_DOUBLE_EQ(ws.QubitZ(1, 1), 1);
  RunProgram(ws, ui, 1, kModeStep);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 0);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 2), .5);
  EXPECT_DOUBLE_EQ(ws.QubitZ(1, 1), 0);
}

TEST_F(RunControllerTest, FineStepsMarkTheMIUnderWayAndTheStatusLineSaysWhere) {
  // A: 2 main steps of 2 intermediate steps, τ = 0.5; INITIALIZE and B have no steps.
  MicroInstruction a;
  a.FieldSteps = 2;
  a.IntermediateSteps = 2;
  a.TimeStep = 0.5;
  dir.write("app/MI/demo/A.MI", FormatMI(a, 2, 0.5));
  ws.StepGranularity = 2;  // all steps
  // The first step returns early twice ("call again") before it is done.
  Script("0 1 1 0 w2=430\n0 1 1 0\n0 1 0 0\n0 1 0 0\n0 1 0 0\n0 1 0 0\n0 1 0 0\n");

  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(Calls().size(), 3u);
  EXPECT_EQ(ws.CurrentStep(1), 1);  // one step, however many calls
  EXPECT_EQ(ws.Program(1).CurrentRow, 1);
  EXPECT_EQ(dialogs.status(), "INITIALIZE, main step 0 of 0, t = 0");
  // While the calls went on the status line showed the engine's progress word.
  ASSERT_GE(dialogs.statuses().size(), 2u);
  EXPECT_EQ(dialogs.statuses()[1].rfind("Running\xE2\x80\xA6 43 % (", 0), 0u) << dialogs.statuses()[1];

  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  EXPECT_EQ(dialogs.status(), "A, main step 1 of 2, intermediate step 1 of 2, t = 0.25");
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  EXPECT_EQ(dialogs.status(), "A, main step 1 of 2, t = 0.5");
  // A run from inside A finishes it and halts after the breakpoint.
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ws.Program(1).CurrentRow, 3);
  EXPECT_EQ(dialogs.status(), "Breakpoint, t = 1");
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  EXPECT_EQ(dialogs.status(), "A, main step 1 of 2, t = 0.5");
  // Steps go on from where the engine stopped: B, after the breakpoint.
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 4);
  EXPECT_EQ(dialogs.status(), "B, main step 0 of 0, t = 1");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(RunControllerTest, BackStopsAtTheOldestOfTheLast1000RecordedSteps) {
  std::string script;
  for (int k = 1; k <= 1001; ++k) script += "0 1 0 0 " + std::to_string(k) + " 0 0\n";
  Script(script);
  for (int k = 1; k <= 1001; ++k) RunProgram(ws, ui, 1, kModeStep);
  ASSERT_DOUBLE_EQ(ws.QubitX(1, 1), 1001);
  EXPECT_EQ(RecordedSteps(ws), kMaxSteps);
  EXPECT_EQ(ws.CurrentStep(1), kMaxSteps - 1);
  for (int k = 1; k <= kMaxSteps - 1; ++k) StepBack(ws, ui, 1);
  EXPECT_EQ(ws.CurrentStep(1), 0);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), 2);  // the start state and step 1 made room
  EXPECT_EQ(dialogs.beeps, 0);
  StepBack(ws, ui, 1);
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), 2);
}

TEST_F(RunControllerTest, HaltsInsideACalledProgramMarkTheCallingRow) {
  dir.write("app/progs/loop.kvp", "!Quantum program progs/loop.kvp\r\n@A.MI\r\n!BREAKPOINT\r\n@B.MI\r\n");
  // Start, INITIALIZE, loop (A, breakpoint, B), Breakpoint, B.
  SetProgram(1, "progs/main.kvp",
             {{"Start", kIconStart}, {"INITIALIZE", kIconMI}, {"loop", kIconProgramRow},
              {"Breakpoint", kIconBreakpoint}, {"B", kIconMI}});
  Script("0 1 0 0 .1 0 0\n0 1 0 0 .2 0 0\n0 1 0 0 .3 0 0\n");
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);  // the breakpoint inside loop
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ws.Program(1).CurrentRow, 3);
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, 4);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 3);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .1);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 0);
}

TEST_F(RunControllerTest, AnUnreadableCalledProgramLeavesTheRowUnknown) {
  // loop.MP names progs/loop.kvp, which does not exist here.
  SetProgram(1, "progs/main.kvp",
             {{"Start", kIconStart}, {"loop", kIconProgramRow}, {"Breakpoint", kIconBreakpoint}});
  Script("0 1 0 0\n0 1 0 0\n");
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ws.Program(1).Status, "Program halted");
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);
  StepBack(ws, ui, 1);
  EXPECT_EQ(ws.Program(1).CurrentRow, 0);
}

TEST_F(RunControllerTest, GranularityAndIntegratorAreSetOnlyWhenStartingFromIdle) {
  Script("0 1 0 0\n0 1 0 0\n0 0 0 0\n0 1 0 0\n");
  ws.StepGranularity = 1;
  ws.Integrator = kIntegratorFourthOrder;
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_TRUE(Has(Calls()[0], "flags=0,4,0,-1")) << Calls()[0];
  EXPECT_EQ(ws.Program(1).CurrentRow, 1);  // INITIALIZE: no main steps, one step
  ws.StepGranularity = 2;  // both take effect at the next start from idle
  ws.Integrator = kIntegratorSecondOrder;
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_TRUE(Has(Calls()[1], "flags=0,4,0,-1")) << Calls()[1];
  EXPECT_EQ(ws.Program(1).CurrentRow, 2);
  RunProgram(ws, ui, 1, kModeRun);  // ends
  ASSERT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(dialogs.status(), "");
  RunProgram(ws, ui, 1, kModeStep);
  EXPECT_TRUE(Has(Calls()[3], "entry=-1 flags=0,0,0,1")) << Calls()[3];
}

// Takes a snapshot of the engine's call log whenever a message box is shown.
class LogAtMessage : public ScriptedDialogs {
public:
  explicit LogAtMessage(const TempDir& dir) : dir_(dir) {}
  platform::Answer message(const std::string& text, platform::Icon icon,
                           platform::Buttons buttons, const std::string& detail) override {
    logAtMessage = SplitLines(dir_.read("calls.log"));
    return ScriptedDialogs::message(text, icon, buttons, detail);
  }
  std::vector<std::string> logAtMessage;

private:
  const TempDir& dir_;
};

TEST_F(RunControllerTest, EngineErrorMakesTheCleanUpCallBeforeTheMessage) {
  Script("-1001 1 0 0 | MI file NOPE.MI does not exist\n");
  LogAtMessage recorder(dir);
  recorder.answer(Answer::OK);
  ws.QubitX(1, 1) = 0.5;
  ws.EngineX[0] = 0.9;  // left over from another program's run

  RunProgram(ws, ui, 1, kModeRun);

  ASSERT_EQ(recorder.shown.size(), 1u);
  EXPECT_EQ(recorder.shown[0].text, "Micro instruction or program file cannot be found.");
  EXPECT_EQ(recorder.shown[0].icon, Icon::Critical);
  EXPECT_EQ(recorder.shown[0].detail, "MI file NOPE.MI does not exist");
  ASSERT_EQ(recorder.logAtMessage.size(), 2u);
  EXPECT_TRUE(Has(recorder.logAtMessage[1], "status=0 progress=1 runMode=0 noOutputFiles=1 "
                                            "entry=-2 flags=0,0,0,0"))
      << recorder.logAtMessage[1];
  EXPECT_EQ(Calls().size(), 2u);
  // The clean-up abandoned the run: the program is idle and can start again.
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.CurrentStep(1), -1);
  EXPECT_EQ(ws.Program(1).Status, "Program ready");
  EXPECT_EQ(ui.count("enable 1"), 1);
  EXPECT_FALSE(ws.EngineBusy);
  // A failed run shows no values of its own: the program keeps what it showed.
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), 0.5);
}

TEST_F(RunControllerTest, AFailedAnimatedStartShowsNoValues) {
  // The engine's arrays hold zeros (Q = 0, 0, 0 is no state at all) when a start fails.
  Script("-1001 1 0 0 | MI file NOPE.MI does not exist\n");
  dialogs.answer(Answer::OK);
  ws.AnimateQubits = 1;
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ws.ProgramQubits(1), 0);  // a fresh program: still no boxes
  EXPECT_EQ(ui.frames, 0);
  EXPECT_EQ(dialogs.status(), "");

  // After a run the boxes keep that run's values.
  Script("0 0 0 0  .3 .3 .3  .3 .3 .3\n-1001 1 0 0\n");
  std::remove((dir.path() + "calls.log").c_str());
  RunProgram(ws, ui, 1, kModeRun);
  const int frames = ui.frames;
  dialogs.answer(Answer::OK);
  ws.EngineX.fill(0);
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ui.frames, frames);
  EXPECT_EQ(ws.ProgramQubits(1), 2);
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .3);
  EXPECT_EQ(dialogs.shown.size(), 2u);
}

TEST_F(RunControllerTest, UnknownEngineCodeStillShowsACriticalBox) {
  Script("-777 0 0 0\n");
  dialogs.answer(Answer::OK);
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
}

TEST_F(RunControllerTest, AnotherProgramIsRefusedWhileOneIsHalted) {
  dir.write("app/progs/other.kvp", "!Quantum program progs/other.kvp\r\n@A.MI\r\n");
  SetProgram(2, "progs/other.kvp", {{"Start", kIconStart}, {"A", kIconMI}});
  Script("0 1 0 0\n0 1 0 0\n");
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.RunningProgram, 1);

  dialogs.answer(Answer::OK);
  dialogs.answer(Answer::OK);
  RunProgram(ws, ui, 2, kModeRun);
  StepBack(ws, ui, 2);
  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{
                "Another quantum program is currently running,\runable to start program!",
                "Cannot step back, start this Quantum Program and try again"}));
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[1].icon, Icon::Critical);
  EXPECT_EQ(Calls().size(), 1u);
  EXPECT_EQ(ws.Program(2).Status, "Program ready");
  dialogs.answer(Answer::OK);
  StepBack(ws, ui, -1);  // "&Back" with no run would pass -1; refused the same way
  EXPECT_EQ(dialogs.messages().back(), "Cannot step back, start this Quantum Program and try again");

  // Resetting the other program leaves the halted run alone, status line included.
  const std::string halted = dialogs.status();
  EXPECT_EQ(halted, "Breakpoint, t = 0");
  ResetProgram(ws, ui, 2);
  EXPECT_EQ(dialogs.status(), halted);
  EXPECT_EQ(ws.RunningProgram, 1);
  EXPECT_EQ(Calls().size(), 1u);
  EXPECT_EQ(ws.Program(2).Status, "Program reset");
  EXPECT_EQ(ui.count("enable 1") + ui.count("enable 2"), 0);

  // Reset enables the commands before it calls the engine.
  std::size_t callsAtEnable = 0;
  ui.onEnable = [&](bool enabled) { if (enabled) callsAtEnable = Calls().size(); };
  const auto before = Calls().size();
  ResetProgram(ws, ui, 1);
  EXPECT_EQ(callsAtEnable, before);
  ASSERT_EQ(Calls().size(), before + 1);
  EXPECT_TRUE(Has(Calls().back(), "entry=-2 flags=0,0,0,0 ")) << Calls().back();
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.EngineEntry[0], -1);
  EXPECT_EQ(ws.CurrentStep(1), -1);
  EXPECT_EQ(ws.ProgramQubits(1), 0);
  EXPECT_EQ(ws.Program(1).Status, "Program reset");
  EXPECT_EQ(ws.Program(1).CurrentRow, -1);
  EXPECT_EQ(ui.count("refresh qubit window"), 1);  // the other program's reset left it alone

  // Now program 2 may run; it is prepared in the same directory and starts from its beginning.
  RunProgram(ws, ui, 2, kModeRun);
  EXPECT_TRUE(Has(Calls().back(), "entry=-1 flags=0,0,0,0 q1=0,0,0 name=other.kvp"))
      << Calls().back();
  EXPECT_EQ(ws.RunningProgram, 2);
}

TEST_F(RunControllerTest, AFreeSlotRunsNothing) {
  RunProgram(ws, ui, 5, kModeRun);
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(ws.RunningProgram, -1);
}

TEST_F(RunControllerTest, MissingEngineLibraryIsAnExecutionError) {
  setenv("ORVEX_ENGINE", (dir.path() + "no-such-engine.so").c_str(), 1);
  dialogs.answer(Answer::OK);
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  const std::string& text = dialogs.shown[0].text;
  EXPECT_EQ(text.rfind("An error occurred during execution.\rError in loading DLL " + dir.path() +
                           "no-such-engine.so",
                       0),
            0u)
      << text;
  const std::string tail = ", errorcode: 48";
  EXPECT_TRUE(text.size() > tail.size() && text.substr(text.size() - tail.size()) == tail) << text;
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ui.count("disable 1"), 1);
  EXPECT_EQ(ui.count("enable 1"), 1);
}

TEST_F(RunControllerTest, AnUnsavedProgramIsSavedFirst) {
  ws.Program(1).Name = "New";
  dialogs.file(std::nullopt);  // the save is cancelled: nothing runs
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(ws.RunningProgram, -1);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Save program as");

  Script("0 0 0 0\n");
  ws.Program(1).Name = "progs/main.kvp";
  ws.Program(1).Changed = true;
  ws.Program(1).Rows.pop_back();  // B removed, not saved yet
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(dir.read("app/progs/main.kvp"),
            "!Quantum program progs/main.kvp\r\n@INITIALIZE.MI\r\n@A.MI\r\n!BREAKPOINT\r\n");
  EXPECT_FALSE(ws.Program(1).Changed);
  EXPECT_EQ(Calls().size(), 1u);
}

TEST_F(RunControllerTest, AnimationCopiesEveryCallIntoTheDisplay) {
  Script("0 1 1 0  .1 .2 .3  0 0 0\n0 1 1 0  .2 .2 .3  0 0 0\n0 0 0 0  .3 .2 .3  0 0 0\n");
  ws.AnimateQubits = 1;
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(ui.frames, 3);
  EXPECT_EQ(ui.count("display 1"), 4);  // three animated calls and the final update
  EXPECT_DOUBLE_EQ(ws.QubitX(1, 1), .3);
}

TEST_F(RunControllerTest, ResetFromInsideTheCallLoopEndsTheRun) {
  // Steps return early ("call again") as runs do; a reset arriving meanwhile ends either.
  for (int mode : {kModeRun, kModeStep}) {
    Script("0 1 1 0\n0 1 1 0\n0 1 1 0\n0 0 0 0\n");
    std::remove((dir.path() + "calls.log").c_str());
    int pumps = 0;
    dialogs.onKeepResponsive = [&] {
      if (++pumps == 2) ResetProgram(ws, ui, 1);
    };
    RunProgram(ws, ui, 1, mode);
    auto calls = Calls();
    ASSERT_EQ(calls.size(), 3u);  // two ordinary calls and the reset call
    EXPECT_TRUE(Has(calls[1], "runMode=" + std::to_string(mode) + " ")) << calls[1];
    EXPECT_TRUE(Has(calls[2], "entry=-2")) << calls[2];
    EXPECT_EQ(ws.RunningProgram, -1);
    EXPECT_FALSE(ws.EngineBusy);
    EXPECT_EQ(ws.Program(1).Status, "Program reset");
    EXPECT_EQ(dialogs.status(), "");
  }
}

TEST_F(RunControllerTest, ProgressCarriesThePartDoneAndAStopAskedForResetsTheRun) {
  Script("0 1 1 0 w2=430\n0 1 1 0\n0 1 1 0\n0 0 0 0\n");
  int pumps = 0;
  dialogs.onKeepResponsive = [&] {
    if (++pumps == 2) dialogs.cancel = true;
  };
  RunProgram(ws, ui, 1, kModeRun);
  const auto reports = dialogs.progressReports();
  ASSERT_GE(reports.size(), 3u);
  EXPECT_EQ(reports[0].fraction, std::optional<double>(0.0));
  EXPECT_EQ(reports[1].text.rfind("Running\xE2\x80\xA6 43 % (", 0), 0u) << reports[1].text;
  EXPECT_DOUBLE_EQ(reports[1].fraction.value_or(-1), .43);
  // The stop: the engine is told to abandon the run, the status line cleared.
  const auto calls = Calls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_TRUE(Has(calls[2], "entry=-2")) << calls[2];
  EXPECT_EQ(reports.back().text, "");
  EXPECT_FALSE(reports.back().fraction);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.Program(1).Status, "Program reset");
}

TEST_F(RunControllerTest, StartsArrivingInsideTheCallLoop) {
  // Start of another program is refused with the message; Start of this one only beeps.
  dir.write("app/progs/other.kvp", "!Quantum program progs/other.kvp\r\n@A.MI\r\n");
  SetProgram(2, "progs/other.kvp", {{"Start", kIconStart}, {"A", kIconMI}});
  Script("0 1 1 0\n0 0 0 0\n");
  dialogs.answer(Answer::OK);
  int pumps = 0;
  dialogs.onKeepResponsive = [&] {
    if (++pumps == 1) {
      RunProgram(ws, ui, 2, kModeRun);
      RunProgram(ws, ui, 1, kModeRun);
    }
  };
  RunProgram(ws, ui, 1, kModeRun);
  EXPECT_EQ(dialogs.messages(), (std::vector<std::string>{
                                    "Another quantum program is currently running,\runable to start program!"}));
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_EQ(Calls().size(), 2u);
  EXPECT_EQ(ws.Program(1).Status, "Program has finished");
}

TEST(RunningText, ShowsPercentAndElapsedTime) {
  EXPECT_EQ(RunningText(430, 12.7), "Running\xE2\x80\xA6 43 % (0:12)");
  EXPECT_EQ(RunningText(1000, 3725), "Running\xE2\x80\xA6 100 % (1:02:05)");
  EXPECT_EQ(RunningText(-3, 0), "Running\xE2\x80\xA6 0 % (0:00)");
  EXPECT_EQ(RunningText(5000, 61), "Running\xE2\x80\xA6 100 % (1:01)");
}

TEST(EngineProgramName, IsTheFileNamePaddedAndCut) {
  EXPECT_EQ(EngineProgramNameFor("progs\\grover.kvp"), "grover.kvp" + std::string(22, ' '));
  EXPECT_EQ(EngineProgramNameFor(std::string(40, 'a') + ".kvp"), std::string(32, 'a'));
}

} // namespace
} // namespace orvex::test
