// Laying out the run directory: old copies removed, the set's MIs copied, redirects written,
// the directory entered.
#include "run/run_directory.h"

#include "run/run_controller.h"

#include <gtest/gtest.h>

#include "run_fixture.h"

namespace orvex::test {
namespace {

class RunDirectoryTest : public RunFixture {};

TEST_F(RunDirectoryTest, PreparesTheProgramsDirectory) {
  dir.write("app/progs/old.mi", "old");
  dir.write("app/progs/OLDER.MI", "old");
  dir.write("app/progs/gone.mP", "old");
  dir.write("app/progs/keep.kvp", "kept");
  dir.write("app/progs/A.MI", "a stale copy");
  ws.StepTable(1) = 5;
  ws.StepTable(1000) = 7;

  const std::string runDir = PrepareRunDirectory(ws, 1);

  EXPECT_EQ(runDir, app + "progs/");
  EXPECT_EQ(CurrentDirectory() + "/", runDir);
  EXPECT_FALSE(dir.exists("app/progs/old.mi"));
  EXPECT_FALSE(dir.exists("app/progs/OLDER.MI"));
  EXPECT_FALSE(dir.exists("app/progs/gone.mP"));
  EXPECT_EQ(dir.read("app/progs/keep.kvp"), "kept");
  EXPECT_EQ(dir.read("app/progs/A.MI"), "mi a\r\n");
  EXPECT_EQ(dir.read("app/progs/B.MI"), "mi b\r\n");
  EXPECT_EQ(dir.read("app/progs/INITIALIZE.MI"), "initialize\r\n");
  EXPECT_EQ(dir.read("app/progs/loop.MP"), "@progs/loop.kvp\r\n");
  EXPECT_FALSE(dir.exists("app/progs/GONE.MI"));  // not in use
  EXPECT_EQ(ws.StepTable(1), 0);
  EXPECT_EQ(ws.StepTable(1000), 0);
}

TEST_F(RunDirectoryTest, AProgramInTheApplicationDirectoryAndStoredWithBackslashes) {
  SetProgram(1, "top.kvp", {{"Start", kIconStart}});
  EXPECT_EQ(PrepareRunDirectory(ws, 1), app);
  EXPECT_EQ(dir.read("app/A.MI"), "mi a\r\n");

  dir.write("app/Sub/Deeper/x.kvp", "");
  SetProgram(1, "sub\\deeper\\x.kvp", {{"Start", kIconStart}});  // found whatever its case
  EXPECT_EQ(PrepareRunDirectory(ws, 1), app + "Sub/Deeper/");
  EXPECT_EQ(dir.read("app/Sub/Deeper/B.MI"), "mi b\r\n");
}

TEST_F(RunDirectoryTest, TheSetDirectoryItselfLosesNothing) {
  SetProgram(1, "MI/demo/inset.kvp", {{"Start", kIconStart}});
  dir.write("app/MI/demo/inset.kvp", "");
  PrepareRunDirectory(ws, 1);
  EXPECT_EQ(dir.read("app/MI/demo/A.MI"), "mi a\r\n");
  EXPECT_EQ(dir.read("app/MI/demo/loop.MP"), "@progs/loop.kvp\r\n");
  ClearRunDirectory(ws, 1);
  EXPECT_TRUE(dir.exists("app/MI/demo/A.MI"));
}

TEST_F(RunDirectoryTest, AnotherSetsDirectoryIsNeverEmptied) {
  dir.write("app/MI/other/qubits.dat", " 3 \r\n");
  dir.write("app/MI/other/X.MI", "other set's MI");
  dir.write("app/MI/other/p.kvp", "!Quantum program MI/other/p.kvp\r\n@A.MI\r\n");
  SetProgram(1, "MI/other/p.kvp", {{"Start", kIconStart}, {"A", kIconMI}});
  dialogs.answer(platform::Answer::OK);

  RunProgram(ws, ui, 1, kModeRun);

  ASSERT_EQ(dialogs.messages().size(), 1u);
  EXPECT_EQ(dialogs.messages()[0].substr(0, 58),
            "This program is stored in the directory of another MI set.");
  EXPECT_EQ(dialogs.shown[0].icon, platform::Icon::Critical);
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(dir.read("app/MI/other/X.MI"), "other set's MI");
  EXPECT_FALSE(dir.exists("app/MI/other/A.MI"));
  ClearRunDirectory(ws, 1);
  EXPECT_TRUE(dir.exists("app/MI/other/X.MI"));
}

TEST_F(RunDirectoryTest, UpdateMIRemovesTheCopies) {
  PrepareRunDirectory(ws, 1);
  ClearRunDirectory(ws, 1);
  EXPECT_FALSE(dir.exists("app/progs/A.MI"));
  EXPECT_FALSE(dir.exists("app/progs/loop.MP"));
  EXPECT_TRUE(dir.exists("app/progs/main.kvp"));
}

TEST_F(RunDirectoryTest, AMissingMIFileIsTheFileError) {
  ws.MITable(2).Name = "MISSING.MI";
  try {
    PrepareRunDirectory(ws, 1);
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.code(), ErrorNumber::FileNotFound) << e.what();
  }
}

} // namespace
} // namespace orvex::test
