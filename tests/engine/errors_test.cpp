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

// The status of the first call that starts `program` in the current run directory.
int StartStatus(Simulator& sim, const std::string& program, bool outputFiles = false) {
  CallArgs a = StartArgs(program, 0, 0, outputFiles);
  sim.Call(a);
  return a.status;
}

// A run directory holding a.MI and test.kvp, a program that calls it.
struct OneMiDir : RunDir {
  OneMiDir() {
    write("a.MI", Good().Text());
    write("test.kvp", ProgramText({"@a.MI"}));
  }
};

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
  EXPECT_EQ(StartStatus(sim, "test.kvp"), -18);
  // Eight qubits are fine.
  RunDir ok;
  MiText eight = Good(8);
  eight.initial = "GROUND STATE";
  ok.write("eight.MI", eight.Text());
  ok.write("test.kvp", ProgramText({"@eight.MI"}));
  EXPECT_EQ(RunToEnd(sim, "test.kvp").status, 0);
}

TEST(SyntaxErrors, ReversedAndDiagonalPairLines) {
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

  // A run names the ignored line in its log.
  RunDir dir;
  dir.write("y.MI", "HEISENBERG INTERACTION\r\n1,2, 1,1,1,\r\n2,1, 1,1,1,\r\nEND\r\n");
  dir.write("p.kvp", ProgramText({"@y.MI"}));
  Simulator sim;
  EXPECT_EQ(RunToEnd(sim, "p.kvp").status, 0);
  EXPECT_NE(dir.read("kv1dll.log").find("warning: y.MI:3: pair line 2,1 is ignored"),
            std::string::npos)
      << dir.read("kv1dll.log");
}

TEST(RunErrors, LogCannotBeOpened) {
  OneMiDir dir;
  ASSERT_EQ(mkdir((dir.dir().path() + "kv1dll.log").c_str(), 0755), 0);
  Simulator sim;
  EXPECT_EQ(StartStatus(sim, "test.kvp"), -1000);
}

TEST(RunErrors, MissingFiles) {
  RunDir dir;
  dir.write("a.MI", Good().Text());
  Simulator sim;
  auto run = [&](const std::string& program) { return StartStatus(sim, program); };
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
  EXPECT_EQ(StartStatus(sim, "self.kvp"), -1003);
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
    EXPECT_EQ(StartStatus(sim, "p1.kvp"), depth == 16 ? 0 : -1003) << depth;
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
  EXPECT_EQ(StartStatus(sim, "test.kvp"), -1005);
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
  const int status = StartStatus(sim, "test.kvp");
  EXPECT_GE(status, -24);
  EXPECT_LE(status, -20);
  EXPECT_NE(dir.read("kv1dll.log").find("error -20: broken.MI:0: norm check failed"),
            std::string::npos)
      << dir.read("kv1dll.log");
  // Without CHECK NORM the same MI runs through.
  broken.checkNorm = false;
  dir.write("broken.MI", broken.Text());
  EXPECT_EQ(RunToEnd(sim, "test.kvp").status, 0);
}

TEST(RunErrors, OutputFileCannotBeCreatedOrWritten) {
  OneMiDir dir;
  ASSERT_EQ(mkdir((dir.dir().path() + "qubit02.out").c_str(), 0755), 0);
  Simulator sim;
  EXPECT_EQ(RunToEnd(sim, "test.kvp", false).status, 0);  // not asked for: no problem
  EXPECT_EQ(StartStatus(sim, "test.kvp", true), -30);
  EXPECT_NE(dir.read("kv1dll.log").find("error -30: qubit02.out:0: cannot create"),
            std::string::npos);

  // qubit01.out opens, but every write to it fails (a full disk).
  OneMiDir full;
  ASSERT_EQ(symlink("/dev/full", (full.dir().path() + "qubit01.out").c_str()), 0);
  Simulator fresh;
  CallArgs a = StartArgs("test.kvp", 0, 0, true);
  fresh.Call(a);
  EXPECT_EQ(a.status, -30);
  EXPECT_EQ(a.flags[0], 0);
  EXPECT_NE(full.read("kv1dll.log").find("error -30: qubit01.out:0: cannot write"),
            std::string::npos)
      << full.read("kv1dll.log");
}

} // namespace
} // namespace orvex::engine::test
