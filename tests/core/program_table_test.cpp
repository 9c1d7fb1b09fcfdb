// The program table: new, open, save, save as, callable programs, closing, and the editor's
// row operations.
#include "program/program_table.h"

#include <gtest/gtest.h>

#include "run/run_controller.h"
#include "run_fixture.h"
#include "workspace/errors.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

class ProgramTableTest : public ::testing::Test {
protected:
  ProgramTableTest() { ws.AppDir = dir.path(); }

  TempDir dir;
  ScriptedDialogs dialogs;
  Workspace ws;
  RecordingUi ui;
};

TEST_F(ProgramTableTest, NewProgramsUpToTen) {
  for (int i = 1; i <= 10; ++i) ASSERT_EQ(NewProgram(ws, ui), i);
  const ProgramSlot& p = ws.Program(3);
  EXPECT_EQ(p.Name, "New");
  EXPECT_EQ(p.Caption, "New");
  EXPECT_EQ(p.Status, "New program");
  ASSERT_EQ(p.Rows.size(), 1u);
  EXPECT_EQ(p.Rows[0].Text, "Start");
  EXPECT_EQ(p.Rows[0].Icon, kIconStart);
  EXPECT_TRUE(p.Visible);
  EXPECT_EQ(ui.count("show 3"), 1);
  EXPECT_EQ(ui.count("arrange"), 10);

  dialogs.answer(Answer::OK);
  EXPECT_EQ(NewProgram(ws, ui), 0);
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"No more programs can be loaded"});
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
}

TEST_F(ProgramTableTest, SavingWritesTheFourLines) {
  NewProgram(ws, ui);
  ProgramSlot& p = ws.Program(1);
  p.Rows = {{"Start", kIconStart}, {"A", kIconMI}, {"Breakpoint", kIconBreakpoint},
            {"loop", kIconProgramRow}};
  p.Changed = true;
  ws.FileDialogDir = dir.path() + "elsewhere/";
  dialogs.file(dir.path() + "progs/Saved.KVP");
  dir.write("progs/other.txt", "");

  ASSERT_TRUE(SaveProgram(ws, ui, 1));

  ASSERT_EQ(dialogs.shown.size(), 1u);
  const platform::FileRequest& request = dialogs.shown[0].request;
  EXPECT_EQ(request.title, "Save program as");
  EXPECT_EQ(request.filter, "Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*");
  EXPECT_EQ(request.directory, dir.path() + "elsewhere/");
  EXPECT_EQ(ws.FileDialogDir, dir.path() + "progs/");
  EXPECT_EQ(p.Name, "progs/saved.kvp");
  EXPECT_EQ(p.Caption, "saved");
  EXPECT_FALSE(p.Changed);
  EXPECT_EQ(dir.read("progs/Saved.KVP"),
            "!Quantum program progs/saved.kvp\r\n@A.MI\r\n!BREAKPOINT\r\n@loop.MP\r\n");

  // A named program is saved again without a question, into the file as it is on disk.
  p.Rows.pop_back();
  ASSERT_TRUE(SaveProgram(ws, ui, 1));
  EXPECT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dir.read("progs/Saved.KVP"),
            "!Quantum program progs/saved.kvp\r\n@A.MI\r\n!BREAKPOINT\r\n");
}

TEST_F(ProgramTableTest, SaveAsOntoAnOpenProgramIsRefused) {
  dir.write("progs/b.kvp", "!Quantum program progs/b.kvp\r\n@B.MI\r\n");
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/b.kvp"), 1);
  NewProgram(ws, ui);
  ws.Program(2).Rows.push_back({"A", kIconMI});

  dialogs.file(dir.path() + "PROGS/B.KVP");
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveProgram(ws, ui, 2));
  dialogs.file(dir.path() + "progs/b.kvp");
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveProgramAs(ws, ui, 2));

  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{
                "Unable to save progs/b.kvp\rThis file is opened by Orvex, choose another name.",
                "Cannot save to an open program"}));
  EXPECT_EQ(dialogs.shown[1].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[3].icon, Icon::Critical);
  EXPECT_EQ(ws.Program(2).Name, "New");
  EXPECT_EQ(dir.read("progs/b.kvp"), "!Quantum program progs/b.kvp\r\n@B.MI\r\n");

  // Saving a program under its own name is no conflict.
  dialogs.file(dir.path() + "progs/b.kvp");
  EXPECT_TRUE(SaveProgramAs(ws, ui, 1));
}

