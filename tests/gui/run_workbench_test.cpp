// Runs through the program editor's tool bar and the Tools menu against the stand-in engine:
// halting at a breakpoint, stepping, going back, finishing and resetting, with the status
// header, the current-row mark, the qubit boxes and the enabling of menus and tool bars.
#include <fstream>

#include <QLabel>
#include <QStatusBar>
#include <QStatusTipEvent>
#include <QToolBar>

#include "miset/gui/mi_list_window.h"
#include "main_window_fixture.h"
#include "view/gui/qubit_stripes.h"
#include "view/gui/squbit.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Icon;

class RunWorkbenchTest : public MainWindowTest {
protected:
  void SetUp() override {
    writeDemoSet();
    programPath = writeProgram("progs/r.kvp", {"@A.MI", "!BREAKPOINT", "@B.MI"});
    otherPath = writeProgram("progs/other.kvp", {"@B.MI"});
    start("demo");
    ASSERT_EQ(OpenProgram(ws, main->runUi(), otherPath), 1);
    ASSERT_EQ(OpenProgram(ws, main->runUi(), programPath), 2);
    QApplication::processEvents();
  }
  void activate(int s) {
    for (QMdiSubWindow* w : main->mdi()->subWindowList())
      if (w->widget() == main->editor(s)) main->mdi()->setActiveSubWindow(w);
    ASSERT_EQ(main->activeSlot(), s);
  }
  std::vector<std::string> calls() {
    std::vector<std::string> lines;
    std::ifstream in(dir.path() + "calls.log");
    for (std::string l; std::getline(in, l);)
      if (!l.empty()) lines.push_back(l);
    return lines;
  }
  static QString tip(DefaultPG& e, int q) { return e.Qubit[q - 1]->toolTip().section('\n', 0, 0); }
  static bool bold(DefaultPG& e, int row) { return e.PG->topLevelItem(row)->font(0).bold(); }
  // The whole user interface's state while idle (true) or while a run is on (false).
  void expectCommandsEnabled(bool idle, int s) {
    for (const char* menu : {"MenuFile", "MenuSettings", "MenuWindow", "MenuProject", "MenuHelp", "MenuSize0",
                             "MenuSize3", "MenuSteps0", "MenuSteps2", "ToolNew", "ToolOpen", "ToolSaveAll", "ToolNewMISet"})
      EXPECT_EQ(enabled(menu), idle) << menu;
    EXPECT_EQ(enabled("MenuBack"), !idle);
    EXPECT_EQ(main->miListWindow()->isEnabled(), idle);
    EXPECT_EQ(main->miList()->button(0)->isEnabled(), idle);
    DefaultPG& e = editor(s);
    for (int b : {kButtonClear, kButtonSave, kButtonUpdateMI}) EXPECT_EQ(e.button(b)->isEnabled(), idle) << b;
    for (int b : {kButtonRun, kButtonStep, kButtonBack, kButtonRemove}) EXPECT_TRUE(e.button(b)->isEnabled()) << b;
  }

  std::string programPath, otherPath;
  const int slot = 2;
};

