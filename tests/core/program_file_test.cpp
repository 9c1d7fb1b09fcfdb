// Program files (".KVP") and the ".MP" redirect files of callable programs.
#include <gtest/gtest.h>

#include "program/program_file.h"
#include "support/test_support.h"
#include "workspace/errors.h"

namespace orvex {
namespace {

bool operator==(const ProgramRow& a, const ProgramRow& b) {
  return a.Text == b.Text && a.Icon == b.Icon;
}

TEST(ProgramFile, WritesHeaderAndOneLinePerRow) {
  const std::vector<ProgramRow> rows = {
      {"Start", kIconStart}, {"A", kIconMI}, {"Breakpoint", kIconBreakpoint},
      {"loop", kIconProgramRow}, {"odd", 99}};
  EXPECT_EQ(FormatProgram("progs/grover.kvp", rows),
            "!Quantum program progs/grover.kvp\r\n@A.MI\r\n!BREAKPOINT\r\n@loop.MP\r\n");
  EXPECT_EQ(FormatProgram("New", {}), "!Quantum program New\r\n");
}

TEST(ProgramFile, ReadingRules) {
  const std::vector<ProgramRow> rows = ParseProgram(
      "!Quantum program y\r\n"
      "@ X.mi ! comment\r\n"
      "@X.MP#note\r\n"
      "!breakpoint\r\n"
      "!BREAKPOINT \r\n"     // not exactly the keyword: a comment
      "# a comment\r\n"
      "\r\n"
      " @Indented.MI\r\n"    // does not begin with "@": skipped
      "@a.b.MI\r\n"
      "@Hadamard1.MI  ! first qubit\r\n"
      "@Y.MI#x!y\r\n"        // cut at "!", so "Y.MI#x": not an MI, shown as "Y"
      "@!z.MI\r\n"           // "!" right after "@": no comment cut
      "@prog\r\n"            // no "MI" at the end: a program row
      "@Q.mp ! x # y\n"
      "@LastLine.mi");
  const std::vector<ProgramRow> expected = {
      {"X", kIconMI},          {"X", kIconProgramRow},   {"Breakpoint", kIconBreakpoint},
      {"a.b", kIconMI},        {"Hadamard1", kIconMI},   {"Y", kIconProgramRow},
      {"!z", kIconMI},         {"prog", kIconProgramRow}, {"Q", kIconProgramRow},
      {"LastLine", kIconMI}};
  ASSERT_EQ(rows.size(), expected.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].Text, expected[i].Text) << i;
    EXPECT_EQ(rows[i].Icon, expected[i].Icon) << i;
  }
  EXPECT_TRUE(ParseProgram("!Quantum program only\r\n").empty());
}

TEST(ProgramFile, WriteThenReadGivesTheRowsBack) {
  test::TempDir dir;
  const std::vector<ProgramRow> rows = {
      {"INITIALIZE", kIconMI}, {"Breakpoint", kIconBreakpoint}, {"sub", kIconProgramRow},
      {"rot.x", kIconMI}};
  WriteProgramFile(dir.path() + "progs.kvp", "progs.kvp", rows);
  std::vector<ProgramRow> back = ReadProgramRows(dir.path() + "PROGS.KVP");
  ASSERT_EQ(back.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_TRUE(back[i] == rows[i]) << i;
  EXPECT_THROW(ReadProgramRows(dir.path() + "none.kvp"), RuntimeError);
}

TEST(MPFile, RedirectLine) {
  test::TempDir dir;
  MicroInstruction mi;
  mi.Name = "a.MP";
  mi.Description = "Run: progs/a.kvp";
  EXPECT_EQ(CallTarget(mi), "progs/a.kvp");
  WriteMPFile(dir.path() + "a.MP", mi);
  EXPECT_EQ(dir.read("a.MP"), "@progs/a.kvp\r\n");

  MicroInstruction read;
  dir.write("b.MP", "junk @  progs\\b.kvp  \r\n@second line ignored\r\n");
  ReadMPFile(dir.path() + "B.mp", read);
  EXPECT_EQ(read.Description, "Run: progs\\b.kvp");
  EXPECT_EQ(CallTarget(read), "progs\\b.kvp");

  MicroInstruction none;
  none.Description = "kept";
  dir.write("c.MP", "no at sign\r\n@later\r\n");
  ReadMPFile(dir.path() + "c.MP", none);
  EXPECT_EQ(none.Description, "kept");
  MicroInstruction empty;
  dir.write("d.MP", "");
  ReadMPFile(dir.path() + "d.MP", empty);
  EXPECT_EQ(empty.Description, "");
  EXPECT_EQ(CallTarget(empty), "");
  EXPECT_THROW(ReadMPFile(dir.path() + "missing.MP", empty), RuntimeError);
}

} // namespace
} // namespace orvex