TEST_F(ProgramTableTest, AFileThatCannotBeWrittenLeavesTheProgramsName) {
  dir.write("progs/a.kvp", "!Quantum program progs/a.kvp\r\n@A.MI\r\n");
  dir.write("progs/taken.kvp/inside", "");  // a directory where the file should go
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  ws.Program(1).Rows.push_back({"B", kIconMI});
  ws.Program(1).Changed = true;

  dialogs.file(dir.path() + "progs/taken.kvp");
  EXPECT_THROW(SaveProgramAs(ws, ui, 1), RuntimeError);
  EXPECT_EQ(ws.Program(1).Name, "progs/a.kvp");
  EXPECT_EQ(ws.Program(1).Caption, "a");
  EXPECT_TRUE(ws.Program(1).Changed);

  NewProgram(ws, ui);
  dialogs.file(dir.path() + "progs/taken.kvp");
  EXPECT_THROW(SaveProgram(ws, ui, 2), RuntimeError);
  EXPECT_EQ(ws.Program(2).Name, "New");  // the next save asks for a name again
  EXPECT_EQ(ws.Program(2).Caption, "New");
}

TEST_F(ProgramTableTest, RefusedDirectoryMakesTheProgramUnnamedAgain) {
  NewProgram(ws, ui);
  dialogs.file(dir.path() + "fresh/x.kvp");
  dialogs.answer(Answer::No);  // "Create (sub)directory?"
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveProgram(ws, ui, 1));
  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{"Create (sub)directory?", "Failed to create (sub)directory!"}));
  EXPECT_EQ(ws.Program(1).Name, "New");
  EXPECT_FALSE(dir.exists("fresh"));

  dialogs.file(dir.path() + "fresh/x.kvp");
  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(SaveProgram(ws, ui, 1));
  EXPECT_EQ(dir.read("fresh/x.kvp"), "!Quantum program fresh/x.kvp\r\n");

  // Save as into a directory the user does not let us make: unnamed again as well.
  dialogs.file(dir.path() + "other/y.kvp");
  dialogs.answer(Answer::No);
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveProgramAs(ws, ui, 1));
  EXPECT_EQ(dialogs.messages().back(), "Failed to create (sub)directory!");
  EXPECT_EQ(ws.Program(1).Name, "New");
  EXPECT_FALSE(dir.exists("other"));
}

TEST_F(ProgramTableTest, OpeningReadsEveryLineForm) {
  dir.write("progs/forms.kvp",
            "!Quantum program y\r\n@ X.mi ! comment\r\n@X.MP#note\r\n!breakpoint\r\n"
            "# a comment\r\n\r\nstray text\r\n");
  dir.write("progs/empty.kvp", "!Quantum program progs/empty.kvp\r\n");

  dialogs.file(dir.path() + "progs/forms.kvp");
  ASSERT_EQ(OpenProgram(ws, ui), 1);
  EXPECT_EQ(dialogs.shown[0].request.title, "Open quantum program");
  EXPECT_EQ(ws.FileDialogDir, dir.path() + "progs/");
  const ProgramSlot& p = ws.Program(1);
  ASSERT_EQ(p.Rows.size(), 4u);
  EXPECT_EQ(p.Rows[0].Text, "Start");
  EXPECT_EQ(p.Rows[1].Text, "X");
  EXPECT_EQ(p.Rows[1].Icon, kIconMI);
  EXPECT_EQ(p.Rows[2].Text, "X");
  EXPECT_EQ(p.Rows[2].Icon, kIconProgramRow);
  EXPECT_EQ(p.Rows[3].Text, "Breakpoint");
  EXPECT_EQ(p.Rows[3].Icon, kIconBreakpoint);
  EXPECT_EQ(p.Name, "progs/forms.kvp");
  EXPECT_EQ(p.Caption, "forms");
  EXPECT_EQ(p.Status, "Program ready");
  EXPECT_FALSE(p.Changed);

  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/empty.kvp"), 2);
  EXPECT_EQ(ws.Program(2).Rows.size(), 1u);

  dialogs.file(std::nullopt);
  EXPECT_EQ(OpenProgram(ws, ui), 0);  // cancelled: silent
  EXPECT_EQ(dialogs.messages().size(), 0u);
}

