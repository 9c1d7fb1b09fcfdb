// The MI list's commands: new, copy, delete, sort, open, and the editor's store-and-close.
#include "core/miset_fixture.h"

#include <algorithm>

#include "mi/mi_file.h"
#include "miset/mi_commands.h"
#include "miset/mi_editing.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

struct MICommandsTest : SetFixture {
  void SetUp() override {
    put("demo", "A.MI", MIText("about A", 0.5));
    put("demo", "B.MI", MIText("about B"));
    put("demo", "C.MI", MIText("about C"));
    put("demo", "INITIALIZE.MI", MIText("init"));
    put("demo", "p.MP", "@progs/p.kvp\r\n");
    dir.write("progs/p.kvp", "!Quantum program p\r\n");
    OpenMISet(ws, ui);
  }
};

TEST_F(MICommandsTest, NewTwiceGivesTwoRowsEachInItsOwnEditor) {
  ScriptedDialogs dialogs;
  const int first = NewMI(ws, ui);
  const int second = NewMI(ws, ui);
  EXPECT_NE(first, second);
  EXPECT_EQ(ws.MIList.Rows.back().Text, "New");
  EXPECT_EQ(ws.MIList.Rows[ws.MIList.Rows.size() - 2].Text, "New");
  EXPECT_EQ(ws.MIList.Selected, static_cast<int>(ws.MIList.Rows.size()) - 1);
  EXPECT_EQ(ui.opened, (std::vector<std::pair<int, int>>{{first, 1}, {second, 2}}));
  EXPECT_TRUE(ws.MIEditorOpen(1));
  EXPECT_TRUE(ws.MIEditorOpen(2));
  const MicroInstruction& mi = ws.MITable(first);
  EXPECT_EQ(mi.Name, "New.MI");
  EXPECT_EQ(mi.Description, "(none)");
  EXPECT_TRUE(mi.IsNew && mi.IsOpen && mi.InUse);
  EXPECT_FALSE(dir.exists("MI/demo/New.MI"));  // written only when saved

  // Opening an MI that is open already beeps instead of opening a second editor.
  OpenMIListEntry(ws, ui, ws.MIList.Selected);
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_EQ(ui.opened.size(), 2u);
}

TEST_F(MICommandsTest, ElevenEditorsAreRefused) {
  ScriptedDialogs dialogs;
  for (int i = 0; i < kMaxMIEditors; ++i) NewMI(ws, ui);
  dialogs.answer(Answer::OK);
  NewMI(ws, ui);
  EXPECT_EQ(ui.opened.size(), static_cast<std::size_t>(kMaxMIEditors));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
}

TEST_F(MICommandsTest, CopiesAreNamedCopyOfAndProgramsCannotBeCopied) {
  ScriptedDialogs dialogs;
  ws.MIList.Selected = rowOf("A");
  const int copy = CopyMI(ws, ui);
  ASSERT_GT(copy, 0);
  EXPECT_EQ(ws.MITable(copy).Name, "Copy_of_A.MI");
  EXPECT_EQ(ws.MITable(copy).Field(1, Hx0), 0.5);
  EXPECT_EQ(ws.MITable(copy).Description, "about A");
  EXPECT_NE(rowOf("Copy_of_A"), -1);
  EXPECT_EQ(ws.MIList.Selected, rowOf("Copy_of_A"));
  EXPECT_EQ(ui.opened.back().first, copy);
  expectConsecutiveKeys();

  ws.MIList.Selected = rowOf("Copy_of_A");
  CopyMI(ws, ui);
  EXPECT_NE(rowOf("Copy_of_Copy_of_A"), -1);

  ws.MIList.Selected = rowOf("p");
  dialogs.answer(Answer::OK);
  EXPECT_EQ(CopyMI(ws, ui), 0);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Cannot copy a Quantum Program!");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);

  const std::size_t rows = ws.MIList.Rows.size();
  ws.MIList.Selected = 0;
  EXPECT_EQ(CopyMI(ws, ui), 0);
  ws.MIList.Selected = -1;
  EXPECT_EQ(CopyMI(ws, ui), 0);
  EXPECT_EQ(ws.MIList.Rows.size(), rows);
}

