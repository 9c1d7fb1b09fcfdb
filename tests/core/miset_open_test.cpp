// Opening an MI set: qubits.dat, the listing order, callable-program entries, the chooser's
// rule, the open-editor question and the table limit.
#include "core/miset_fixture.h"

#include <cstdio>

#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "core/error_of.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

using OpenMISetTest = SetFixture;

TEST_F(OpenMISetTest, EmptySetOpensWithTwoQubitsAndTheInitialisationMI) {
  dir.write("MI/empty/.keep", "");
  std::remove((dir.path() + "MI/empty/.keep").c_str());
  ScriptedDialogs dialogs;
  OpenMISet(ws, ui);

  EXPECT_EQ(dialogs.offered(), std::vector<std::string>{"empty"});
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/empty/");
  EXPECT_EQ(ws.MIList.Caption, "Set: empty");
  EXPECT_EQ(ws.NumberOfQubits, 2);
  EXPECT_EQ(dir.read("MI/empty/qubits.dat"), " 2 \r\n");
  ASSERT_EQ(ws.MIList.Rows.size(), 2u);
  EXPECT_EQ(ws.MIList.Rows[0].Text, "Breakpoint");
  EXPECT_EQ(ws.MIList.Rows[0].Key, "");
  EXPECT_EQ(ws.MIList.Rows[0].Icon, kIconBreakpoint);
  EXPECT_EQ(Upper(ws.MIList.Rows[1].Text), "INITIALIZE");
  EXPECT_EQ(ws.MIList.Rows[1].Key, "MI1");
  EXPECT_TRUE(dir.exists("MI/empty/Initialize.mi"));
  EXPECT_EQ(ws.MIList.Status, "");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(OpenMISetTest, RowsFollowTheBreakpointInCaseInsensitiveNameOrder) {
  put("demo", "b.MI", MIText("about b"));
  put("demo", "A.MI", MIText("about A"));
  put("demo", "INITIALIZE.MI", MIText("init"));
  put("demo", "c.MP", "@progs/c.kvp\r\n");
  put("demo", "qubits.dat", "5");
  dir.write("progs/c.kvp", "!Quantum program c\r\n");
  ScriptedDialogs dialogs;
  OpenMISet(ws, ui);

  EXPECT_EQ(ws.NumberOfQubits, 5);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "b", "c", "INITIALIZE"}));
  EXPECT_EQ(ws.MIList.Rows[3].Icon, kIconCallableProgram);
  EXPECT_EQ(ws.MIList.Rows[1].Icon, kIconMI);
  expectConsecutiveKeys();
  const int c = SlotOfRow(ws, 3);
  EXPECT_EQ(ws.MITable(c).Description, "Run: progs/c.kvp");
  EXPECT_EQ(ws.MITable(SlotOfRow(ws, 1)).Description, "about A");

  // A click shows the record's description; the breakpoint row its own name.
  ClickMIListRow(ws, 3);
  EXPECT_EQ(ws.MIList.Status, "Run: progs/c.kvp");
  ClickMIListRow(ws, 0);
  EXPECT_EQ(ws.MIList.Status, "Breakpoint");
}

TEST_F(OpenMISetTest, EntryOfAMissingProgramIsReportedOnceAndDropped) {
  put("demo", "a.MP", "@progs/gone.kvp\r\n");
  put("demo", "z.MP", "@progs/here.kvp\r\n");
  put("demo", "m.MI", MIText("m"));
  dir.write("progs/here.kvp", "!Quantum program here\r\n");
  ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  OpenMISet(ws, ui);

  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Program file \rprogs/gone.kvp\rcould not be found.\rMicro program a.MP not loaded.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize", "m", "z"}));
  expectConsecutiveKeys();
  EXPECT_EQ(ws.MICount, 3);
}