TEST_F(ProgramTableTest, TheSameFileInAnotherLetterCaseIsAlreadyOpen) {
  dir.write("progs/a.kvp", "!Quantum program progs/a.kvp\r\n");
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  dialogs.answer(Answer::OK);
  EXPECT_EQ(OpenProgram(ws, ui, dir.path() + "PROGS/A.KVP"), 0);
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"This program has already been opened."});
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_TRUE(ws.Program(2).Name.empty());
}

TEST_F(ProgramTableTest, CallablePrograms) {
  dialogs.answer(Answer::OK);
  EXPECT_EQ(OpenCallableProgram(ws, ui, "progs/missing.kvp"), 0);
  dir.write("Progs/Loop.kvp", "!Quantum program progs/loop.kvp\r\n@A.MI\r\n");
  ASSERT_EQ(OpenCallableProgram(ws, ui, "progs\\loop.kvp"), 1);
  EXPECT_EQ(ws.Program(1).Name, "progs/loop.kvp");
  EXPECT_EQ(ws.Program(1).Status, "Program ready");
  EXPECT_EQ(ws.Program(1).Rows.size(), 2u);
  dialogs.answer(Answer::OK);
  EXPECT_EQ(OpenCallableProgram(ws, ui, "progs/loop.kvp"), 0);
  FreeProgramSlot(ws, 1);
  for (int i = 1; i <= 10; ++i) NewProgram(ws, ui);
  dialogs.answer(Answer::OK);
  EXPECT_EQ(OpenCallableProgram(ws, ui, "progs/loop.kvp"), 0);
  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{
                "Program file \rprogs/missing.kvp\rcould not be found.",
                "This program has already been opened.",
                "Too many programs are currently open, close one or more programs and try again."}));
}

TEST_F(ProgramTableTest, ClosingAskedAboutChanges) {
  dir.write("progs/a.kvp", "!Quantum program progs/a.kvp\r\n");
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  ws.Program(1).Rows.push_back({"A", kIconMI});
  ws.Program(1).Changed = true;
  ws.Closing = true;

  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(CloseProgram(ws, ui, 1));
  EXPECT_FALSE(ws.Closing);
  EXPECT_EQ(ws.Program(1).Name, "progs/a.kvp");
  EXPECT_EQ(dialogs.shown[0].text, "Changes have been made in a.kvp.\rSave before closing?");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::YesNoCancel);

  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(CloseProgram(ws, ui, 1));
  EXPECT_EQ(dir.read("progs/a.kvp"), "!Quantum program progs/a.kvp\r\n@A.MI\r\n");
  EXPECT_TRUE(ws.Program(1).Name.empty());
  EXPECT_FALSE(ws.Program(1).Changed);

  // No: freed without saving; an unchanged program closes without a question.
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  ws.Program(1).Rows.clear();
  ws.Program(1).Changed = true;
  dialogs.answer(Answer::No);
  EXPECT_TRUE(CloseProgram(ws, ui, 1));
  EXPECT_EQ(dir.read("progs/a.kvp"), "!Quantum program progs/a.kvp\r\n@A.MI\r\n");
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  EXPECT_TRUE(CloseProgram(ws, ui, 1));
  EXPECT_EQ(dialogs.shown.size(), 3u);  // Cancel, Yes, No: nothing for the unchanged one

  // A running program cannot be closed.
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "progs/a.kvp"), 1);
  ws.RunningProgram = 1;
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(CloseProgram(ws, ui, 1));
  EXPECT_EQ(dialogs.shown.back().text, "Cannot close when program is still running");
  EXPECT_EQ(dialogs.shown.back().icon, Icon::Critical);
  EXPECT_EQ(ws.Program(1).Name, "progs/a.kvp");
}

TEST_F(ProgramTableTest, SaveAllSavesTheVisiblePrograms) {
  dir.write("a.kvp", "!Quantum program a.kvp\r\n");
  dir.write("b.kvp", "!Quantum program b.kvp\r\n");
  OpenProgram(ws, ui, dir.path() + "a.kvp");
  OpenProgram(ws, ui, dir.path() + "b.kvp");
  ws.Program(1).Rows.push_back({"A", kIconMI});
  ws.Program(2).Rows.push_back({"B", kIconMI});
  ws.Program(2).Visible = false;
  SaveAllPrograms(ws, ui);
  EXPECT_EQ(dir.read("a.kvp"), "!Quantum program a.kvp\r\n@A.MI\r\n");
  EXPECT_EQ(dir.read("b.kvp"), "!Quantum program b.kvp\r\n");
}

