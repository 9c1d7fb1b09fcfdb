// The MI edit of a sweep point: the value lands where the reader finds it, everything else
// reads back as before, a random initial state included.
#include <gtest/gtest.h>

#include "mi/mi_format.h"
#include "run/sweep.h"
#include "workspace/file_bytes.h"
#include "workspace/workspace.h"

namespace orvex::test {
namespace {

TEST(SweepEdit, ChangesOneValueAndKeepsARandomStatesSeed) {
  MicroInstruction mi;
  mi.Name = "INITIALIZE.MI";
  mi.Field(2, Hz0) = 0.25;
  mi.J(1, 3, 0) = 0.5;
  mi.FieldSteps = 2;
  mi.IntermediateSteps = 7;
  mi.TimeStep = 0.125;
  mi.InitialState = RandomState;
  const std::string text = FormatMI(mi, 3, 0.6180339887);
  const auto seedLine = [](const std::string& t) {
    const auto lines = SplitLines(t);
    for (std::size_t n = 0; n + 1 < lines.size(); ++n)
      if (lines[n] == "INITIAL STATE: RANDOM") return lines[n + 1];
    return std::string("(none)");
  };

  SweepParameter p;
  p.kind = SweepParameter::Coupling;
  p.index = 2;
  p.qubit = 1;
  p.other = 3;
  const std::string edited = EditMIText(text, "INITIALIZE.MI", p, -1.5);
  EXPECT_EQ(seedLine(edited), seedLine(text));
  MicroInstruction back;
  ParseMI(edited, back);
  mi.J(1, 3, 2) = -1.5;
  EXPECT_EQ(back.JData, mi.JData);
  EXPECT_EQ(back.FieldData, mi.FieldData);
  EXPECT_EQ(back.IntermediateSteps, 7);
  EXPECT_EQ(back.InitialState, RandomState);
}

} // namespace
} // namespace orvex::test
