// Whole sets: the name check, creating, copying, the number of qubits and callable programs.
#include "core/miset_fixture.h"

#include <filesystem>

#include "mi/mi_file.h"
#include "miset/add_program.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/set_commands.h"
#include "miset/set_qubits.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

struct SetCommandsTest : SetFixture {
  void SetUp() override {
    put("demo", "A.MI", MIText("about A", 0.5));
    put("demo", "INITIALIZE.MI", MIText("init"));
    put("demo", "qubits.dat", " 5 \r\n");
    OpenMISet(ws, ui);
    ASSERT_EQ(ws.NumberOfQubits, 5);
  }
};

TEST(SetNames, IllegalCharactersAreRefusedBlanksAllowed) {
  ScriptedDialogs dialogs;
  for (const char* bad : {"a.b", "x:y", "a/b", "a\\b", "x*", "q?", "<", ">", "$x", "it's", "a;b",
                          "\xC2\xA3", "[a", "{", "}", "#1", "@", "\xC2\xAC", "\xC2\xA6", "`"}) {
    dialogs.answer(Answer::OK);
    EXPECT_FALSE(CheckSetName(bad)) << bad;
  }
  for (const auto& shown : dialogs.shown) {
    EXPECT_EQ(shown.text, "Illegal directory name");
    EXPECT_EQ(shown.icon, Icon::Critical);
  }
  EXPECT_EQ(dialogs.shown.size(), 20u);
  EXPECT_TRUE(CheckSetName("my set"));
  EXPECT_TRUE(CheckSetName("set-2_(b)"));
  EXPECT_EQ(dialogs.shown.size(), 20u);
}

TEST_F(SetCommandsTest, NewSetIsCreatedWithConsentAndOpened) {
  ScriptedDialogs dialogs;
  dialogs.text("my set");
  dialogs.answer(Answer::Yes);  // Create (sub)directory?
  ASSERT_TRUE(NewMISet(ws, ui));
  EXPECT_EQ(dialogs.captions(), std::vector<std::string>{"New MI set"});
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Create (sub)directory?");
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/my set/");
  EXPECT_EQ(ws.MIList.Caption, "Set: my set");
  EXPECT_EQ(ws.NumberOfQubits, 2);
  EXPECT_EQ(dir.read("MI/my set/qubits.dat"), " 2 \r\n");
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize"}));

  // Refusing the directory changes nothing.
  dialogs.text("other");
  dialogs.answer(Answer::No);
  EXPECT_FALSE(NewMISet(ws, ui));
  EXPECT_EQ(ws.MIList.Caption, "Set: my set");
  EXPECT_FALSE(dir.exists("MI/other"));
}

TEST_F(SetCommandsTest, IllegalOrCancelledNamesCreateNothing) {
  ScriptedDialogs dialogs;
  dialogs.text("a/b");  // the name check itself is tested above
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(NewMISet(ws, ui));
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"Illegal directory name"});
  dialogs.text("");
  EXPECT_FALSE(NewMISet(ws, ui));
  EXPECT_EQ(ListDirectories(dir.path() + "MI"), std::vector<std::string>{"demo"});
  EXPECT_EQ(ws.MIList.Caption, "Set: demo");
}

TEST_F(SetCommandsTest, ExistingSetAnsweredNoOpensUnchangedAndYesEmptiesIt) {
  ScriptedDialogs dialogs;
  put("old", "X.MI", MIText("keep me", 1.5));
  put("old", "qubits.dat", " 3 \r\n");
  const std::string before = dir.read("MI/old/X.MI");

  dialogs.text("old");
  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(NewMISet(ws, ui));
  EXPECT_EQ(dialogs.shown.back().text, "MI Set old already exists, overwrite?");
  EXPECT_EQ(dialogs.shown.back().buttons, Buttons::YesNoCancel);
  EXPECT_EQ(ws.MIList.Caption, "Set: demo");

  dialogs.text("old");
  dialogs.answer(Answer::No);
  ASSERT_TRUE(NewMISet(ws, ui));
  EXPECT_EQ(ws.MIList.Caption, "Set: old");
  EXPECT_EQ(ws.NumberOfQubits, 3);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize", "X"}));
  EXPECT_EQ(dir.read("MI/old/X.MI"), before);
  EXPECT_EQ(ws.MITable(SlotOfRow(ws, 2)).Field(1, Hx0), 1.5);

  dialogs.text("old");
  dialogs.answer(Answer::Yes);
  ASSERT_TRUE(NewMISet(ws, ui));
  EXPECT_FALSE(dir.exists("MI/old/X.MI"));
  EXPECT_EQ(ws.NumberOfQubits, 2);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "Initialize"}));
}