TEST_F(OpenMISetTest, ChooserListsDirectoriesOnlyAndCancelKeepsASetOpen) {
  put("one", "qubits.dat", " 3 \r\n");
  put("two", "qubits.dat", " 4 \r\n");
  dir.write("MI/stray.txt", "not a set");
  ScriptedDialogs dialogs;

  // Cancelled at start-up: the row selected then is opened all the same.
  dialogs.choose(std::nullopt, 1);
  OpenMISet(ws, ui);
  EXPECT_EQ(dialogs.offered(), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/two/");

  // A chosen row is opened.
  dialogs.choose(0);
  OpenMISet(ws, ui);
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/one/");
  EXPECT_EQ(ws.NumberOfQubits, 3);

  // Cancelled with a set open: the same set stays open, whatever row was selected.
  dialogs.choose(std::nullopt, 1);
  OpenMISet(ws, ui);
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/one/");
  EXPECT_EQ(ws.MIList.Caption, "Set: one");
  EXPECT_EQ(rowTexts().size(), 2u);
}

TEST_F(OpenMISetTest, ChooserListsTheSetsInNameOrderAndPreselectsTheFirst) {
  for (const char* name : {"delta", "Alpha", "charlie", "bravo", "Echo", "foxtrot"})
    put(name, "qubits.dat", " 2 \r\n");
  ScriptedDialogs dialogs;
  dialogs.choose(std::nullopt);  // cancelled at start-up: the preselected row is opened
  OpenMISet(ws, ui);
  EXPECT_EQ(dialogs.offered(),
            (std::vector<std::string>{"Alpha", "bravo", "charlie", "delta", "Echo", "foxtrot"}));
  EXPECT_EQ(dialogs.questions.back().selected, 0);
  EXPECT_EQ(ws.MIList.Caption, "Set: Alpha");

  // Even with no row left selected, start-up does not end without a set.
  Workspace fresh;
  fresh.AppDir = dir.path();
  ui.ws = &fresh;
  dialogs.choose(std::nullopt, -1);
  OpenMISet(fresh, ui);
  EXPECT_EQ(fresh.MIList.Caption, "Set: Alpha");
  EXPECT_EQ(fresh.MISetPath, dir.path() + "MI/Alpha/");
}

TEST_F(OpenMISetTest, OpenEditorsAreAskedAboutAndClosedOrTheOpeningStops) {
  put("demo", "A.MI", MIText("A"));
  ScriptedDialogs dialogs;
  OpenMISet(ws, ui);
  ws.MIEditorOpen(1) = true;
  ws.MIEditorOpen(3) = true;

  dialogs.answer(Answer::Cancel);
  ws.MIList.Caption = "unchanged";
  OpenMISet(ws, ui);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "There are still 2 MIs open.\r\nDo you want to save them before opening another MI-set?");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::YesNoCancel);
  EXPECT_TRUE(ui.closed.empty());
  EXPECT_EQ(ws.MIList.Caption, "unchanged");

  // An editor that refuses to close keeps the old set.
  ui.closeResult = false;
  dialogs.answer(Answer::Yes);
  OpenMISet(ws, ui);
  EXPECT_EQ(ui.closed, (std::vector<std::pair<int, bool>>{{1, true}}));
  EXPECT_EQ(ws.MIList.Caption, "unchanged");

  ui.closeResult = true;
  ui.closed.clear();
  ws.MIEditorOpen(1) = false;
  dialogs.answer(Answer::No);
  OpenMISet(ws, ui);
  EXPECT_EQ(dialogs.shown.back().text,
            "There is still 1 MI open.\r\nDo you want to save it before opening another MI-set?");
  EXPECT_EQ(ui.closed, (std::vector<std::pair<int, bool>>{{3, false}}));
  EXPECT_EQ(ws.MIList.Caption, "Set: demo");
  EXPECT_GE(ui.qubitWindowUnloads, 1);
}

TEST_F(OpenMISetTest, WithoutAnySetAnEmptyOneIsMadeSoASetIsOpen) {
  ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  OpenMISet(ws, ui);
  EXPECT_EQ(dialogs.messages(),
            std::vector<std::string>{"No micro instruction set was found.\rThe empty set Default was created."});
  EXPECT_EQ(dialogs.offered(), std::vector<std::string>{"Default"});
  EXPECT_EQ(ws.MIList.Caption, "Set: Default");
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize"}));
}

TEST_F(OpenMISetTest, RunningProgramBlocksOpening) {
  put("demo", "A.MI", MIText("A"));
  ScriptedDialogs dialogs;
  ws.RunningProgram = 2;
  dialogs.answer(Answer::OK);
  OpenMISet(ws, ui);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "A Quantum Program is currently running,\rstop the Quantum Program and try again");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(dialogs.count(RecordedQuestion::List), 0);
  EXPECT_TRUE(ws.MISetPath.empty());
}

TEST_F(OpenMISetTest, NoMoreThan500RecordsAreEverLoaded) {
  for (int i = 0; i < 501; ++i) put("big", "m" + std::to_string(i) + ".MI", MIText("x"));
  ScriptedDialogs dialogs;
  const auto e = ErrorFrom([&] { OpenMISet(ws, ui); });
  ASSERT_TRUE(e) << "a 501st MI must not fit";
  EXPECT_EQ(e->number(), 9);
  EXPECT_EQ(e->description(),
            "Subscript out of range: the MI set holds more than 500 micro instructions and "
            "programs; only the first 500 were loaded");
  EXPECT_EQ(ws.MICount, 500);
  EXPECT_EQ(ws.MIList.Rows.size(), 501u);
}

TEST_F(OpenMISetTest, MoreThan301CallableProgramsLoadNone) {
  put("calls", "A.MI", MIText("a"));
  for (int i = 0; i < 302; ++i) put("calls", "p" + std::to_string(i) + ".MP", "@progs/p.kvp\r\n");
  ScriptedDialogs dialogs;
  const auto e = ErrorFrom([&] { OpenMISet(ws, ui); });
  ASSERT_TRUE(e) << "a 302nd callable program must not fit";
  EXPECT_EQ(e->number(), 9);
  EXPECT_EQ(e->description(), "Subscript out of range: the MI set holds more than 301 callable "
                             "programs; none of them was loaded");
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A"}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(OpenMISetTest, AnUnreadableMIFileIsReportedAndTheOthersLoad) {
  put("demo", "bad.MI", "HEISENBERG INTERACTION\r\n1,2\r\nEND\r\n");
  put("demo", "good.MI", MIText("fine"));
  ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  OpenMISet(ws, ui);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.rfind("The micro instruction file bad.MI could not be read.\r", 0), 0u);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "good", "Initialize"}));
  expectConsecutiveKeys();
}

TEST_F(OpenMISetTest, AnUnreadableInitialisationMIIsListedAfreshButItsFileIsKept) {
  // A blank line inside the coupling block is a malformed pair line.
  const std::string bad = "HEISENBERG INTERACTION\r\n\r\nEND\r\nINITIAL STATE: RANDOM\r\n12\r\nEND\r\n";
  put("demo", "INITIALIZE.MI", bad);
  ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  OpenMISet(ws, ui);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text.rfind("The micro instruction file INITIALIZE.MI could not be read.\r", 0), 0u);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize"}));
  EXPECT_EQ(dir.read("MI/demo/INITIALIZE.MI"), bad);
  EXPECT_EQ(ListFiles(ws.MISetPath, ".MI").size(), 1u);
}

} // namespace
} // namespace orvex::test
