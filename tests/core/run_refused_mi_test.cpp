// A run of a program that calls an MI the reader refused when the set was opened: the run is
// refused with the reader's reason, instead of the engine's "does not exist" for a file it
// was never given.
#include <gtest/gtest.h>

#include "run/run_directory.h"
#include "run_fixture.h"
#include "workspace/errors.h"

namespace orvex::test {
namespace {

class RefusedMITest : public RunFixture {};

TEST_F(RefusedMITest, ARunSaysWhyTheReaderRefusedACalledMI) {
  // In the set's directory but not in the table: a pair line without its five commas.
  dir.write("app/MI/demo/Broken.mi", "HEISENBERG INTERACTION\r\n1,2, .5\r\nEND\r\n");
  dir.write("app/progs/loop.kvp", "!Quantum program progs/loop.kvp\r\n@BROKEN.MI\r\n");
  dir.write("app/progs/stale.MI", "an old copy");
  const std::vector<std::vector<ProgramRow>> callers = {
      {{"Start", kIconStart}, {"A", kIconMI}, {"broken", kIconMI}},
      {{"Start", kIconStart}, {"loop", kIconProgramRow}},  // through a callable program
  };
  for (const auto& rows : callers) {
    SetProgram(1, "progs/main.kvp", rows);
    try {
      PrepareRunDirectory(ws, 1);
      ADD_FAILURE() << "the run directory was prepared";
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.code(), ErrorNumber::InvalidProcedureCall);
      const std::string text = e.description();
      EXPECT_NE(text.find("The micro instruction file Broken.mi could not be read"),
                std::string::npos) << text;
      EXPECT_NE(text.find("five commas"), std::string::npos) << text;
      EXPECT_NE(text.find("line 2"), std::string::npos) << text;
    }
    EXPECT_TRUE(dir.exists("app/progs/stale.MI"));  // refused before anything was touched
  }
  // A program that does not call it still runs.
  SetProgram(1, "progs/main.kvp", {{"Start", kIconStart}, {"A", kIconMI}});
  EXPECT_NO_THROW(PrepareRunDirectory(ws, 1));
}

} // namespace
} // namespace orvex::test