TEST_F(SetCommandsTest, ABadQubitsFileInTheNewSetLeavesNoneOfTheOldMIsBehind) {
  ScriptedDialogs dialogs;
  put("old", "X.MI", MIText("x"));
  put("old", "qubits.dat", "many\r\n");
  dialogs.text("old");
  dialogs.answer(Answer::No);  // already exists: open it as it is
  EXPECT_THROW(NewMISet(ws, ui), RuntimeError);
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/old/");
  EXPECT_EQ(ws.MICount, 0);
  EXPECT_EQ(rowTexts(), std::vector<std::string>{"Breakpoint"});
  SaveAllMIs(ws);  // nothing of demo may land in old
  EXPECT_FALSE(dir.exists("MI/old/A.MI"));
}

TEST_F(SetCommandsTest, CopyingASetContinuesInTheCopy) {
  ScriptedDialogs dialogs;
  put("demo", "p.MP", "@progs/p.kvp\r\n");
  dialogs.text("twin");
  dialogs.answer(Answer::Yes);
  ASSERT_TRUE(CopyMISet(ws));
  EXPECT_EQ(dialogs.captions(), std::vector<std::string>{"Copy MI set"});
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/twin/");
  EXPECT_EQ(ws.MIList.Caption, "Set: twin");
  EXPECT_EQ(dir.read("MI/twin/A.MI"), dir.read("MI/demo/A.MI"));
  EXPECT_EQ(dir.read("MI/twin/INITIALIZE.MI"), dir.read("MI/demo/INITIALIZE.MI"));
  EXPECT_EQ(dir.read("MI/twin/p.MP"), "@progs/p.kvp\r\n");
  EXPECT_EQ(dir.read("MI/twin/qubits.dat"), " 5 \r\n");
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "INITIALIZE"}));
}

TEST_F(SetCommandsTest, RunningProgramBlocksSetCommands) {
  ScriptedDialogs dialogs;
  ws.RunningProgram = 1;
  dialogs.text("x");
  dialogs.answer(Answer::OK);
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(NewMISet(ws, ui));
  EXPECT_FALSE(CopyMISet(ws));
  EXPECT_TRUE(dialogs.captions().empty());
  EXPECT_EQ(dialogs.messages(),
            (std::vector<std::string>{
                "A Quantum Program is currently running,\rstop the Quantum Program and try again",
                "A Quantum Program is currently running,\rstop the Quantum Program and try again"}));
}

TEST_F(SetCommandsTest, FewerQubitsAreWarnedAboutFirst) {
  ScriptedDialogs dialogs;
  ws.MITable(SlotOfRow(ws, 1)).Field(5, Hz0) = 2.5;
  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(SetQubits(ws, ui, 4));
  EXPECT_EQ(dialogs.shown[0].text,
            "Micro-instruction data for qubit 5 will be removed permanently.\r"
            "Consider copying this MI Set to another location first.\r"
            "Press OK to update the current MI set.");
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::OKCancel);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_EQ(ws.NumberOfQubits, 5);
  EXPECT_EQ(dir.read("MI/demo/qubits.dat"), " 5 \r\n");

  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(SetQubits(ws, ui, 2));
  EXPECT_EQ(dialogs.shown[1].text,
            "Micro-instruction data for qubits 3 - 5 will be removed permanently.\r"
            "Consider copying this MI Set to another location first.\r"
            "Press OK to update the current MI set.");

  dialogs.answer(Answer::OK);
  ASSERT_TRUE(SetQubits(ws, ui, 4));
  EXPECT_EQ(ws.NumberOfQubits, 4);
  EXPECT_EQ(dir.read("MI/demo/qubits.dat"), " 4 \r\n");
  EXPECT_EQ(ui.qubitWindowUnloads, 2);  // once when the set opened, once now
  const std::string a = dir.read("MI/demo/A.MI");
  EXPECT_NE(a.find("SPIN : 4 "), std::string::npos);
  EXPECT_EQ(a.find("SPIN : 5 "), std::string::npos);
  EXPECT_NE(a.find("3,4, 0,0,0,  ! Jx, Jy, Jz \r\n"), std::string::npos);
  EXPECT_NE(dir.read("MI/demo/INITIALIZE.MI").find("SPIN : 4 "), std::string::npos);
  // Data of the removed qubit is gone from memory too.
  EXPECT_EQ(ws.MITable(SlotOfRow(ws, 1)).Field(5, Hz0), 0);

  // The same number again rewrites without a question.
  put("demo", "A.MI", MIText("about A", 0.5));
  ASSERT_TRUE(SetQubits(ws, ui, 4));
  EXPECT_NE(dir.read("MI/demo/A.MI").find("SPIN : 4 "), std::string::npos);
  EXPECT_EQ(dialogs.shown.size(), 3u);
}

