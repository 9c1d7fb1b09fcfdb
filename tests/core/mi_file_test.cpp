// The MI file: byte-exact writing, reading back, the reader's lenient (and quirky) rules,
// and the save operations with their name check.
#include <cmath>

#include <gtest/gtest.h>

#include "mi/mi_file.h"
#include "support/test_support.h"
#include "core/error_of.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

// Reads `text` into a fresh record (all zero), as the set opener does for a new slot.
MicroInstruction Parsed(const std::string& text, const std::string& name = "X.MI") {
  MicroInstruction mi;
  mi.Name = name;
  ParseMI(text, mi, name);
  return mi;
}

std::string Lines(std::initializer_list<const char*> lines) {
  std::string s;
  for (const char* l : lines) s += std::string(l) + "\r\n";
  return s;
}

TEST(MIWriter, WritesTheExactLayout) {
  MicroInstruction mi;
  mi.Name = "Pulse.MI";
  mi.J(1, 2, 0) = 0.5;
  mi.J(1, 2, 2) = -1;
  mi.Field(1, Hx0) = 1e-5;
  mi.Field(2, PhiZ) = -0.25;
  mi.FieldSteps = 10;
  mi.IntermediateSteps = 3;
  mi.TimeStep = 1.5e20;
  mi.Description = "a pulse";
  const std::string expected = Lines({
      "!Micro instruction ",
      "HEISENBERG INTERACTION",
      "1,2, .5,0,-1,  ! Jx, Jy, Jz ",
      "END",
      "SPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)",
      "1E-05, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ",
      "END",
      "SPIN : 2 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)",
      "0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -.25, ",
      "END",
      "NUMBER OF FIELD STEPS",
      "10",
      "END",
      "TIME STEP",
      "1.5E+20",
      "END",
      "NUMBER OF INTERMEDIATE TIME STEPS",
      "3",
      "END",
      "NO CHECK NORM",
      "!ABOUT",
      "!a pulse",
      "!END",
  });
  EXPECT_EQ(FormatMI(mi, 2, 0.5), expected);
}

TEST(MIWriter, OneQubitNoneDescriptionInitialStateAndSeed) {
  MicroInstruction mi;
  mi.Name = "A.MI";
  mi.CheckNorm = true;
  const std::string text = FormatMI(mi, 1, 0.5);
  EXPECT_NE(text.find("HEISENBERG INTERACTION\r\nEND\r\nSPIN : 1 ("), std::string::npos);
  EXPECT_NE(text.find("\r\nCHECK NORM\r\n!ABOUT\r\n!(none)\r\n!END\r\n"), std::string::npos);
  EXPECT_EQ(mi.Description, "(none)");
  EXPECT_EQ(text.find("INITIAL STATE"), std::string::npos);  // not the initialisation MI

  // The initial state is written for the initialisation MI only.
  mi.CheckNorm = false;
  mi.InitialState = AllSpinDown;
  mi.Name = "Initialize.mi";
  EXPECT_NE(FormatMI(mi, 2, 0).find("\r\nEND\r\nINITIAL STATE: SPIN DOWN\r\nEND\r\nNO CHECK NORM"),
            std::string::npos);
  mi.InitialState = GroundState;
  EXPECT_NE(FormatMI(mi, 2, 0).find("INITIAL STATE: GROUND STATE\r\nEND\r\n"), std::string::npos);
  mi.InitialState = 7;  // unknown: nothing, not even the END
  EXPECT_NE(FormatMI(mi, 2, 0).find("TIME STEPS\r\n0\r\nEND\r\nNO CHECK NORM"), std::string::npos);
  mi.Name = "Initialize.mi.bak";
  mi.InitialState = AllSpinUp;
  EXPECT_EQ(FormatMI(mi, 2, 0).find("INITIAL STATE"), std::string::npos);

  // The random state's seed covers its range.
  mi.Name = "INITIALIZE.MI";
  mi.InitialState = RandomState;
  EXPECT_NE(FormatMI(mi, 2, 0.0).find("INITIAL STATE: RANDOM\r\n1\r\nEND\r\n"), std::string::npos);
  EXPECT_NE(FormatMI(mi, 2, std::nextafter(1.0, 0.0)).find("RANDOM\r\n278332379\r\nEND"),
            std::string::npos);
  EXPECT_NE(FormatMI(mi, 2, 0.5).find("RANDOM\r\n139166190\r\nEND"), std::string::npos);
}

