// Program files (".KVP") and the ".MP" redirect files of callable programs.
#include <gtest/gtest.h>

#include "program/program_file.h"
#include "program/program_table.h"
#include "run_fixture.h"
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

TEST(ProgramFile, AFileThatIsNoProgramIsNotOpenedAndNoneOrvexDidNotWriteIsSavedOverUnasked) {
  using platform::Answer;
  test::TempDir dir;
  test::ScriptedDialogs dialogs;
  Workspace ws;
  ws.AppDir = dir.path();
  test::RecordingUi ui;
  const std::string help = "<html>\r\n<body>\r\n@ not a call\r\n</body></html>\r\n";
  dir.write("help.htm", help);
  dir.write("libkv3.so", std::string("!\x7f" "ELF\0\0@", 8));
  dir.write("notes.txt", "Buy milk\r\n@X.MI\r\n");
  dir.write("binary.kvp", std::string("!Quantum program binary.kvp\r\n\0\0", 31));
  for (const char* file : {"help.htm", "libkv3.so", "notes.txt", "binary.kvp"}) {
    dialogs.answer(Answer::OK);
    EXPECT_EQ(OpenProgram(ws, ui, dir.path() + file), 0) << file;
    EXPECT_EQ(dialogs.shown.back().text,
              "The file " + std::string(file) + " is not a quantum program.\r"
              "A quantum program holds only lines that begin with @, ! or #; the file was not opened.");
    EXPECT_TRUE(ws.Program(1).Name.empty()) << file;
  }

  // Saving over a file Orvex did not write asks first; No leaves it as it was.
  const int fresh = NewProgram(ws, ui);
  dialogs.file(dir.path() + "help.htm");
  dialogs.answer(Answer::No);
  EXPECT_FALSE(SaveProgram(ws, ui, fresh, true));
  EXPECT_EQ(dialogs.shown.back().text,
            "The file help.htm was not written by Orvex.\rReplace it with this program?");
  EXPECT_EQ(dir.read("help.htm"), help);
  EXPECT_EQ(ws.Program(fresh).Name, "New");

  // A program written by hand (an empty file is one too) opens; its first save asks.
  const std::string byHand = "# written by hand\r\n  @A.MI\r\n@B.MI ! second\r\n";
  dir.write("progs/hand.kvp", byHand);
  dir.write("progs/empty.kvp", "");
  EXPECT_NE(OpenProgram(ws, ui, dir.path() + "progs/empty.kvp"), 0);
  const int slot = OpenProgram(ws, ui, dir.path() + "progs/hand.kvp");
  ASSERT_NE(slot, 0);
  EXPECT_EQ(ws.Program(slot).Rows.size(), 2u);  // Start, B (an indented line is skipped)
  dialogs.answer(Answer::No);
  EXPECT_FALSE(SaveProgram(ws, ui, slot));
  EXPECT_EQ(dir.read("progs/hand.kvp"), byHand);
  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(SaveProgram(ws, ui, slot));
  EXPECT_EQ(dir.read("progs/hand.kvp"), "!Quantum program progs/hand.kvp\r\n@B.MI\r\n");
  EXPECT_TRUE(SaveProgram(ws, ui, slot));  // ours now: no question
  EXPECT_TRUE(dialogs.scriptUsedUp());
  EXPECT_EQ(dialogs.shown.size(), 8u);
}

} // namespace
} // namespace orvex