TEST_F(ProgramTableTest, RemovingRowsNeverTakesTheStartRow) {
  NewProgram(ws, ui);
  ProgramSlot& p = ws.Program(1);
  p.Rows = {{"Start", kIconStart}, {"A", kIconMI}, {"B", kIconMI}};
  EXPECT_FALSE(RemoveRow(ws, 1, 0));
  EXPECT_FALSE(RemoveRow(ws, 1, 3));
  EXPECT_FALSE(p.Changed);
  EXPECT_TRUE(RemoveRow(ws, 1, 1));
  EXPECT_TRUE(p.Changed);
  ASSERT_EQ(p.Rows.size(), 2u);
  EXPECT_EQ(p.Rows[1].Text, "B");
  RemoveMIButton(ws, ui, 1, 0);
  EXPECT_EQ(p.Rows.size(), 2u);

  p.Changed = false;
  ClearProgram(ws, 1);  // every row but "Start": an edit to be saved
  ASSERT_EQ(p.Rows.size(), 1u);
  EXPECT_EQ(p.Rows[0].Icon, kIconStart);
  EXPECT_TRUE(p.Changed);
  p.Changed = false;
  ClearProgram(ws, 1);
  EXPECT_EQ(p.Rows.size(), 1u);
  EXPECT_FALSE(p.Changed);
}

TEST_F(ProgramTableTest, DroppingEntriesFromTheMIList) {
  NewProgram(ws, ui);
  ProgramSlot& p = ws.Program(1);
  p.Rows = {{"Start", kIconStart}, {"A", kIconMI}};
  EXPECT_TRUE(DropMIListEntry(ws, 1, 0, {"MI3", "B", kIconMI}));
  EXPECT_TRUE(DropMIListEntry(ws, 1, 1, {"", "Breakpoint", kIconBreakpoint}));
  EXPECT_TRUE(DropMIListEntry(ws, 1, -1, {"MI7", "loop", kIconCallableProgram}));
  ASSERT_EQ(p.Rows.size(), 5u);
  EXPECT_EQ(p.Rows[1].Text, "B");
  EXPECT_EQ(p.Rows[2].Text, "Breakpoint");
  EXPECT_EQ(p.Rows[2].Icon, kIconBreakpoint);
  EXPECT_EQ(p.Rows[3].Text, "A");
  EXPECT_EQ(p.Rows[4].Text, "loop");
  EXPECT_EQ(p.Rows[4].Icon, kIconProgramRow);
  EXPECT_EQ(p.Status, "Program ready");
  EXPECT_TRUE(p.Changed);

  // 999 rows take one more; 1000 rows take none.
  p.Rows.resize(999, ProgramRow{"A", kIconMI});
  EXPECT_TRUE(DropMIListEntry(ws, 1, 10, {"MI3", "B", kIconMI}));
  EXPECT_EQ(p.Rows.size(), 1000u);
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(DropMIListEntry(ws, 1, 10, {"MI3", "B", kIconMI}));
  EXPECT_EQ(p.Rows.size(), 1000u);
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"Too many Micro Instructions."});
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  // While a program runs nothing is dropped or moved.
  p.Rows.resize(3);
  ws.RunningProgram = 2;
  EXPECT_FALSE(DropMIListEntry(ws, 1, 0, {"MI3", "B", kIconMI}));
  EXPECT_FALSE(MoveRow(ws, 1, 1, 2));
  EXPECT_EQ(p.Rows.size(), 3u);
}

TEST_F(ProgramTableTest, MovingRowsWithinTheEditor) {
  NewProgram(ws, ui);
  ProgramSlot& p = ws.Program(1);
  p.Rows = {{"Start", kIconStart}, {"a", kIconMI}, {"b", kIconBreakpoint}, {"c", kIconMI}};
  auto texts = [&] {
    std::string s;
    for (auto& r : p.Rows) s += r.Text;
    return s;
  };
  EXPECT_TRUE(MoveRow(ws, 1, 1, 2));  // a below b
  EXPECT_EQ(texts(), "Startbac");
  EXPECT_EQ(p.Rows[2].Icon, kIconMI);
  EXPECT_TRUE(MoveRow(ws, 1, 3, 0));  // c below Start
  EXPECT_EQ(texts(), "Startcba");
  EXPECT_TRUE(MoveRow(ws, 1, 1, -1));  // to the end
  EXPECT_EQ(texts(), "Startbac");
  EXPECT_FALSE(MoveRow(ws, 1, 0, 2));  // "Start" stays first
  EXPECT_EQ(texts(), "Startbac");
  EXPECT_TRUE(p.Changed);
}