TEST(MIRoundTrip, AwkwardValuesComeBackExactly) {
  MicroInstruction mi;
  mi.Name = "Odd.MI";
  const double values[] = {0.5, -0.25, 1e-5, 1.5e20, 0.123456789012345, -987654.321, 3, 0};
  int n = 0;
  for (int i = 1; i <= 3; ++i)
    for (int j = i + 1; j <= 3; ++j)
      for (int c = 0; c < 3; ++c) mi.J(i, j, c) = values[n++ % 8];
  for (int q = 1; q <= 3; ++q)
    for (int k = 0; k < kFieldParameters; ++k) mi.Field(q, k) = values[n++ % 8];
  mi.FieldSteps = 123456;
  mi.IntermediateSteps = -4;
  mi.TimeStep = 0.123456789012345;
  mi.Description = "two  words";
  const std::string first = FormatMI(mi, 3, 0);
  MicroInstruction back = Parsed(first, "Odd.MI");
  EXPECT_EQ(back.JData, mi.JData);
  EXPECT_EQ(back.FieldData, mi.FieldData);
  EXPECT_EQ(back.FieldSteps, 123456);
  EXPECT_EQ(back.IntermediateSteps, -4);
  EXPECT_EQ(back.TimeStep, 0.123456789012345);
  EXPECT_EQ(back.TimeStepInPi, 0);
  EXPECT_EQ(back.Description, "two  words");
  EXPECT_EQ(FormatMI(back, 3, 0), first);
}

TEST(MIRoundTrip, TimeStepInUnitsOfTwoPiKeepsTheUsersFigure) {
  MicroInstruction mi;
  mi.Name = "T.MI";
  mi.TimeStepInPi = 1;
  mi.TimeStep = 0.1;
  const std::string text = FormatMI(mi, 1, 0);
  EXPECT_NE(text.find("\r\nTIME STEP ;  .1* 2 * PI\r\n.628318530717958\r\nEND\r\n"),
            std::string::npos);
  // The header's figure gives the value line back as the writer writes it: it is the step,
  // exactly, and an MI opened and saved is the same file (the quotient of the value line by
  // 2 pi drifts: .25 came back as .250000000000001, 2.5 as 2.49999999999999).
  for (double step : {0.1, 0.25, 2.5, 1e-7, 0.123456789012345}) {
    mi.TimeStep = step;
    const std::string written = FormatMI(mi, 1, 0);
    MicroInstruction back = Parsed(written);
    EXPECT_EQ(back.TimeStepInPi, 1);
    EXPECT_EQ(back.TimeStep, step);
    EXPECT_EQ(FormatMI(back, 1, 0), written);
  }
  // A hand-made header that disagrees with its value line: the quotient, as before.
  MicroInstruction odd = Parsed(Lines({"TIME STEP ; .1* 2 * PI", "3.14159265358979"}));
  EXPECT_EQ(odd.TimeStep, 3.14159265358979 / 6.28318530717958);
  MicroInstruction bare = Parsed(Lines({"TIME STEP PI", ".628318530717958"}));
  EXPECT_EQ(bare.TimeStep, .628318530717958 / 6.28318530717958);
  EXPECT_EQ(bare.TimeStepInPi, 1);

  // Without "PI" the header is a plain time step.
  MicroInstruction plain = Parsed(Lines({"TIME STEP", "0.1"}));
  EXPECT_EQ(plain.TimeStep, 0.1);
  EXPECT_EQ(plain.TimeStepInPi, 0);
}

