// Every status code of the engine, each from a run directory that really has the fault,
// with the reason logged as "error CODE: FILE:LINE: reason".
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "engine/mi_file.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

MiText Good(int qubits = 2) {
  MiText m;
  m.qubits = qubits;
  m.Field(1, 0, 0.5).Field(2, 6, -0.25);
  m.Pair(1, 2, 0.5, 0, -1);
  m.fieldSteps = 2;
  m.intermediateSteps = 3;
  m.timeStep = 0.1;
  return m;
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const std::size_t p = text.find(from);
  EXPECT_NE(p, std::string::npos) << from;
  if (p != std::string::npos) text.replace(p, from.size(), to);
  return text;
}

// Runs a program whose second MI is `bad`; returns the status; `log` gets the log.
int RunWithBadMi(const std::string& bad, std::string* log = nullptr) {
  RunDir dir;
  dir.write("good.MI", Good().Text());
  dir.write("bad.MI", bad);
  dir.write("test.kvp", ProgramText({"@good.MI", "@bad.MI"}));
  Simulator sim;
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  if (log) *log = dir.read("kv1dll.log");
  // Nothing was evolved: the whole tree is checked first.
  if (a.status != 0) {
    EXPECT_EQ(dir.read("kv1dll.log").find("\nMI good.MI"), std::string::npos);
  }
  return a.status;
}

TEST(SyntaxErrors, EachFaultHasItsOwnCodeAndLine) {
  const std::string good = Good().Text();
  const std::string spin1 =
      "SPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)";
  const std::string goodField1 = Num(0.5) + ", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ";
  struct Case {
    int code;
    std::string from, to;
    int line;  // the line of the fault in the MI file
  };
  // What the reader refuses (the line it stopped at) and what the engine checks on top.
  const std::vector<Case> cases = {
      {-1, spin1, "SPIN :(Hx0, Hx1)", 5},
      {-2, spin1, "SPIN : 33 (Hx0, Hx1)", 6},
      {-2, spin1, "SPIN : 0 (Hx0)", 6},
      {-2, "NO CHECK NORM", "SPIN : 40 (no values)\r\nNO CHECK NORM", 20},
      {-4, goodField1, "1E+999, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ", 6},
      {-5, "1,2, 0.5,0,-1,  ! Jx, Jy, Jz ", "1,2, 0.5,0", 3},
      {-6, "1,2, 0.5,0,-1,", "1,33, 0.5,0,-1,", 3},
      {-7, "1,2, 0.5,0,-1,", "1,2, 0.5,1D+400,-1,", 3},
      {-9, "NUMBER OF FIELD STEPS\r\n2\r\n", "NUMBER OF FIELD STEPS\r\n-2\r\n", 12},
      {-10, "NUMBER OF FIELD STEPS\r\n2\r\n", "NUMBER OF FIELD STEPS\r\n3e12\r\n", 12},
      {-12, "TIME STEP\r\n0.1", "TIME STEP\r\n1e999", 15},
      {-14, "INTERMEDIATE TIME STEPS\r\n3\r\n", "INTERMEDIATE TIME STEPS\r\n-3\r\n", 18},
      {-15, "INTERMEDIATE TIME STEPS\r\n3\r\n", "INTERMEDIATE TIME STEPS\r\n3e12\r\n", 18},
      {-19, "NO CHECK NORM", "INITIAL STATE: RANDOM\r\n1E999\r\nEND\r\nNO CHECK NORM", 21},
  };

  std::set<int> codes;
  for (const Case& c : cases) {
    std::string log;
    const std::string bad = Replace(good, c.from, c.to);
    EXPECT_EQ(RunWithBadMi(bad, &log), c.code) << c.to;
    const std::string prefix =
        "error " + std::to_string(c.code) + ": bad.MI:" + std::to_string(c.line) + ": ";
    EXPECT_NE(log.find(prefix), std::string::npos) << prefix << "\n" << log;
    codes.insert(c.code);
  }
  EXPECT_EQ(codes.size(), 12u);  // -18 below, -3 with the oversized files
}

TEST(SyntaxErrors, GroundStateOnlyUpToEightQubits) {
  MiText ground = Good(9);
  ground.initial = "GROUND STATE";
  std::string log;
  EXPECT_EQ(RunWithBadMi(ground.Text(), &log), -18);
  EXPECT_NE(log.find("error -18: bad.MI:"), std::string::npos) << log;
  EXPECT_NE(log.find("ground state asked for 9 qubits"), std::string::npos) << log;
  // The register size, not the MI's own largest qubit, decides.
  RunDir dir;
  MiText small = Good(2);
  small.initial = "GROUND STATE";
  dir.write("small.MI", small.Text());
  dir.write("wide.MI", Good(9).Text());
  dir.write("test.kvp", ProgramText({"@small.MI", "@wide.MI"}));
  Simulator sim;
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  EXPECT_EQ(a.status, -18);
  // Eight qubits are fine.
  RunDir ok;
  MiText eight = Good(8);
  eight.initial = "GROUND STATE";
  ok.write("eight.MI", eight.Text());
  ok.write("test.kvp", ProgramText({"@eight.MI"}));
  EXPECT_EQ(RunToEnd(sim, "test.kvp").status, 0);
}

