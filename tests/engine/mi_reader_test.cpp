// The engine reads MI files through the workbench's reader: both see the same MI (quirks
// included), a file runs exactly as the workbench would write it back, and what the writers
// write is a fixed point of reading.
#include <unistd.h>

#include <cmath>

#include "engine/mi_file.h"
#include "engine_test_util.h"
#include "fuzz/file_generators.h"
#include "mi/mi_format.h"
#include "program/program_file.h"

namespace orvex::engine::test {
namespace {

std::string Lines(std::initializer_list<std::string> lines) {
  std::string s;
  for (const std::string& l : lines) s += l + "\r\n";
  return s;
}

// The reader's record of `text`, read into a fresh slot as the set opener does.
MicroInstruction Read(const std::string& text, MIReadTrace* trace = nullptr) {
  MicroInstruction mi;
  ParseMI(text, mi, "t.MI", trace);
  return mi;
}

// The engine's MI is the reader's record: the same field values, the pairs i < j, the step
// counts and the time step.
void ExpectEngineSeesTheRecord(const std::string& text, const MiFile& f) {
  const MicroInstruction mi = Read(text);
  for (int q = 1; q <= kMaxQubits; ++q)
    for (int k = 0; k < 12; ++k)
      EXPECT_EQ(f.field[q - 1][k], mi.Field(q, k)) << "qubit " << q << " value " << k;
  std::vector<std::tuple<int, int, double, double, double>> want, got;
  for (int i = 1; i <= kMaxQubits; ++i)
    for (int j = i + 1; j <= kMaxQubits; ++j)
      if (mi.J(i, j, 0) != 0 || mi.J(i, j, 1) != 0 || mi.J(i, j, 2) != 0)
        want.emplace_back(i, j, mi.J(i, j, 0), mi.J(i, j, 1), mi.J(i, j, 2));
  for (const Coupling& c : f.couplings) got.emplace_back(c.i, c.j, c.jx, c.jy, c.jz);
  EXPECT_EQ(got, want);
  EXPECT_EQ(f.fieldSteps, mi.FieldSteps);
  EXPECT_EQ(f.intermediateSteps, mi.IntermediateSteps);
  EXPECT_EQ(f.timeStep, TimeStepRadians(mi));
}

const std::string kSpinHeader =
    "SPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)";

TEST(EngineReadsLikeTheWorkbench, TheReadersQuirksHoldForTheEngine) {
  struct Case {
    std::string what, text;
  };
  const std::vector<Case> cases = {
      {"blank line after the field steps: the reader reads 0 there",
       Lines({kSpinHeader, "1, 0, 0", "END", "NUMBER OF FIELD STEPS", "3", "", "END",
              "TIME STEP", ".1", "END"})},
      {"comment line after the time step",
       Lines({kSpinHeader, "1", "END", "NUMBER OF FIELD STEPS", "3", "END", "TIME STEP", ".1",
              "! seconds", "END"})},
      {"SPIN : 12(x) is qubit 1", Lines({"SPIN : 12(x)", ".5, 0, 0, .25", "END"})},
      {"a short field line leaves the rest 0", Lines({kSpinHeader, ".5, 0, 2", "END"})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    MiFile f;
    const EngineError e = ParseMi("t.MI", c.text, f);
    ASSERT_FALSE(e) << e.LogLine();
    ExpectEngineSeesTheRecord(c.text, f);
    EXPECT_EQ(f.maxQubit, 1);
  }
  MiFile blank, comment;
  ASSERT_FALSE(ParseMi("t.MI", cases[0].text, blank));
  ASSERT_FALSE(ParseMi("t.MI", cases[1].text, comment));
  EXPECT_EQ(blank.fieldSteps, 0);
  EXPECT_EQ(comment.timeStep, 0);
}

// Runs `text` as the only MI of a program; the reported x, y, z of qubits 1..3.
std::vector<double> RunMi(const std::string& name, const std::string& text, int* status) {
  RunDir dir;
  dir.write(name, text);
  dir.write("p.kvp", ProgramText({"@" + name}));
  Simulator sim;
  const CallArgs a = RunToEnd(sim, "p.kvp");
  *status = a.status;
  return {a.x[0], a.y[0], a.z[0], a.x[1], a.y[1], a.z[1], a.x[2], a.y[2], a.z[2]};
}

TEST(EngineReadsLikeTheWorkbench, ADescriptionNeverChangesThePhysics) {
  auto mi = [](const std::string& initial, const std::string& about) {
    return Lines({"HEISENBERG INTERACTION", "1,2, .5,0,1,  ! Jx, Jy, Jz ", "END", kSpinHeader,
                  ".7, 0, 0, 0, 0, 0, .3, 0, 0, 0, 0, 0, ", "END", "NUMBER OF FIELD STEPS", "2",
                  "END", "TIME STEP", ".4", "END"}) +
           initial + Lines({"NO CHECK NORM", "!ABOUT", about, "!END"});
  };
  for (const std::string& name : {std::string("Pulse.MI"), std::string("INITIALIZE.MI")}) {
    const std::string state =
        name == "Pulse.MI" ? "" : Lines({"INITIAL STATE: SPIN DOWN", "END"});
    int status = 0;
    const std::vector<double> plain = RunMi(name, mi(state, "!a pulse"), &status);
    ASSERT_EQ(status, 0);
    for (const char* about : {"!keeps the initial state: random phases",
                              "!starts from the initial state: ground state",
                              "!Initial state: spin down, as before"}) {
      SCOPED_TRACE(name + " " + about);
      const std::vector<double> described = RunMi(name, mi(state, about), &status);
      ASSERT_EQ(status, 0);
      EXPECT_EQ(described, plain);
    }
  }
}

TEST(EngineReadsLikeTheWorkbench, AnOversizedFileIsRefusedWithTheWorkbenchError) {
  RunDir dir;
  const std::string path = dir.write("big.MI", "");
  ASSERT_EQ(::truncate(path.c_str(), (off_t{64} << 20) + 1), 0);
  dir.write("p.kvp", ProgramText({"@big.MI"}));
  Simulator sim;
  const CallArgs a = RunToEnd(sim, "p.kvp");
  EXPECT_EQ(a.status, code::kMiTooLarge);
  EXPECT_NE(dir.read("kv1dll.log").find("error -3: big.MI:0: Out of memory: big.MI is larger "
                                        "than 64 MB"),
            std::string::npos)
      << dir.read("kv1dll.log");

  // The same limit for a program file: refused, never read into memory.
  const std::string program = dir.write("huge.kvp", "");
  ASSERT_EQ(::truncate(program.c_str(), (off_t{64} << 20) + 1), 0);
  Simulator again;
  EXPECT_EQ(RunToEnd(again, "huge.kvp").status, code::kProgramMissing);
  EXPECT_NE(dir.read("kv1dll.log").find("huge.kvp is larger than 64 MB"), std::string::npos)
      << dir.read("kv1dll.log");
}

// The seed a random initial state gets when the writer is handed `rnd`: the one the file had.
double RndFor(long seed) { return (static_cast<double>(seed) - 0.5) / 278332379.0; }

TEST(FileProperties, AFileRunsAsItsRewriteRuns) {
  fuzz::Rng rng(20261122);
  for (int n = 0; n < 120; ++n) {
    const fuzz::GeneratedMi g = fuzz::GenerateMi(rng);
    SCOPED_TRACE(g.name + "\n" + g.text);
    MIReadTrace trace;
    MicroInstruction mi = Read(g.text, &trace);
    mi.Name = g.name;
    const std::string rewritten = FormatMI(mi, trace.maxQubit, RndFor(g.seed));
    int status = 0, rewrittenStatus = 0;
    const std::vector<double> original = RunMi(g.name, g.text, &status);
    const std::vector<double> again = RunMi(g.name, rewritten, &rewrittenStatus);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(rewrittenStatus, 0);
    for (std::size_t k = 0; k < original.size(); ++k)
      EXPECT_NEAR(again[k], original[k], 1e-12) << "value " << k;
  }
}

// write(read(write(read(x)))) == write(read(x)) for an MI text the reader accepts and whose
// description the writer can carry; false when the text was not of that kind.
bool ExpectMiFixedPoint(const std::string& x) {
  MicroInstruction once;
  once.Name = "INITIALIZE.MI";
  try {
    ParseMI(x, once);
  } catch (const RuntimeError&) {
    return false;  // the reader refuses it: nothing is written
  }
  if (!fuzz::WritableDescription(once)) return false;
  const std::string first = FormatMI(once, 4, 0.5);
  MicroInstruction twice;
  twice.Name = "INITIALIZE.MI";
  ParseMI(first, twice);
  EXPECT_EQ(FormatMI(twice, 4, 0.5), first) << x;
  return true;
}

TEST(FileProperties, WritingWhatWasReadIsAFixedPointAfterOneRound) {
  // By hand: time steps in units of 2 pi whose header and value line disagree in digits the
  // writer never prints, and a description spread over lines.
  for (const std::string& x :
       {Lines({"TIME STEP ; .10000000000000001 * 2 * PI", ".62831853071795865"}),
        Lines({"TIME STEP ; .1 * 2 * PI", "0.6283185307179586"}),
        Lines({"TIME STEP ; 0.1234567890123456789* 2 * PI", ".775701889775"}),
        Lines({"TIME STEP ; 7* 2 * PI", ".5"}), Lines({"TIME STEP PI", ".3333333333333333"}),
        Lines({"!ABOUT", "!the END", "!of it"})})
    EXPECT_TRUE(ExpectMiFixedPoint(x)) << x;
  fuzz::Rng rng(7);
  int checked = 0;
  for (int n = 0; n < 3000; ++n) {
    const std::string x = fuzz::GenerateMi(rng).text;
    checked += ExpectMiFixedPoint(n % 3 == 0 ? x : fuzz::Mutate(rng, x));
  }
  EXPECT_GT(checked, 1500);  // most inputs are read and carried, not skipped
}

TEST(FileProperties, ProgramFilesAreAFixedPointAfterOneRound) {
  fuzz::Rng rng(11);
  int checked = 0;
  for (int n = 0; n < 3000; ++n) {
    const std::string x = n % 2 ? fuzz::GenerateProgram(rng)
                                : fuzz::Mutate(rng, fuzz::GenerateProgram(rng));
    const std::vector<ProgramRow> rows = ParseProgram(x);
    if (!fuzz::WritableNames(rows)) continue;
    ++checked;
    const std::string first = FormatProgram("p.kvp", rows);
    EXPECT_EQ(FormatProgram("p.kvp", ParseProgram(first)), first) << x;
  }
  EXPECT_GT(checked, 2000);
}

} // namespace
} // namespace orvex::engine::test