TEST_F(MICommandsTest, DeleteAsksRemovesTheFileAndKeepsKeysConsecutive) {
  ScriptedDialogs dialogs;
  ws.MIList.Selected = rowOf("B");
  dialogs.answer(Answer::No);
  EXPECT_FALSE(DeleteMI(ws, ui));
  EXPECT_TRUE(dir.exists("MI/demo/B.MI"));
  EXPECT_EQ(dialogs.shown[0].text, "This will delete the current MI.\rAre you sure ?");
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::YesNo);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(DeleteMI(ws, ui));
  EXPECT_FALSE(dir.exists("MI/demo/B.MI"));
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "C", "INITIALIZE", "p"}));
  expectConsecutiveKeys();
  EXPECT_EQ(ws.MICount, 4);

  // INITIALIZE and the breakpoint row are left alone without a question.
  ws.MIList.Selected = rowOf("INITIALIZE");
  EXPECT_FALSE(DeleteMI(ws, ui));
  ws.MIList.Selected = 0;
  EXPECT_FALSE(DeleteMI(ws, ui));
  EXPECT_EQ(dialogs.shown.size(), 2u);
}

TEST_F(MICommandsTest, DeletingANeverSavedMITouchesNoFile) {
  ScriptedDialogs dialogs;
  NewMI(ws, ui);
  const auto before = ListFiles(ws.MISetPath, ".MI");
  ClickMIListRow(ws, ws.MIList.Selected);
  EXPECT_EQ(ws.MIList.Status, "(none)");
  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(DeleteMI(ws, ui));
  EXPECT_EQ(ws.MIList.Status, "");
  EXPECT_EQ(ListFiles(ws.MISetPath, ".MI").size(), before.size());
  EXPECT_EQ(rowOf("New"), -1);
  // The editor that showed it learns that its record is gone.
  ASSERT_FALSE(ui.lastMove.empty());
  EXPECT_EQ(ui.lastMove[ui.opened.back().first], 0);
}

TEST_F(MICommandsTest, ASlotDeletedWhileOpenDoesNotLeaveTheNextSetsInitialisationMIOpen) {
  ScriptedDialogs dialogs;
  const int n = NewMI(ws, ui);  // the last slot, open in editor 1
  dialogs.answer(Answer::Yes);
  ASSERT_TRUE(DeleteMI(ws, ui));
  ReleaseMIEditor(ws, 1, 0);  // what the editor of a deleted MI does as it closes

  // A set whose MIs fill the slots below n and that lacks an initialisation MI.
  for (int k = 1; k < n; ++k) put("other", "m" + std::to_string(k) + ".MI", MIText("m"));
  const std::vector<std::string> sets = ListMISets(ws);
  dialogs.choose(static_cast<int>(std::find(sets.begin(), sets.end(), "other") - sets.begin()));
  OpenMISet(ws, ui);
  ASSERT_EQ(ws.MIList.Caption, "Set: other");
  const int init = SlotOfRow(ws, rowOf("Initialize"));
  ASSERT_EQ(init, n);
  ui.opened.clear();
  OpenMIListEntry(ws, ui, rowOf("Initialize"));
  EXPECT_EQ(dialogs.beeps, 0);
  EXPECT_EQ(ui.opened, (std::vector<std::pair<int, int>>{{init, 1}}));
}

TEST_F(MICommandsTest, SortListsNewRowsInNameOrder) {
  ScriptedDialogs dialogs;
  NewMI(ws, ui);
  ASSERT_EQ(ws.MIList.Rows.back().Text, "New");
  RefreshMIList(ws);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "B", "C", "INITIALIZE", "New", "p"}));
  expectConsecutiveKeys();
}

TEST_F(MICommandsTest, DoubleClickOnAProgramRowOpensTheProgram) {
  ScriptedDialogs dialogs;
  OpenMIListEntry(ws, ui, rowOf("p"));
  EXPECT_EQ(ui.programsOpened, std::vector<std::string>{"progs/p.kvp"});
  EXPECT_TRUE(ui.opened.empty());
  OpenMIListEntry(ws, ui, 0);  // the breakpoint row opens nothing
  EXPECT_TRUE(ui.opened.empty());
}