TEST(MIReader, KeywordsAreTestedOnTheTrimmedUpperCaseLine) {
  MicroInstruction mi = Parsed(Lines({
      "  heisenberg interaction  ",
      "1,2, .5,0,-1,  ! Jx, Jy, Jz ",
      " end",
      "Spin : 2 (Hx0, ...)",
      "1, 2, 3",
      "END",
      "CHECK NORM",
      "!About",
      "!first",
      "!second",
      "!END",
  }));
  EXPECT_EQ(mi.J(1, 2, 0), 0.5);
  EXPECT_EQ(mi.J(1, 2, 2), -1);
  EXPECT_EQ(mi.J(2, 1, 0), 0);  // only (i, j) is stored
  EXPECT_EQ(mi.Field(2, 0), 1);
  EXPECT_EQ(mi.Field(2, 2), 3);
  EXPECT_EQ(mi.Field(2, 3), 0);   // fewer than twelve values: the rest are 0
  EXPECT_FALSE(mi.CheckNorm);     // always off after reading
  EXPECT_EQ(mi.Description, "first second");
}

TEST(MIReader, DescriptionLinesThatLookLikeKeywordsAreKeywords) {
  MicroInstruction mi = Parsed(Lines({
      "!ABOUT",
      "!Sets the INITIAL STATE: SPIN DOWN of all",
      "!uses no check norm",
      "!kept",
      "!END",
  }), "INITIALIZE.MI");
  EXPECT_EQ(mi.InitialState, AllSpinDown);
  EXPECT_EQ(mi.Description, "kept");
}

TEST(MIReader, LeadingValuesAndUnmentionedFields) {
  MicroInstruction mi;
  mi.Field(1, 5) = 42;   // the file never mentions it: it stays
  mi.TimeStep = 9;
  mi.Description = "old";
  mi.TimeStepInPi = 1;
  ParseMI(Lines({
      "NUMBER OF FIELD STEPS",
      "  12 ; main steps",
      "END",
      "NUMBER OF INTERMEDIATE TIME STEPS",
      "2.5",          // Long conversion: ties to even
      "END",
      "INITIAL STATE: RANDOM",
      "12345",        // the seed line is not read into the record
      "END",
      "random text",  // state 0: ignored
  }), mi);
  EXPECT_EQ(mi.FieldSteps, 12);
  EXPECT_EQ(mi.IntermediateSteps, 2);
  EXPECT_EQ(mi.InitialState, RandomState);
  EXPECT_EQ(mi.Field(1, 5), 42);
  EXPECT_EQ(mi.TimeStep, 9);
  EXPECT_EQ(mi.TimeStepInPi, 0);  // cleared at the start of every read
  EXPECT_EQ(mi.Description, "");

  EXPECT_EQ(Parsed(Lines({"TIME STEP", "7(x)"})).TimeStep, 7);
  EXPECT_EQ(Parsed(Lines({"TIME STEP", "3!x"})).TimeStep, 3);
  EXPECT_EQ(Parsed(Lines({"TIME STEP", "abc"})).TimeStep, 0);
  EXPECT_EQ(Parsed("NUMBER OF FIELD STEPS\n3.5\nEND\n").FieldSteps, 4);  // LF ends too
  EXPECT_EQ(Parsed("NUMBER OF FIELD STEPS\r5\rEND\r").FieldSteps, 5);    // and lone CR
}