TEST(SyntaxErrors, WriterFormatNumbersParse) {
  // The workbench prints .5, -.25, 1E-05 and 1.5E+20, and the time step header in 2 pi
  // units followed by the value already multiplied.
  const std::string text =
      "!Micro instruction \r\nHEISENBERG INTERACTION\r\n1,2, .5,0,-1,  ! Jx, Jy, Jz \r\nEND\r\n"
      "SPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, "
      "phi_z)\r\n.5, -.25, 1E-05, 0, 0, 0, 1.5E+20, 0, 0, 0, 0, 3, \r\nEND\r\n"
      "SPIN : 2 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, "
      "phi_z)\r\n0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, \r\nEND\r\n"
      "NUMBER OF FIELD STEPS\r\n3\r\nEND\r\nTIME STEP ;  .1* 2 * PI\r\n.628318530717958\r\nEND\r\n"
      "NUMBER OF INTERMEDIATE TIME STEPS\r\n0\r\nEND\r\nINITIAL STATE: RANDOM\r\n278332379\r\n"
      "END\r\nCHECK NORM\r\n!ABOUT\r\n!(none)\r\n!END\r\n";
  MiFile mi;
  ASSERT_FALSE(ParseMi("x.MI", text, mi));
  EXPECT_EQ(mi.maxQubit, 2);
  EXPECT_EQ(mi.field[0][0], 0.5);
  EXPECT_EQ(mi.field[0][1], -0.25);
  EXPECT_EQ(mi.field[0][2], 1e-05);
  EXPECT_EQ(mi.field[0][6], 1.5e20);
  EXPECT_EQ(mi.field[0][11], 3);
  ASSERT_EQ(mi.couplings.size(), 1u);
  EXPECT_EQ(mi.couplings[0].jx, 0.5);
  EXPECT_EQ(mi.couplings[0].jz, -1);
  EXPECT_EQ(mi.fieldSteps, 3);
  EXPECT_EQ(mi.intermediateSteps, 0);
  EXPECT_EQ(mi.timeStep, 0.628318530717958);
  EXPECT_EQ(mi.initial, InitialState::Random);
  EXPECT_EQ(mi.seed, 278332379u);
  EXPECT_TRUE(mi.checkNorm);
  // A pair line (j, i) is not a coupling (the MI editor shows none) and is logged as
  // ignored; (i, i) lines only name the qubit.
  MiFile sum;
  ASSERT_FALSE(ParseMi("y.MI",
                       "heisenberg interaction \r\n1,3, 1,2,3,\r\n3,1, 1,1,1,\r\n4,4, 9,9,9,\r\n"
                       "END\r\n",
                       sum));
  ASSERT_EQ(sum.couplings.size(), 1u);
  EXPECT_EQ(sum.couplings[0].jy, 2);
  EXPECT_EQ(sum.maxQubit, 4);
  ASSERT_EQ(sum.warnings.size(), 1u);
  EXPECT_NE(sum.warnings[0].find("y.MI:3: pair line 3,1 is ignored"), std::string::npos);
}

TEST(RunErrors, LogCannotBeOpened) {
  RunDir dir;
  dir.write("a.MI", Good().Text());
  dir.write("test.kvp", ProgramText({"@a.MI"}));
  ASSERT_EQ(mkdir((dir.dir().path() + "kv1dll.log").c_str(), 0755), 0);
  Simulator sim;
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  EXPECT_EQ(a.status, -1000);
}

TEST(RunErrors, MissingFiles) {
  RunDir dir;
  dir.write("a.MI", Good().Text());
  Simulator sim;
  auto run = [&](const std::string& program) {
    CallArgs a = StartArgs(program);
    sim.Call(a);
    return a.status;
  };
  dir.write("test.kvp", ProgramText({"@a.MI", "@nothere.MI  ! comment"}));
  EXPECT_EQ(run("test.kvp"), -1001);
  EXPECT_NE(dir.read("kv1dll.log").find(
                "error -1001: test.kvp:3: MI file nothere.MI does not exist"),
            std::string::npos)
      << dir.read("kv1dll.log");
  EXPECT_EQ(run("absent.kvp"), -1002);
  EXPECT_NE(dir.read("kv1dll.log").find("error -1002: absent.kvp:0: "), std::string::npos);
  dir.write("test.kvp", ProgramText({"@a.MI", "@gone.MP"}));
  EXPECT_EQ(run("test.kvp"), -1002);
  dir.write("gone.MP", "@progs\\gone.kvp\r\n");
  EXPECT_EQ(run("test.kvp"), -1002);
  EXPECT_NE(dir.read("kv1dll.log").find("error -1002: test.kvp:3: program file progs\\gone.kvp"),
            std::string::npos)
      << dir.read("kv1dll.log");
  dir.write("gone.MP", "no at sign\r\n");
  EXPECT_EQ(run("test.kvp"), -1002);
  // After an error the context stays, and further calls report the same code.
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  sim.Call(a);
  EXPECT_EQ(a.status, -1002);
  EXPECT_TRUE(sim.Active());
}