TEST_F(RunWorkbenchTest, EditorToolBarRunsHaltsStepsGoesBackAndFinishes) {
  ScriptedDialogs dialogs;
  script("0 1 0 5 1 0 0.5 0 1 0.5\n"       // Run: halts at the breakpoint
         "0 1 0 6 0.5 0.5 1 0.5 0.5 0\n"   // Step: B done
         "0 0 0 0 0.5 0.5 0 1 1 1\n");     // Run: the end
  DefaultPG& e = editor(slot);
  expectCommandsEnabled(true, slot);
  EXPECT_EQ(e.button(kButtonRun)->text(), "Run");

  e.button(kButtonRun)->trigger();
  EXPECT_EQ(header(e), "Program halted");
  EXPECT_EQ(main->runStatus(), "Breakpoint, t = 0");
  // Menu status tips passing over the status bar leave the run's line as it was.
  QStatusTipEvent passing(QStringLiteral("tip")), passed{QString()};
  QApplication::sendEvent(main.get(), &passing);
  QApplication::sendEvent(main.get(), &passed);
  EXPECT_EQ(main->statusBar()->currentMessage(), "");
  EXPECT_EQ(main->runStatus(), "Breakpoint, t = 0");
  EXPECT_TRUE(main->findChild<QLabel*>(QStringLiteral("RunStatus"))->isVisible());
  EXPECT_EQ(ws.RunningProgram, slot);
  EXPECT_EQ(ws.Program(slot).CurrentRow, 2);
  EXPECT_TRUE(bold(e, 2));
  EXPECT_FALSE(bold(e, 1));
  EXPECT_EQ(e.selectedRow(), 2);
  EXPECT_EQ(e.button(kButtonRun)->text(), "Run");
  EXPECT_TRUE(e.Qubit[0]->isVisible());
  EXPECT_TRUE(e.Qubit[1]->isVisible());
  EXPECT_FALSE(e.Qubit[2]->isVisible());
  EXPECT_EQ(tip(e, 1), "x = 1.000 ,y = 0.000 ,z = 0.500");
  EXPECT_EQ(tip(e, 2), "x = 0.000 ,y = 1.000 ,z = 0.500");
  expectCommandsEnabled(false, slot);

  // The other program is refused while this one is halted.
  DefaultPG& other = editor(1);
  dialogs.answer(Answer::OK);
  dialogs.answer(Answer::OK);
  other.button(kButtonRun)->trigger();
  other.button(kButtonBack)->trigger();
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_EQ(dialogs.shown[0].text, std::string("Another quantum program is currently running,") + '\r' +
                                       "unable to start program!");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[1].text, "Cannot step back, start this Quantum Program and try again");
  EXPECT_EQ(header(other), "Program ready");

  e.button(kButtonStep)->trigger();
  EXPECT_EQ(header(e), "Program halted");
  EXPECT_EQ(ws.Program(slot).CurrentRow, 3);
  EXPECT_TRUE(bold(e, 3));
  EXPECT_FALSE(bold(e, 2));
  EXPECT_EQ(tip(e, 1), "x = 0.500 ,y = 0.500 ,z = 1.000");

  e.button(kButtonBack)->trigger();
  EXPECT_EQ(ws.Program(slot).CurrentRow, 2);
  EXPECT_TRUE(bold(e, 2));
  EXPECT_EQ(tip(e, 1), "x = 1.000 ,y = 0.000 ,z = 0.500");
  // "&Back" of the Tools menu: back to the start state.
  main->action("MenuBack")->trigger();
  EXPECT_EQ(ws.Program(slot).CurrentRow, 0);
  EXPECT_EQ(ws.RunningProgram, slot);

  e.button(kButtonRun)->trigger();
  EXPECT_EQ(header(e), "Program has finished");
  EXPECT_EQ(ws.RunningProgram, -1);
  for (int r = 0; r < e.PG->topLevelItemCount(); ++r) EXPECT_FALSE(bold(e, r)) << r;
  EXPECT_EQ(tip(e, 2), "x = 1.000 ,y = 1.000 ,z = 1.000");
  expectCommandsEnabled(true, slot);
  EXPECT_EQ(calls().size(), 3u);

  // Tools > Reset on the active program: the boxes go.
  activate(slot);
  main->action("MenuReset")->trigger();
  EXPECT_EQ(header(e), "Program reset");
  EXPECT_FALSE(e.Qubit[0]->isVisible());
  ASSERT_EQ(calls().size(), 4u);
  EXPECT_NE(calls().back().find("entry=-2"), std::string::npos);

  // Tools > Update MI removes the MI copies from the run directory.
  EXPECT_TRUE(dir.exists("app/progs/A.MI"));
  main->action("MenuClearMI")->trigger();
  EXPECT_FALSE(dir.exists("app/progs/A.MI"));
  EXPECT_TRUE(dir.exists("app/MI/demo/A.MI"));
  EXPECT_EQ(dialogs.shown.size(), 2u);
}