TEST(MIReader, SpinIndexSliceDropsTheCharacterBeforeTheParenthesis) {
  // "SPIN : 12(" loses the "2": the index is 1.
  MicroInstruction mi = Parsed(Lines({"SPIN : 12(x)", "7, ", "END"}));
  EXPECT_EQ(mi.Field(1, 0), 7);
  EXPECT_EQ(mi.Field(12, 0), 0);

  // Without "(" the last two characters go, so "SPIN : 3" names spin 0; the field line that
  // follows is a subscript error naming the file and the line.
  const auto e = test::ErrorFrom([&] { Parsed(Lines({"SPIN : 3", "1, 2, "}), "bad.MI"); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::SubscriptOutOfRange);
  EXPECT_NE(e->description().find("bad.MI"), std::string::npos);
  EXPECT_NE(e->description().find("line 2"), std::string::npos);
  // A spin line alone, with no field line after it, stores nothing and is no error.
  EXPECT_NO_THROW(Parsed(Lines({"SPIN : 3", "END"})));
  // Spin 33 is out of range too.
  EXPECT_THROW(Parsed(Lines({"SPIN : 33 (", "1, "})), RuntimeError);
  // A ":" right before "(" gives a negative slice length: the string function's error.
  EXPECT_EQ(test::ErrorNumberOf([&] { Parsed(Lines({"SPIN:(", "1, "})); }), 5);
}

TEST(MIReader, PairLinesNeedFiveCommasAndIndicesInRange) {
  const auto e = test::ErrorFrom([&] { Parsed(Lines({"HEISENBERG INTERACTION", "1,2, .5,0,-1", "END"}), "/sets/a/P.MI"); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::InvalidProcedureCall);
  EXPECT_NE(e->description().find("/sets/a/P.MI"), std::string::npos);
  EXPECT_NE(e->description().find("line 2"), std::string::npos);
  // A blank line inside the block is a pair line too.
  EXPECT_THROW(Parsed(Lines({"HEISENBERG INTERACTION", "", "END"})), RuntimeError);
  EXPECT_EQ(test::ErrorCodeOf([&] { Parsed(Lines({"HEISENBERG INTERACTION", "1,33, 1,1,1,  !", "END"})); }), ErrorNumber::SubscriptOutOfRange);
  // Any pair is stored as named, even i > j; indices take the integer part.
  MicroInstruction mi = Parsed(Lines({"HEISENBERG INTERACTION", "3.9,1, 1,2,3,", "END"}));
  EXPECT_EQ(mi.J(3, 1, 1), 2);

  // A file rejected half-way leaves the record as it was, description and values alike.
  mi.Description = "kept";
  mi.FieldSteps = 7;
  const MicroInstruction before = mi;
  EXPECT_THROW(ParseMI(Lines({"NUMBER OF FIELD STEPS", "9", "END", "!ABOUT", "!lost", "!END",
                              "HEISENBERG INTERACTION", "1,2,3,", "END"}),
                       mi),
               RuntimeError);
  EXPECT_EQ(mi.Description, "kept");
  EXPECT_EQ(mi.FieldSteps, 7);
  EXPECT_EQ(mi.JData, before.JData);
}

TEST(MIFiles, ReadMissingFileIsAFileErrorNamingIt) {
  test::TempDir dir;
  MicroInstruction mi;
  const auto e = test::ErrorFrom([&] { ReadMI(dir.path() + "nope.MI", mi); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::FileNotFound);
  EXPECT_NE(e->description().find("nope.MI"), std::string::npos);
  // The lookup ignores letter case.
  dir.write("set/Hadamard.mi", "NUMBER OF FIELD STEPS\r\n4\r\nEND\r\n");
  ReadMI(dir.path() + "set/HADAMARD.MI", mi);
  EXPECT_EQ(mi.FieldSteps, 4);
}

class MISaving : public ::testing::Test {
protected:
  void SetUp() override {
    ws.MISetPath = dir.path() + "MI/set/";
    dir.write("MI/set/qubits.dat", " 2 \r\n");
    ws.MIList.Rows = {{"", "Breakpoint", kIconBreakpoint}};
    ws.MIListChanged = [this] { ++notified; };
  }
  int Add(const std::string& name) {
    int n = ++ws.MICount;
    ws.MITable(n).InUse = true;
    ws.MITable(n).Name = name;
    ws.MIList.Rows.push_back({"MI" + std::to_string(n), NameWithoutExtension(name), kIconMI});
    return n;
  }
  test::TempDir dir;
  Workspace ws;
  int notified = 0;
};

TEST_F(MISaving, NameWithoutDotGetsMiAndTheListRowFollows) {
  int a = Add("Pulse");
  ws.MITable(a).Description = "p";
  test::ScriptedDialogs dialogs;
  EXPECT_TRUE(SaveMI(ws, a));
  EXPECT_EQ(ws.MITable(a).Name, "Pulse.mi");
  EXPECT_EQ(dir.read("MI/set/Pulse.mi"), FormatMI(ws.MITable(a), 2, 0));
  int b = Add("Other");
  ws.MITable(b).Name = "Pulse.x";
  EXPECT_TRUE(SaveMI(ws, b));
  EXPECT_EQ(ws.MITable(b).Name, "Pulse.x");
  EXPECT_EQ(ws.MIList.Rows[2].Text, "Pulse");
  EXPECT_GE(notified, 1);
  EXPECT_TRUE(dir.exists("MI/set/Pulse.x"));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(MISaving, DuplicateNameIsRefusedCaseSensitively) {
  int a = Add("A.MI");
  int b = Add("B.MI");
  ws.MITable(b).Name = "A.MI";
  test::ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveMI(ws, b));
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Another Micro instruction has the same name.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(dialogs.shown[0].buttons, Buttons::OK);
  EXPECT_FALSE(dir.exists("MI/set/A.MI"));
  EXPECT_EQ(ws.MITable(b).Name, "A.MI");  // the record keeps its new name

  ws.MITable(b).Name = "a.mi";  // differs only in case: passes
  EXPECT_TRUE(SaveMI(ws, b));
  ws.MITable(a).InUse = false;  // a deleted slot does not count
  ws.MITable(b).Name = "A.MI";
  EXPECT_TRUE(SaveMI(ws, b));
  // The name check looks past MICount, over the whole table.
  ws.MITable(400).InUse = true;
  ws.MITable(400).Name = "Far.MI";
  ws.MITable(b).Name = "Far.MI";
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(SaveMI(ws, b));
}

TEST_F(MISaving, SaveAllRewritesInUseMIsOnly) {
  int a = Add("A.MI");
  int p = Add("prog.MP");
  ws.MITable(p).Description = "Run: progs/x.kvp";
  int d = Add("Gone.MI");
  ws.MITable(d).InUse = false;
  ws.MITable(a).TimeStep = 0.5;
  SaveAllMIs(ws);
  EXPECT_NE(dir.read("MI/set/A.MI").find("TIME STEP\r\n.5\r\n"), std::string::npos);
  EXPECT_FALSE(dir.exists("MI/set/prog.MP"));
  EXPECT_FALSE(dir.exists("MI/set/Gone.MI"));
}

TEST_F(MISaving, WriteFailureIsAFileErrorNamingTheFile) {
  dir.write("blocker", "a regular file");
  ws.MISetPath = dir.path() + "blocker/set/";
  int a = Add("A.MI");
  const auto e = test::ErrorFrom([&] { WriteMI(ws, a); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::PathNotFound);
  EXPECT_NE(e->description().find("blocker/set/A.MI"), std::string::npos);
}

TEST_F(MISaving, RandomInitialStateGetsANewSeedEachWrite) {
  int n = Add("INITIALIZE.MI");
  ws.MITable(n).InitialState = RandomState;
  ws.Randomize(7);
  auto seedLine = [&] {
    WriteMI(ws, n);
    std::vector<std::string> lines = SplitLines(dir.read("MI/set/INITIALIZE.MI"));
    for (std::size_t i = 0; i + 1 < lines.size(); ++i)
      if (lines[i] == "INITIAL STATE: RANDOM") return lines[i + 1];
    return std::string();
  };
  std::string s1 = seedLine(), s2 = seedLine();
  ASSERT_FALSE(s1.empty());
  EXPECT_NE(s1, s2);
  for (const std::string& s : {s1, s2}) {
    double v = Val(s);
    EXPECT_GE(v, 1);
    EXPECT_LE(v, 278332379);
  }
}

} // namespace
} // namespace orvex