TEST(RunErrors, RecursionAndNestingTooDeep) {
  RunDir dir;
  dir.write("a.MI", Good().Text());
  Simulator sim;
  dir.write("self.kvp", ProgramText({"@a.MI", "@loop.MP"}));
  dir.write("other.kvp", ProgramText({"@self.MP"}));
  dir.write("loop.MP", "@other.kvp\r\n");
  dir.write("self.MP", "@self.kvp\r\n");
  CallArgs a = StartArgs("self.kvp");
  sim.Call(a);
  EXPECT_EQ(a.status, -1003);
  EXPECT_NE(dir.read("kv1dll.log").find("error -1003: other.kvp:2: program self.kvp calls itself"),
            std::string::npos)
      << dir.read("kv1dll.log");
  // A chain p1 -> p2 -> ... : 16 deep runs, 17 deep is refused.
  for (int depth : {16, 17}) {
    RunDir chain;
    chain.write("a.MI", Good().Text());
    for (int k = 1; k <= depth; ++k) {
      std::vector<std::string> lines = {"@a.MI"};
      if (k < depth) lines.push_back("@p" + std::to_string(k + 1) + ".MP");
      chain.write("p" + std::to_string(k) + ".kvp", ProgramText(lines));
      chain.write("p" + std::to_string(k) + ".MP", "@p" + std::to_string(k) + ".kvp\r\n");
    }
    CallArgs c = StartArgs("p1.kvp");
    sim.Call(c);
    EXPECT_EQ(c.status, depth == 16 ? 0 : -1003) << depth;
  }
}

TEST(RunErrors, StateCannotBeAllocated) {
  RunDir dir;
  MiText wide = Good(2);
  wide.Pair(1, 20, 0, 0, 1);
  dir.write("wide.MI", wide.Text());
  dir.write("test.kvp", ProgramText({"@wide.MI"}));
  Simulator sim;
  sim.SetMemoryLimit(std::uint64_t{1} << 20);  // 20 qubits need 16 MiB
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  EXPECT_EQ(a.status, -1005);
  const std::string log = dir.read("kv1dll.log");
  EXPECT_NE(log.find("qubits: 20"), std::string::npos);
  EXPECT_NE(log.find("error -1005: test.kvp:0: cannot allocate the state vector of 20 qubits"),
            std::string::npos)
      << log;
}

TEST(RunErrors, NormCheckFails) {
  // Finite couplings whose difference overflows: the evolution is no longer unitary.
  RunDir dir;
  MiText broken = Good();
  broken.Pair(1, 2, 1e308, -1e308, 0);
  broken.checkNorm = true;
  dir.write("broken.MI", broken.Text());
  dir.write("test.kvp", ProgramText({"@broken.MI"}));
  Simulator sim;
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  EXPECT_GE(a.status, -24);
  EXPECT_LE(a.status, -20);
  EXPECT_NE(dir.read("kv1dll.log").find("error -20: broken.MI:0: norm check failed"),
            std::string::npos)
      << dir.read("kv1dll.log");
  // Without CHECK NORM the same MI runs through.
  broken.checkNorm = false;
  dir.write("broken.MI", broken.Text());
  EXPECT_EQ(RunToEnd(sim, "test.kvp").status, 0);
}

TEST(RunErrors, OutputFileCannotBeCreated) {
  RunDir dir;
  dir.write("a.MI", Good().Text());
  dir.write("test.kvp", ProgramText({"@a.MI"}));
  ASSERT_EQ(mkdir((dir.dir().path() + "qubit02.out").c_str(), 0755), 0);
  Simulator sim;
  EXPECT_EQ(RunToEnd(sim, "test.kvp", false).status, 0);  // not asked for: no problem
  CallArgs a = StartArgs("test.kvp", 0, 0, true);
  sim.Call(a);
  EXPECT_EQ(a.status, -30);
  EXPECT_NE(dir.read("kv1dll.log").find("error -30: qubit02.out:0: cannot create"),
            std::string::npos);
}

TEST(RunErrors, OutputFileCannotBeWritten) {
  // qubit01.out opens, but every write to it fails (a full disk).
  RunDir dir;
  dir.write("a.MI", Good().Text());
  dir.write("test.kvp", ProgramText({"@a.MI"}));
  ASSERT_EQ(symlink("/dev/full", (dir.dir().path() + "qubit01.out").c_str()), 0);
  Simulator sim;
  CallArgs a = StartArgs("test.kvp", 0, 0, true);
  sim.Call(a);
  EXPECT_EQ(a.status, -30);
  EXPECT_EQ(a.flags[0], 0);
  EXPECT_NE(dir.read("kv1dll.log").find("error -30: qubit01.out:0: cannot write"),
            std::string::npos)
      << dir.read("kv1dll.log");
}

} // namespace
} // namespace orvex::engine::test