TEST_F(RunWorkbenchTest, ToolsMenuRunsTheActiveProgramAndTheRunControlReadsStop) {
  ScriptedDialogs dialogs;
  script("0 1 1 5 0.2 0.2 0.2 0.2 0.2 0.2\n"
         "0 1 1 5 0.3 0.3 0.3 0.3 0.3 0.3\n"
         "0 1 0 5 1 0 0.5 0 1 0.5\n");
  main->action("MenuShowQubits")->trigger();
  ASSERT_NE(main->qubitWindow(), nullptr);
  EXPECT_TRUE(main->qubitWindow()->isVisible());
  EXPECT_EQ(main->qubitWindow()->qubits(), 2);

  DefaultPG& e = editor(slot);
  QString during, statusDuring;
  bool toolsDuring = true;
  QTimer::singleShot(0, [&] {
    during = e.button(kButtonRun)->text();
    statusDuring = header(e);
    toolsDuring = enabled("MenuProject");
  });
  activate(slot);
  main->action("MenuRun")->trigger();
  EXPECT_EQ(during, "Stop");
  EXPECT_EQ(statusDuring, "Program is running");
  EXPECT_FALSE(toolsDuring);
  EXPECT_EQ(e.button(kButtonRun)->text(), "Run");
  EXPECT_EQ(header(e), "Program halted");
  EXPECT_EQ(ws.Program(slot).CurrentRow, 2);
  EXPECT_GE(main->qubitWindow()->framesDrawn(), 3);
  EXPECT_DOUBLE_EQ(main->qubitWindow()->box(1)->A(), 1.0);

  // "Remove MI" on the running program resets it and removes nothing; the reset takes the
  // selection along, so pressing the same button again removes nothing either.
  select(e, 1);
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(header(e), "Program reset");
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(e.selectedRow(), -1);
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "Breakpoint", "B"}));
  EXPECT_FALSE(ws.Program(slot).Changed);
  expectCommandsEnabled(true, slot);

  // Clicking "Stop" while the call loop runs abandons the run.
  script("0 1 1 5\n0 1 1 5\n0 1 1 5\n0 1 1 5\n0 1 0 5\n");
  std::remove((dir.path() + "calls.log").c_str());
  // The first event pump is the enabling's; the click arrives in the call loop's.
  QTimer::singleShot(0, [&] { QTimer::singleShot(0, [&] { e.button(kButtonRun)->trigger(); }); });
  main->action("MenuStep")->trigger();
  EXPECT_EQ(header(e), "Program reset");
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_FALSE(ws.EngineBusy);
  const auto log = calls();
  ASSERT_GE(log.size(), 2u);
  EXPECT_LT(log.size(), 6u);
  EXPECT_NE(log.back().find("entry=-2"), std::string::npos);
  expectCommandsEnabled(true, slot);
  EXPECT_TRUE(dialogs.shown.empty());

  // The qubit-size items resize the qubit window's boxes.
  const int normal = main->qubitWindow()->boxEdge();
  main->action("MenuSize3")->trigger();
  EXPECT_GT(main->qubitWindow()->boxEdge(), normal);
  main->action("MenuSize0")->trigger();
  EXPECT_LT(main->qubitWindow()->boxEdge(), normal);

  // Unchecking the animation takes the qubit window away.
  main->action("MenuShowQubits")->trigger();
  EXPECT_EQ(main->qubitWindow(), nullptr);
}

TEST_F(RunWorkbenchTest, TheQubitWindowFollowsBackAndResetAndNeverShowsAFailedStart) {
  ScriptedDialogs dialogs;
  script("-1001 0 0 0 | no such file\n"
         "0 1 1 5 w2=500 0.9 0.9 0.9 0.9 0.9 0.9\n"  // an early return inside the first step
         "0 1 0 5 1 0 0.5 0 1 0.5\n"
         "0 1 0 5 0.5 0.5 1 0.5 0.5 0\n"
         "0 1 0 5 0.2 0.2 0.2 0.2 0.2 0.2\n");
  main->action("MenuShowQubits")->trigger();
  sQubit* window = main->qubitWindow();
  ASSERT_NE(window, nullptr);
  DefaultPG& e = editor(slot);
  auto sphere = [&](int q) {
    return std::vector<double>{window->box(q)->A(), window->box(q)->B(), window->box(q)->C()};
  };

  // The failed start leaves the spheres at their centre, not at (0, 0, 0).
  dialogs.answer(Answer::OK);
  e.button(kButtonStep)->trigger();
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(sphere(1), (std::vector<double>{0.5, 0.5, 0.5}));
  EXPECT_FALSE(e.Qubit[0]->isVisible());

  // While the call loop runs the status bar shows the engine's progress.
  QString during;
  QTimer::singleShot(0, [&] { QTimer::singleShot(0, [&] { during = main->runStatus(); }); });
  e.button(kButtonStep)->trigger();
  EXPECT_TRUE(during.startsWith(QStringLiteral("Running\u2026 50 % (0:"))) << during.toStdString();
  EXPECT_EQ(main->runStatus(), "A, main step 0 of 0, t = 0");
  e.button(kButtonStep)->trigger();
  EXPECT_EQ(sphere(1), (std::vector<double>{0.5, 0.5, 1}));
  EXPECT_EQ(ws.Program(slot).CurrentRow, 3);

  // Back: the spheres show what the boxes show.
  e.button(kButtonBack)->trigger();
  EXPECT_EQ(sphere(1), (std::vector<double>{1, 0, 0.5}));
  EXPECT_EQ(sphere(2), (std::vector<double>{0, 1, 0.5}));
  EXPECT_EQ(tip(e, 1), "x = 1.000 ,y = 0.000 ,z = 0.500");
  e.button(kButtonBack)->trigger();  // the start: |00>
  EXPECT_EQ(sphere(2), (std::vector<double>{0.5, 0.5, 0}));
  EXPECT_EQ(tip(e, 2), "x = 0.500 ,y = 0.500 ,z = 0.000");
  EXPECT_EQ(main->runStatus(), "Start, t = 0");

  // Reset: boxes gone, spheres back at their centre, status line cleared.
  e.button(kButtonStep)->trigger();
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(header(e), "Program reset");
  EXPECT_FALSE(e.Qubit[0]->isVisible());
  EXPECT_EQ(sphere(1), (std::vector<double>{0.5, 0.5, 0.5}));
  EXPECT_EQ(main->runStatus(), "");
}

