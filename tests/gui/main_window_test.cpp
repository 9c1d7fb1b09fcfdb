// The main window's commands: which are enabled follows the active child window (the MI list,
// an MI editor, a saved or a new program, none), and every menu item and tool bar button
// reaches the operation it names.
#include <map>

#include <QMdiArea>
#include <QMdiSubWindow>

#include "main_window_fixture.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/mi_list_window.h"
#include "miset/mi_commands.h"
#include "view/gui/trace_window.h"

namespace orvex::test {
namespace {

using platform::Answer;

// The commands that act on the active program, and "&Gate fidelity…".
const char* const kProgramCommands[] = {"MenuRun",      "MenuStep",   "MenuReset", "MenuCheckAccuracy",
                                        "MenuSaveP",    "MenuRename", "MenuTrace", "MenuClearMI"};

class MainWindowMenusTest : public MainWindowTest {
protected:
  void SetUp() override {
    writeDemoSet();
    programPath = writeProgram("progs/m.kvp", {"@A.MI"});
    start("demo");
  }
  void activate(QWidget* document) {
    for (QMdiSubWindow* w : main->mdi()->subWindowList())
      if (w->widget() == document) main->mdi()->setActiveSubWindow(w);
  }
  // The enabled state of the program commands, by name, and of the rest that do not depend
  // on the active window.
  std::map<std::string, bool> programCommands() {
    std::map<std::string, bool> on;
    for (const char* name : kProgramCommands) on[name] = enabled(name);
    return on;
  }
  static std::map<std::string, bool> all(bool on) {
    std::map<std::string, bool> m;
    for (const char* name : kProgramCommands) m[name] = on;
    return m;
  }
  void expectIdleFrame() {
    for (const char* name : {"MenuFile", "MenuNew", "MenuOpen", "MenuSave", "MenuProject", "MenuWindow",
                             "MenuArrange", "MenuShow", "MenuHelp", "ToolNew", "ToolNewMISet"})
      EXPECT_TRUE(enabled(name)) << name;
    EXPECT_FALSE(enabled("MenuBack"));
    EXPECT_FALSE(enabled("MenuPause"));
  }
  int rowOf(const std::string& text) {
    for (int r = 0; r < main->miList()->Micro->count(); ++r)
      if (main->miList()->Micro->item(r)->text().toStdString() == text) return r;
    return -1;
  }