TEST_F(ProgramTableTest, EditorKeys) {
  dir.write("a.kvp", "!Quantum program a.kvp\r\n@A.MI\r\n@B.MI\r\n");
  ASSERT_EQ(OpenProgram(ws, ui, dir.path() + "a.kvp"), 1);
  EXPECT_TRUE(EditorKey(ws, ui, 1, kKeyDelete, false, 1));
  EXPECT_TRUE(EditorKey(ws, ui, 1, kKeyS, true, 1));
  EXPECT_EQ(dir.read("a.kvp"), "!Quantum program a.kvp\r\n@B.MI\r\n");
  EXPECT_FALSE(EditorKey(ws, ui, 1, kKeyD, false, 1));  // a plain "d" is no command
  EXPECT_TRUE(EditorKey(ws, ui, 1, kKeyD, true, 0));    // the first row stays
  EXPECT_EQ(ws.Program(1).Rows.size(), 2u);
  EXPECT_TRUE(EditorKey(ws, ui, 1, kKeyD, true, 1));
  EXPECT_EQ(ws.Program(1).Rows.size(), 1u);
  EXPECT_FALSE(EditorKey(ws, ui, 0, kKeyDelete, false, 1));

  ws.Program(1).Rows.push_back({"A", kIconMI});
  ws.RunningProgram = 3;  // another program's run blocks every editor
  EXPECT_TRUE(EditorKey(ws, ui, 1, kKeyDelete, false, 1));
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_EQ(ws.Program(1).Rows.size(), 2u);
}

TEST_F(ProgramTableTest, ClosingTheApplicationAsksForEveryChangedProgram) {
  for (const char* name : {"a.kvp", "b.kvp", "c.kvp"}) {
    dir.write(name, std::string("!Quantum program ") + name + "\r\n");
    OpenProgram(ws, ui, dir.path() + name);
  }
  ws.Program(1).Rows.push_back({"A", kIconMI});
  ws.Program(1).Changed = true;
  ws.Program(3).Rows.push_back({"C", kIconMI});
  ws.Program(3).Changed = true;

  dialogs.answer(Answer::Yes);
  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(QueryClosePrograms(ws, ui));
  EXPECT_FALSE(ws.Closing);
  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{"Changes have been made in a.kvp.\rSave before closing?",
                                      "Changes have been made in c.kvp.\rSave before closing?"}));
  EXPECT_EQ(dir.read("a.kvp"), "!Quantum program a.kvp\r\n@A.MI\r\n");
  EXPECT_EQ(ws.Program(3).Name, "c.kvp");
  EXPECT_TRUE(ws.Program(3).Changed);

  dialogs.answer(Answer::No);
  EXPECT_TRUE(QueryClosePrograms(ws, ui));
  EXPECT_TRUE(ws.Closing);
  EXPECT_EQ(dialogs.messages().size(), 3u);  // a.kvp was saved: only c.kvp asked again
  EXPECT_EQ(dir.read("c.kvp"), "!Quantum program c.kvp\r\n");
  EXPECT_EQ(ws.Program(3).Name, "c.kvp");  // the windows close and free their slots next
}

class RemoveWhileRunningTest : public RunFixture {};

TEST_F(RemoveWhileRunningTest, RemoveMIResetsTheRunningProgram) {
  Script("0 1 0 0\n");
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.RunningProgram, 1);
  RemoveMIButton(ws, ui, 1, 2);
  EXPECT_EQ(ws.Program(1).Rows.size(), 5u);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.Program(1).Status, "Program reset");
  EXPECT_TRUE(Has(Calls().back(), "entry=-2")) << Calls().back();
}

TEST_F(RemoveWhileRunningTest, ClosingTheApplicationResetsTheRunFirst) {
  Script("0 1 0 0\n");
  RunProgram(ws, ui, 1, kModeRun);
  ASSERT_EQ(ws.RunningProgram, 1);
  EXPECT_TRUE(QueryClosePrograms(ws, ui));
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_TRUE(Has(Calls().back(), "entry=-2")) << Calls().back();
}

} // namespace
} // namespace orvex::test