TEST_F(MICommandsTest, StoredEditsAreSavedAndReadBackIntact) {
  ScriptedDialogs dialogs;
  ws.NumberOfQubits = 3;
  const int n = NewMI(ws, ui);
  MIEdit e = LoadMIEdit(ws, n);
  ASSERT_EQ(e.Field.size(), 3u);
  ASSERT_EQ(e.J.size(), 3u);
  e.Name = "Pulse";
  e.Description = "a pulse";
  e.TimeStep = 0.1;
  e.TimeStepInPi = true;
  e.FieldSteps = 7;
  e.IntermediateSteps = 20;
  for (int q = 0; q < 3; ++q)
    for (int c = 0; c < 12; ++c) e.Field[q][c] = q * 100 + c + 0.25;
  for (int p = 0; p < 3; ++p)
    for (int c = 0; c < 3; ++c) e.J[p][c] = -(p * 10 + c) - 0.5;
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  ReleaseMIEditor(ws, 1, n);
  EXPECT_FALSE(ws.MIEditorOpen(1));
  EXPECT_FALSE(ws.MITable(n).IsOpen);
  EXPECT_EQ(ws.MIList.Rows[RowOfSlot(ws, n)].Text, "Pulse");

  MicroInstruction back;
  ReadMI(ws.MISetPath + "Pulse.MI", back);
  EXPECT_EQ(back.Description, "a pulse");
  EXPECT_EQ(back.TimeStepInPi, 1);
  EXPECT_NEAR(back.TimeStep, 0.1, 1e-14);
  EXPECT_EQ(back.FieldSteps, 7);
  EXPECT_EQ(back.IntermediateSteps, 20);
  // Editor column 3 is phi_x, stored as parameter 9.
  EXPECT_EQ(back.Field(2, PhiX), 100 + 3 + 0.25);
  EXPECT_EQ(back.Field(2, Hy0), 100 + 4 + 0.25);
  for (int q = 1; q <= 3; ++q)
    for (int c = 0; c < 12; ++c)
      EXPECT_EQ(back.Field(q, Workspace::FieldColumnMap[c]), (q - 1) * 100 + c + 0.25);
  EXPECT_EQ(back.J(1, 2, 0), -0.5);
  EXPECT_EQ(back.J(1, 3, 2), -12.5);
  EXPECT_EQ(back.J(2, 3, 1), -21.5);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(MICommandsTest, RenamingAnMIInTheEditorMovesItsFile) {
  ScriptedDialogs dialogs;
  const int n = NewMI(ws, ui);
  MIEdit e = LoadMIEdit(ws, n);
  e.Name = "Pulse";
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  ASSERT_TRUE(FileExists(ws.MISetPath + "Pulse.MI"));

  e.Name = "Kick";
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  EXPECT_TRUE(FileExists(ws.MISetPath + "Kick.MI"));
  EXPECT_FALSE(FileExists(ws.MISetPath + "Pulse.MI"));

  // Another MI of the old name keeps its file; a change of letter case keeps the one file.
  const int other = NewMI(ws, ui);
  MIEdit o = LoadMIEdit(ws, other);
  o.Name = "Twin";
  ASSERT_TRUE(StoreMIEdit(ws, other, o));
  ws.MITable(n).Name = "Twin.MI";  // two records of one name, as a refused save leaves them
  e.Name = "Solo";
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  EXPECT_TRUE(FileExists(ws.MISetPath + "Twin.MI"));
  e.Name = "SOLO";
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  const auto files = ListFiles(ws.MISetPath, ".MI");
  EXPECT_EQ(std::count_if(files.begin(), files.end(),
                          [](const std::string& f) { return Upper(f) == "SOLO.MI"; }),
            1);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(MICommandsTest, ARefusedDuplicateNameLeavesTheRecordAsItWas) {
  ScriptedDialogs dialogs;
  const int a = NewMI(ws, ui);
  MIEdit e = LoadMIEdit(ws, a);
  e.Name = "Alpha";
  ASSERT_TRUE(StoreMIEdit(ws, a, e));
  const int b = NewMI(ws, ui);
  MIEdit f = LoadMIEdit(ws, b);
  f.Name = "Beta";
  f.Description = "beta's own";
  ASSERT_TRUE(StoreMIEdit(ws, b, f));

  f.Name = "Alpha";
  f.Description = "edited";
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(StoreMIEdit(ws, b, f));
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"Another Micro instruction has the same name."});
  EXPECT_EQ(ws.MITable(b).Name, "Beta.MI");
  EXPECT_EQ(ws.MITable(b).Description, "beta's own");
  EXPECT_EQ(ws.MIList.Rows[RowOfSlot(ws, b)].Text, "Beta");
  // Saving the whole set afterwards writes each MI under its own name.
  SaveAllMIs(ws);
  MicroInstruction alpha;
  ReadMI(ws.MISetPath + "Alpha.MI", alpha);
  EXPECT_EQ(alpha.Description, "(none)");
}

