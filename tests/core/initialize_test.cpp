// The initialisation MI: slot allocation, creation when a set lacks one, and the switch
// away from the ground state for registers the ground-state computation cannot handle.
#include <gtest/gtest.h>

#include "mi/initialize.h"
#include "mi/mi_file.h"
#include "support/test_support.h"
#include "core/error_of.h"
#include "workspace/errors.h"

namespace orvex {
namespace {

class InitializeMI : public ::testing::Test {
protected:
  void SetUp() override {
    ws.MISetPath = dir.path() + "MI/set/";
    dir.write("MI/set/qubits.dat", " 2 \r\n");
    ws.MIList.Rows = {{"", "Breakpoint", kIconBreakpoint}};
    ws.MIListChanged = [this] { ++notified; };
  }
  int Add(const std::string& name, bool inUse = true) {
    int n = ++ws.MICount;
    ws.MITable(n).InUse = inUse;
    ws.MITable(n).Name = name;
    return n;
  }
  test::TempDir dir;
  Workspace ws;
  int notified = 0;
};

TEST_F(InitializeMI, NewRecordTakesTheFirstHoleElseAppends) {
  Add("A.MI");
  int hole = Add("B.MI", false);
  Add("C.MI");
  ws.MITable(hole).J(1, 2, 0) = 5;
  ws.MITable(hole).Field(30, 3) = 6;
  EXPECT_EQ(NewMIRecord(ws), hole);
  EXPECT_EQ(ws.MITable(hole).J(1, 2, 0), 0);
  EXPECT_EQ(ws.MITable(hole).Field(30, 3), 0);
  EXPECT_EQ(ws.MICount, 3);
  ws.MITable(hole).InUse = true;
  EXPECT_EQ(NewMIRecord(ws), 4);
  EXPECT_EQ(ws.MICount, 4);
}

TEST_F(InitializeMI, TheTableHoldsFiveHundred) {
  for (int k = 1; k <= kMaxMIs; ++k) Add("M" + std::to_string(k) + ".MI");
  const auto e = test::ErrorFrom([&] { NewMIRecord(ws); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::SubscriptOutOfRange);
  EXPECT_EQ(e->description(),
            "Subscript out of range: the MI set already holds 500 micro instructions and programs");
  EXPECT_EQ(ws.MICount, kMaxMIs);
}

TEST_F(InitializeMI, CreatedWhenMissing) {
  Add("A.MI");
  const int slot = EnsureInitializeMI(ws);
  EXPECT_EQ(slot, 2);
  const MicroInstruction& mi = ws.MITable(slot);
  EXPECT_TRUE(mi.InUse);
  EXPECT_EQ(mi.Name, "Initialize.mi");
  EXPECT_EQ(mi.Description, "All qubits |0>");
  EXPECT_EQ(mi.InitialState, AllSpinUp);
  ASSERT_EQ(ws.MIList.Rows.size(), 2u);
  EXPECT_EQ(ws.MIList.Rows[1].Key, "MI2");
  EXPECT_EQ(ws.MIList.Rows[1].Text, "Initialize");
  EXPECT_EQ(ws.MIList.Rows[1].Icon, kIconMI);
  EXPECT_GE(notified, 1);
  const std::string text = dir.read("MI/set/Initialize.mi");
  EXPECT_NE(text.find("NUMBER OF FIELD STEPS\r\n0\r\nEND\r\nTIME STEP\r\n0\r\nEND\r\n"
                      "NUMBER OF INTERMEDIATE TIME STEPS\r\n0\r\nEND\r\n"
                      "INITIAL STATE: SPIN UP\r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n"
                      "!All qubits |0>\r\n!END\r\n"),
            std::string::npos);
  EXPECT_NE(text.find("1,2, 0,0,0,  ! Jx, Jy, Jz \r\n"), std::string::npos);
  // Reading it back gives the same record.
  MicroInstruction back;
  ReadMI(dir.path() + "MI/set/INITIALIZE.MI", back);
  EXPECT_EQ(back.Description, "All qubits |0>");
  EXPECT_EQ(back.InitialState, AllSpinUp);
}

TEST_F(InitializeMI, NotCreatedWhenOneExistsInAnyCase) {
  Add("A.MI");
  Add("initialize.MI", false);  // InUse is not looked at
  EXPECT_EQ(EnsureInitializeMI(ws), 0);
  EXPECT_EQ(ws.MICount, 2);
  EXPECT_EQ(ws.MIList.Rows.size(), 1u);
  EXPECT_FALSE(dir.exists("MI/set/Initialize.mi"));
}

TEST_F(InitializeMI, GroundStateIsChangedOnceWithAMessage) {
  Add("A.MI");
  int init = Add("INITIALIZE.MI");
  int second = Add("initialize.mp");
  ws.MITable(init).InitialState = GroundState;
  ws.MITable(second).InitialState = GroundState;
  {
    test::ScriptedDialogs dialogs;
    dialogs.answer(platform::Answer::OK);
    EXPECT_TRUE(FixGroundStateMI(ws));
    ASSERT_EQ(dialogs.shown.size(), 1u);
    EXPECT_EQ(dialogs.shown[0].text, "Ground state changed  xxxx");
    EXPECT_EQ(dialogs.shown[0].icon, platform::Icon::Information);
    EXPECT_EQ(dialogs.shown[0].buttons, platform::Buttons::OK);
  }
  EXPECT_EQ(ws.MITable(init).InitialState, AllSpinUp);
  EXPECT_EQ(ws.MITable(second).InitialState, GroundState);  // only the first
  {
    test::ScriptedDialogs dialogs;
    ws.MITable(init).InitialState = RandomState;
    ws.MITable(second).InitialState = AllSpinDown;
    EXPECT_FALSE(FixGroundStateMI(ws));
    EXPECT_TRUE(dialogs.shown.empty());
  }
}

} // namespace
} // namespace orvex