TEST_F(SetCommandsTest, MoreThanEightQubitsLeaveTheGroundStateOnce) {
  ScriptedDialogs dialogs;
  const int init = SlotOfRow(ws, 2);
  ASSERT_EQ(ws.MITable(init).Name, "INITIALIZE.MI");
  ws.MITable(init).InitialState = GroundState;
  ASSERT_TRUE(SetQubits(ws, ui, 8));
  EXPECT_TRUE(dialogs.shown.empty());

  dialogs.answer(Answer::OK);
  ASSERT_TRUE(SetQubits(ws, ui, 9));
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"Ground state changed  xxxx"});
  EXPECT_EQ(ws.MITable(init).InitialState, AllSpinUp);
  const std::string text = dir.read("MI/demo/INITIALIZE.MI");
  EXPECT_NE(text.find("INITIAL STATE: SPIN UP"), std::string::npos);
  EXPECT_NE(text.find("SPIN : 9 "), std::string::npos);

  ASSERT_TRUE(SetQubits(ws, ui, 10));
  EXPECT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dir.read("MI/demo/qubits.dat"), " 10 \r\n");
  EXPECT_NE(dir.read("MI/demo/A.MI").find("SPIN : 10 "), std::string::npos);
}

TEST_F(SetCommandsTest, AddedProgramBecomesACallableRowOnce) {
  ScriptedDialogs dialogs;
  dir.write("progs/a.kvp", "!Quantum program a\r\n");
  dir.write("a.kvp", "!Quantum program a\r\n");
  dialogs.file(dir.path() + "progs/a.kvp");
  const int n = AddQuantumProgram(ws, ui);
  ASSERT_GT(n, 0);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_TRUE(dialogs.shown[0].isFileDialog);
  EXPECT_EQ(dialogs.shown[0].request.title, "Add Quantum Program");
  EXPECT_EQ(dialogs.shown[0].request.filter, "Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*");
  EXPECT_EQ(dir.read("MI/demo/a.MP"), "@progs/a.kvp\r\n");
  EXPECT_EQ(ws.MITable(n).Description, "Run: progs/a.kvp");
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "a", "INITIALIZE"}));
  EXPECT_EQ(ws.MIList.Rows[RowOfSlot(ws, n)].Icon, kIconCallableProgram);
  expectConsecutiveKeys();
  EXPECT_EQ(ws.FileDialogDir, dir.path() + "progs/");

  // Again, and a.kvp of the application directory: both match what was added.
  dialogs.file(dir.path() + "progs/a.kvp");
  dialogs.answer(Answer::OK);
  dialogs.file(dir.path() + "a.kvp");
  dialogs.answer(Answer::OK);
  EXPECT_EQ(AddQuantumProgram(ws, ui), 0);
  EXPECT_EQ(AddQuantumProgram(ws, ui), 0);
  EXPECT_EQ(dialogs.messages(), (std::vector<std::string>{"This program has already been added.",
                                                          "This program has already been added."}));
  // Cancelled dialog: nothing.
  dialogs.file(std::nullopt);
  EXPECT_EQ(AddQuantumProgram(ws, ui), 0);
  EXPECT_EQ(ws.MICount, 3);

  // The entry survives reopening the set.
  dialogs.choose(0);
  OpenMISet(ws, ui);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "a", "INITIALIZE"}));
}

TEST_F(SetCommandsTest, AnEntryNamingItsProgramWithBackslashesCountsAsAdded) {
  ScriptedDialogs dialogs;
  put("demo", "b.MP", "@progs\\b.kvp\r\n");
  dir.write("progs/b.kvp", "!Quantum program b\r\n");
  OpenMISet(ws, ui);
  ASSERT_NE(rowOf("b"), -1);
  dialogs.file(dir.path() + "progs/b.kvp");
  dialogs.answer(Answer::OK);
  EXPECT_EQ(AddQuantumProgram(ws, ui), 0);
  EXPECT_EQ(dialogs.messages(), std::vector<std::string>{"This program has already been added."});
  EXPECT_EQ(dir.read("MI/demo/b.MP"), "@progs\\b.kvp\r\n");
}

TEST_F(SetCommandsTest, AnEntryWhoseFileCannotBeWrittenIsNotKept) {
  ScriptedDialogs dialogs;
  dir.write("progs/c.kvp", "!Quantum program c\r\n");
  std::filesystem::remove_all(dir.path() + "MI/demo");
  dialogs.file(dir.path() + "progs/c.kvp");
  EXPECT_THROW(AddQuantumProgram(ws, ui), RuntimeError);
  RefreshMIList(ws);
  EXPECT_EQ(rowTexts(), (std::vector<std::string>{"Breakpoint", "A", "INITIALIZE"}));
  EXPECT_EQ(ws.MICount, 2);
}

} // namespace
} // namespace orvex::test
