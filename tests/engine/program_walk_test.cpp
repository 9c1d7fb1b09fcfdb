// The workbench's run position and the engine walk a program tree the same way: the same MI
// calls and breakpoints in the same order, through redirects, direct calls and names that
// differ in case from the files.
#include <gtest/gtest.h>

#include "engine/program_tree.h"
#include "engine_test_util.h"
#include "fuzz/file_generators.h"
#include "program/program_file.h"
#include "program/program_walk.h"
#include "run/run_position.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex::engine::test {
namespace {

// "name:m" per MI call and "|" per breakpoint, called programs expanded in place.
void Flatten(const ProgramFile& program, std::vector<std::string>& out) {
  for (const ProgramEntry& e : program.entries) {
    if (e.kind == ProgramEntry::Breakpoint) out.push_back("|");
    if (e.kind == ProgramEntry::Mi)
      out.push_back(Lower(NameWithoutExtension(e.text)) + ":" + std::to_string(e.mi->fieldSteps));
    if (e.kind == ProgramEntry::Call) Flatten(*e.program, out);
  }
}

TEST(ProgramWalk, TheRunPositionWalksTheTreeTheEngineLoads) {
  orvex::test::TempDir app;
  const std::string run = app.path() + "progs/";
  MiText half, three;
  half.fieldSteps = 2;
  three.fieldSteps = 3;
  app.write("progs/INITIALIZE.MI", MiText().Text());
  app.write("progs/Half.MI", half.Text());
  app.write("progs/threeMI", three.Text());  // an MI line need not end in ".MI"
  // The redirect names its program in the application directory (an ancestor of the run
  // directory), spelt in another case than on disk.
  app.write("progs/Outer.MP", "@PROGS\\sub\\OUTER.kvp\r\n");
  // A line of "@" alone calls nothing; "@deeper.kvp" calls a program file directly.
  app.write("progs/sub/outer.KVP",
            ProgramText({"@half.mi ! comment", "@", "!BREAKPOINT", "@deeper.kvp", "@threemi#x"}));
  app.write("progs/Deeper.KVP", ProgramText({"@HALF.MI", "!breakpoint"}));

  Workspace ws;
  ws.AppDir = app.path();
  ProgramSlot& slot = ws.Program(1);
  slot.Name = "progs/top.kvp";
  slot.Rows = {{"Start", kIconStart}, {"INITIALIZE", kIconMI}, {"outer", kIconProgramRow},
               {"Breakpoint", kIconBreakpoint}, {"half", kIconMI}};
  app.write("progs/top.kvp", FormatProgram(slot.Name, slot.Rows));  // as saved before a run

  ProgramTree tree;
  ASSERT_FALSE(tree.Load(run, "top.kvp")) << tree.Load(run, "top.kvp").reason;
  std::vector<std::string> engine;
  Flatten(*tree.Top(), engine);
  EXPECT_EQ(engine, (std::vector<std::string>{"initialize:1", "half:2", "|", "half:2", "|",
                                              "threemi:3", "|", "half:2"}));

  auto walk = WalkProgram(ws, 1, run);
  ASSERT_TRUE(walk) << "the engine runs this program";
  std::vector<std::string> position;
  for (const WalkEvent& e : *walk)
    position.push_back(e.breakpoint ? "|" : Lower(e.name) + ":" + std::to_string(e.mainSteps));
  EXPECT_EQ(position, engine);
  // Everything inside the called program marks the calling row.
  ASSERT_EQ(walk->size(), 8u);
  EXPECT_EQ((*walk)[1].row, 2);
  EXPECT_EQ((*walk)[5].row, 2);
  EXPECT_EQ((*walk)[6].row, 3);
}

// Of two program files whose names differ only in case, the engine calls the one the windows
// open, however the call spells it.
TEST(ProgramWalk, TheEngineAndTheWindowsPickTheSameOfTwoNamesDifferingInCase) {
  orvex::test::TempDir app;
  app.write("progs/deep.kvp", ProgramText({"@a.mi"}));
  app.write("progs/DEEP.KVP", ProgramText({"@b.mi"}));
  const std::optional<std::string> shown = FindPath(app.path(), "progs/Deep.kvp");
  ASSERT_TRUE(shown);
  for (const char* call : {"deep.kvp", "DEEP.KVP", " . \\ Deep.Kvp "}) {
    std::string why;
    const auto called = ResolveCall(app.path() + "progs", call, why);
    ASSERT_TRUE(called) << call << ": " << why;
    EXPECT_TRUE(std::filesystem::equivalent(called->path, *shown)) << call;
  }
}

// The program editor's rows and the run's lines of one program text: the same calls of the
// same kind and name in the same order. A line of "@" alone is a program row without a name
// for the editor but calls nothing, so nameless program rows are left out on both sides.
void ExpectSameReading(const std::string& text) {
  const std::string program = std::to_string(kIconProgramRow);
  std::vector<std::string> editor, run;
  for (const ProgramRow& row : ParseProgram(text))
    editor.push_back(std::to_string(row.Icon) + (row.Icon == kIconBreakpoint ? "" : row.Text));
  for (const ProgramLine& line : ParseProgramLines(text)) {
    if (line.kind == ProgramLine::Breakpoint)
      run.push_back(std::to_string(kIconBreakpoint));
    else
      run.push_back((line.kind == ProgramLine::Mi ? std::to_string(kIconMI) : program) +
                    NameWithoutExtension(line.text));
  }
  std::erase(editor, program);
  std::erase(run, program);
  EXPECT_EQ(run, editor) << text;
}

TEST(ProgramWalk, TheEditorAndTheRunReadTheSameLines) {
  // Only blanks are trimmed: a tab after a name is part of it, for the editor as for the run.
  ExpectSameReading("@X.MI\t\r\n@\tY.MI\r\n@ Z.mi ! comment\r\n@W.MP#note\r\n!breakpoint\r\n");
  fuzz::Rng rng(5);
  for (int n = 0; n < 3000; ++n) {
    std::string text = fuzz::GenerateProgram(rng);
    for (char& c : text)
      if (c == ' ' && rng() % 4 == 0) c = '\t';
    ExpectSameReading(n % 2 ? text : fuzz::Mutate(rng, text));
  }
}

} // namespace
} // namespace orvex::engine::test