TEST_F(RunWorkbenchTest, TheIntegratorSettingGoesToTheEngineAtAStart) {
  ScriptedDialogs dialogs;
  script("0 1 0 5\n");
  QAction* second = main->action("MenuIntegrator0");
  QAction* fourth = main->action("MenuIntegrator1");
  ASSERT_NE(second, nullptr);
  ASSERT_NE(fourth, nullptr);
  EXPECT_EQ(second->text(), "Second order");
  EXPECT_EQ(fourth->text(), "Fourth order");
  EXPECT_TRUE(second->isChecked());
  fourth->trigger();
  EXPECT_TRUE(fourth->isChecked());
  EXPECT_FALSE(second->isChecked());
  EXPECT_EQ(ws.Integrator, kIntegratorFourthOrder);
  editor(slot).button(kButtonRun)->trigger();
  ASSERT_EQ(calls().size(), 1u);
  EXPECT_NE(calls()[0].find("entry=-1 flags=0,4,0,0 "), std::string::npos) << calls()[0];
  EXPECT_FALSE(enabled("MenuIntegrator"));  // with the rest of the Settings menu
}

TEST_F(RunWorkbenchTest, EngineErrorsAreShownAndTheProgramReturnsToIdle) {
  ScriptedDialogs dialogs;
  script("-1001 0 0 0 | no such file\n");
  dialogs.answer(Answer::OK);
  activate(slot);
  main->action("MenuRun")->trigger();
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Micro instruction or program file cannot be found.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(ws.RunningProgram, -1);
  expectCommandsEnabled(true, slot);
  EXPECT_EQ(editor(slot).button(kButtonRun)->text(), "Run");
}

TEST_F(RunWorkbenchTest, ANewProgramIsSavedBeforeItRunsAndCancellingRunsNothing) {
  ScriptedDialogs dialogs;
  main->action("MenuNew")->trigger();
  const int fresh = main->activeSlot();
  ASSERT_EQ(fresh, 3);
  editor(fresh).dropMIRow(0, {"MI2", "A", kIconMI});
  dialogs.file(std::nullopt);
  main->action("MenuRun")->trigger();
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_TRUE(calls().empty());

  script("0 0 0 0 1 1 1 1 1 1\n");
  dialogs.file(app + "progs/fresh.kvp");
  editor(fresh).button(kButtonRun)->trigger();
  EXPECT_EQ(ws.Program(fresh).Name, "progs/fresh.kvp");
  EXPECT_EQ(header(editor(fresh)), "Program has finished");
  EXPECT_EQ(editor(fresh).windowTitle(), "fresh");
  EXPECT_EQ(calls().size(), 1u);
  EXPECT_TRUE(dialogs.scriptUsedUp());
}

} // namespace
} // namespace orvex::test

namespace orvex::test {
namespace {

TEST_F(RunWorkbenchTest, AHaltedProgramCannotBeClosedButTheWorkbenchResetsItOnClose) {
  ScriptedDialogs dialogs;
  script("0 1 0 5 1 0 0.5 0 1 0.5\n");
  DefaultPG& e = editor(slot);
  e.button(kButtonRun)->trigger();
  ASSERT_EQ(ws.RunningProgram, slot);

  QMdiSubWindow* frame = nullptr;
  for (QMdiSubWindow* w : main->mdi()->subWindowList())
    if (w->widget() == &e) frame = w;
  ASSERT_NE(frame, nullptr);
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(frame->close());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Cannot close when program is still running");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(main->editor(slot), &e);

  // Closing the workbench resets the run first; nothing was changed, so nothing is asked.
  EXPECT_TRUE(main->close());
  EXPECT_EQ(ws.RunningProgram, -1);
  ASSERT_EQ(calls().size(), 2u);
  EXPECT_NE(calls().back().find("entry=-2"), std::string::npos);
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

} // namespace
} // namespace orvex::test