TEST_F(MICommandsTest, TimeStepsInUnitsOfTwoPiShowTheUsersFigure) {
  // Read back from the file's value line, .25 and 2.5 carry noise in their 15th digit; the
  // editor shows what the user typed. A plain time step is shown as it stands.
  ScriptedDialogs dialogs;
  const int n = NewMI(ws, ui);
  for (double figure : {0.25, 2.5, 0.1, 1e-7}) {
    MIEdit e = LoadMIEdit(ws, n);
    e.Name = "Pulse";
    e.TimeStep = figure;
    e.TimeStepInPi = true;
    ASSERT_TRUE(StoreMIEdit(ws, n, e));
    ReadMI(ws.MISetPath + "Pulse.MI", ws.MITable(n));
    EXPECT_EQ(LoadMIEdit(ws, n).TimeStep, figure) << figure;
  }
  ws.MITable(n).TimeStep = 0.123456789012345;
  ws.MITable(n).TimeStepInPi = 0;
  EXPECT_EQ(LoadMIEdit(ws, n).TimeStep, 0.123456789012345);
}

TEST_F(MICommandsTest, EditorRefusesBadNamesAndAGroundStateItCannotCompute) {
  ScriptedDialogs dialogs;
  const int n = NewMI(ws, ui);
  MIEdit e = LoadMIEdit(ws, n);
  for (const char* bad : {"", "  ", "a/b", "a:b", "q?", "x\"y"}) {
    e.Name = bad;
    dialogs.answer(Answer::OK);
    EXPECT_FALSE(StoreMIEdit(ws, n, e)) << bad;
  }
  EXPECT_EQ(dialogs.shown.size(), 6u);
  EXPECT_EQ(ws.MITable(n).Name, "New.MI");

  const int init = SlotOfRow(ws, rowOf("INITIALIZE"));
  ws.NumberOfQubits = 9;
  MIEdit ie = LoadMIEdit(ws, init);
  ie.InitialState = GroundState;
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(StoreMIEdit(ws, init, ie));
  EXPECT_EQ(dialogs.shown.back().text,
            "The ground state can be computed for 8 qubits or fewer only.\rChoose another initial state.");
  ie.InitialState = RandomState;
  EXPECT_TRUE(StoreMIEdit(ws, init, ie));
  EXPECT_EQ(ws.MITable(init).InitialState, RandomState);
}

TEST_F(MICommandsTest, EditsShownForAnOlderQubitCountLandOnTheirOwnPairs) {
  ScriptedDialogs dialogs;
  ws.NumberOfQubits = 3;
  const int n = NewMI(ws, ui);
  MIEdit e = LoadMIEdit(ws, n);  // pairs (1,2), (1,3), (2,3)
  e.Name = "Pairs";
  e.J[2] = {7, 8, 9};
  e.Field[2][0] = 5;
  ws.NumberOfQubits = 4;  // raised while the editor was open
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  EXPECT_EQ(ws.MITable(n).J(2, 3, 0), 7);
  EXPECT_EQ(ws.MITable(n).J(1, 4, 0), 0);
  EXPECT_EQ(ws.MITable(n).Field(3, Hx0), 5);

  ws.NumberOfQubits = 2;  // lowered: qubit 3 is not stored
  e.J[2] = {1, 1, 1};
  e.Field[2][0] = 6;
  ASSERT_TRUE(StoreMIEdit(ws, n, e));
  EXPECT_EQ(ws.MITable(n).J(2, 3, 0), 7);
  EXPECT_EQ(ws.MITable(n).Field(3, Hx0), 5);
}

TEST(MIEditCells, OnlyWholeNumbersPass) {
  EXPECT_EQ(ParseNumberCell(" 1.5 "), 1.5);
  EXPECT_EQ(ParseNumberCell(".5"), 0.5);
  EXPECT_EQ(ParseNumberCell("-1E-05"), -1e-05);
  EXPECT_EQ(ParseNumberCell("0"), 0.0);
  EXPECT_FALSE(ParseNumberCell(""));
  EXPECT_FALSE(ParseNumberCell("abc"));
  EXPECT_FALSE(ParseNumberCell("1.5x"));
  EXPECT_FALSE(ParseNumberCell("1,5"));
  EXPECT_FALSE(ParseNumberCell("1E400"));  // too large for a Double: refused, not thrown
  EXPECT_FALSE(ParseCountCell("-1D999"));
  EXPECT_EQ(ParseCountCell("12"), 12);
  EXPECT_FALSE(ParseCountCell("1.5"));
  EXPECT_FALSE(ParseCountCell("3000000000"));
  EXPECT_EQ(RecordNameFor("Pulse", "New.MI"), "Pulse.MI");
  EXPECT_EQ(RecordNameFor("Pulse.mi", "New.MI"), "Pulse.mi");
  EXPECT_EQ(RecordNameFor("a.b", "x.mi"), "a.b.mi");
}

} // namespace
} // namespace orvex::test