  std::string programPath;
};

TEST_F(MainWindowMenusTest, ProgramCommandsAreEnabledExactlyWhileAProgramEditorIsActive) {
  ScriptedDialogs dialogs;
  // The MI list active: no program to act on; the fidelity of its selected MI can be asked.
  main->showMIList();
  expectIdleFrame();
  EXPECT_EQ(programCommands(), all(false));
  EXPECT_TRUE(enabled("MenuFidelity"));

  // An MI editor active.
  OpenMIListEntry(ws, main->miSetUi(), rowOf("A"));
  ASSERT_NE(main->miEditor(1), nullptr);
  ASSERT_EQ(main->mdi()->currentSubWindow()->widget(), main->miEditor(1));
  EXPECT_EQ(programCommands(), all(false));
  EXPECT_FALSE(enabled("MenuFidelity"));

  // A saved program active: all of them.
  ASSERT_EQ(openThroughMenu(dialogs, programPath), 1);
  expectIdleFrame();
  EXPECT_EQ(programCommands(), all(true));
  EXPECT_TRUE(enabled("MenuFidelity"));

  // Back to the MI editor and to the program: the menus follow each activation.
  activate(main->miEditor(1));
  EXPECT_EQ(programCommands(), all(false));
  activate(main->editor(1));
  EXPECT_EQ(programCommands(), all(true));

  // A new program has no run directory to update yet; saving it gives it one.
  main->action("MenuNew")->trigger();
  ASSERT_EQ(main->activeSlot(), 2);
  std::map<std::string, bool> fresh = all(true);
  fresh["MenuClearMI"] = false;
  EXPECT_EQ(programCommands(), fresh);
  editor(2).dropMIRow(0, {"MI2", "B", kIconMI});
  dialogs.file(dir.path() + "app/progs/fresh.kvp");
  main->action("MenuRename")->trigger();
  ASSERT_EQ(ws.Program(2).Name, "progs/fresh.kvp");
  EXPECT_EQ(programCommands(), all(true));

  // The run state on top: while a run is on the Tools menu is off and "&Back" on; the
  // program commands still follow the active window afterwards.
  main->runUi().enableRunCommands(1, false);
  EXPECT_FALSE(enabled("MenuProject"));
  EXPECT_FALSE(enabled("ToolNew"));
  EXPECT_TRUE(enabled("MenuBack"));
  EXPECT_TRUE(enabled("MenuPause"));
  main->runUi().enableRunCommands(1, true);
  expectIdleFrame();

  // The programs closed, the active one first: the window activated next is no program.
  activate(main->editor(2));
  for (int s : {2, 1}) {
    for (QMdiSubWindow* w : main->mdi()->subWindowList()) {
      if (w->widget() == main->editor(s)) {
        ASSERT_TRUE(w->close());
      }
    }
    QApplication::processEvents();
    ASSERT_EQ(main->editor(s), nullptr);
  }
  EXPECT_NE(main->mdi()->currentSubWindow(), nullptr);
  EXPECT_EQ(programCommands(), all(false));
  expectIdleFrame();
  EXPECT_TRUE(dialogs.scriptUsedUp());
}

TEST_F(MainWindowMenusTest, EveryMenuItemAndToolBarButtonReachesItsCommand) {
  ScriptedDialogs dialogs;
  ASSERT_EQ(openThroughMenu(dialogs, programPath), 1);
  main->action("ToolNew")->trigger();
  EXPECT_NE(main->editor(2), nullptr);
  main->action("MenuNew")->trigger();
  EXPECT_NE(main->editor(3), nullptr);

  // Save program writes the active program.
  activate(main->editor(1));
  editor(1).dropMIRow(1, {"MI2", "B", kIconMI});
  ASSERT_TRUE(ws.Program(1).Changed);
  main->action("MenuSaveP")->trigger();
  EXPECT_FALSE(ws.Program(1).Changed);
  EXPECT_NE(dir.read("app/progs/m.kvp").find("@B.MI"), std::string::npos);

  // Start runs it to its end with the stand-in engine.
  script("0 0 0 0 0.5 0.5 0 1 1 1\n");
  main->action("MenuRun")->trigger();
  EXPECT_EQ(header(editor(1)), "Program has finished");
  main->action("MenuReset")->trigger();
  EXPECT_EQ(header(editor(1)), "Program reset");

  main->action("MenuTrace")->trigger();
  EXPECT_NE(main->traceWindow(1), nullptr);
  main->action("MenuShow")->trigger();
  EXPECT_EQ(main->mdi()->currentSubWindow(), main->miListWindow());

  // The settings reach the workspace and the qubit window.
  main->action("MenuSize3")->trigger();
  EXPECT_EQ(ws.QubitSize, 3);
  main->action("MenuSteps2")->trigger();
  EXPECT_EQ(ws.StepGranularity, 2);
  main->action("MenuIntegrator1")->trigger();
  EXPECT_EQ(ws.Integrator, kIntegratorFourthOrder);
  main->action("MenuShowQubits")->trigger();
  EXPECT_EQ(ws.AnimateQubits, 1);
  EXPECT_NE(main->qubitWindow(), nullptr);
  main->action("MenuShowQubits")->trigger();
  EXPECT_EQ(main->qubitWindow(), nullptr);

  // Help finds no help file in this application directory and says so.
  dialogs.answer(Answer::OK);
  main->action("MenuHelp2")->trigger();
  ASSERT_FALSE(dialogs.messages().empty());
  EXPECT_EQ(dialogs.messages().back().rfind("Cannot locate file: ", 0), 0u);
  EXPECT_TRUE(dialogs.scriptUsedUp());
}

} // namespace
} // namespace orvex::test
