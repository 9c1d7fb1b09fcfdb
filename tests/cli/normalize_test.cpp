// orvex-cli mi normalize / program normalize: the bytes the workbench would write, printed
// to standard output; failures as one line on standard error and exit status 2.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "mi/mi_file.h"
#include "program/program_file.h"
#include "support/test_support.h"

namespace orvex {
namespace {

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs orvex-cli with `args` (already shell-quoted) from `cwd`.
Result RunCli(const test::TempDir& dir, const std::string& args, const std::string& cwd = "") {
  const char* cli = std::getenv("ORVEX_CLI");
  EXPECT_NE(cli, nullptr) << "ORVEX_CLI is not set";
  Result r;
  if (!cli) return r;
  const std::string errFile = dir.path() + "stderr.txt";
  std::string command = "'" + std::string(cli) + "' " + args + " 2>'" + errFile + "'";
  if (!cwd.empty()) command = "cd '" + cwd + "' && " + command;
  FILE* p = ::popen(command.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  int raw = ::pclose(p);
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  r.err = dir.read("stderr.txt");
  return r;
}

std::string Quote(const std::string& s) { return "'" + s + "'"; }

MicroInstruction Sample(const std::string& name) {
  MicroInstruction mi;
  mi.Name = name;
  mi.J(1, 2, 0) = 0.5;
  mi.J(2, 3, 2) = -0.25;
  mi.J(1, 3, 1) = 1.5e20;
  mi.Field(1, Hz0) = 1e-5;
  mi.Field(3, PhiX) = 0.123456789012345;
  mi.FieldSteps = 40;
  mi.IntermediateSteps = 2;
  mi.TimeStep = 0.1;
  mi.TimeStepInPi = 1;
  mi.CheckNorm = true;
  mi.Description = "sample pulse";
  return mi;
}

TEST(MiNormalize, ReproducesWhatTheWriterWroteSeedIncluded) {
  test::TempDir dir;
  MicroInstruction mi = Sample("Pulse.MI");
  const std::string bytes = FormatMI(mi, 3, 0.5);
  const std::string path = dir.write("set/Pulse.MI", bytes);
  dir.write("set/QUBITS.DAT", " 3 \r\n");
  Result r = RunCli(dir, "mi normalize " + Quote(path));
  EXPECT_EQ(r.status, 0) << r.err;
  // CHECK NORM is read as off, so that line differs; every other byte is the same.
  std::string expected = bytes;
  expected.replace(expected.find("\r\nCHECK NORM"), 12, "\r\nNO CHECK NORM");
  EXPECT_EQ(r.out, expected);
  EXPECT_EQ(r.err, "");
  // Normalising the normal form changes nothing, and nothing was written beside the file.
  dir.write("set/Pulse.MI", r.out);
  EXPECT_EQ(RunCli(dir, "mi normalize " + Quote(path)).out, r.out);
  EXPECT_EQ(dir.read("set/Pulse.MI"), r.out);

  // A random initial state keeps its seed; without qubits.dat the register has 2 qubits.
  MicroInstruction init = Sample("INITIALIZE.MI");
  init.CheckNorm = false;
  init.InitialState = RandomState;
  const std::string initBytes = FormatMI(init, 2, 0.3141);
  r = RunCli(dir, "mi normalize " + Quote(dir.write("INITIALIZE.MI", initBytes)));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, initBytes);
  EXPECT_FALSE(dir.exists("qubits.dat"));
}

TEST(MiNormalize, AQubitsDatThatIsNoFileCountsAsMissingAndStaysAsItIs) {
  test::TempDir dir;
  MicroInstruction mi = Sample("Pulse.MI");
  const std::string bytes = FormatMI(mi, 2, 0.5);
  // A dangling link and a directory where qubits.dat should be: 2 qubits, nothing written.
  const std::string linked = dir.write("linked/Pulse.MI", bytes);
  ASSERT_EQ(::symlink("gone.dat", (dir.path() + "linked/qubits.dat").c_str()), 0);
  const std::string boxed = dir.write("boxed/Pulse.MI", bytes);
  dir.write("boxed/QUBITS.DAT/inside", "");
  for (const std::string& path : {linked, boxed}) {
    Result r = RunCli(dir, "mi normalize " + Quote(path));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, RunCli(dir, "mi normalize " + Quote(path) + " --qubits 2").out) << path;
  }
  EXPECT_FALSE(dir.exists("linked/gone.dat"));
  struct stat st {};
  ASSERT_EQ(::lstat((dir.path() + "linked/qubits.dat").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
}

TEST(MiNormalize, QubitsOptionAndLenientInput) {
  test::TempDir dir;
  const std::string text =
      "  heisenberg interaction\n1,2, 0.50,0,-1.0,  !\nend\nspin : 1 (x)\n2.0 3\nEND\n"
      "TIME STEP\n0.25 ; seconds\nEND\n!ABOUT\n!first\n!second\n!END\n";
  const std::string path = dir.write("hand.mi", text);
  dir.write("qubits.dat", " 3 \r\n");
  Result r = RunCli(dir, "mi normalize " + Quote(path) + " --qubits 2");
  EXPECT_EQ(r.status, 0) << r.err;
  MicroInstruction mi;
  mi.Name = "hand.mi";
  ParseMI(text, mi);
  EXPECT_EQ(r.out, FormatMI(mi, 2, 0));
  EXPECT_NE(r.out.find("\r\n1,2, .5,0,-1,  ! Jx, Jy, Jz \r\nEND\r\n"), std::string::npos);
  EXPECT_NE(r.out.find("\r\n2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, \r\n"), std::string::npos);
  EXPECT_NE(r.out.find("!first second\r\n"), std::string::npos);
}

TEST(MiNormalize, FailuresNameTheFileAndExitWithTwo) {
  test::TempDir dir;
  const std::string missing = dir.path() + "missing.MI";
  Result r = RunCli(dir, "mi normalize " + Quote(missing));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err.rfind("orvex-cli: " + missing + ": ", 0), 0u) << r.err;
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1);  // one line

  const std::string bad = dir.write("bad.MI", "HEISENBERG INTERACTION\r\n1,2, 1\r\nEND\r\n");
  r = RunCli(dir, "mi normalize " + Quote(bad));
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("line 2"), std::string::npos) << r.err;

  const std::string ok = dir.write("ok.MI", "TIME STEP\r\n1\r\nEND\r\n");
  for (const std::string& args : {std::string("mi normalize"), "mi normalize " + ok + " extra",
                                  "mi normalize " + ok + " --qubits",
                                  "mi normalize " + ok + " --qubits 33",
                                  "mi normalize " + ok + " --qubits x",
                                  "mi normalize --bogus " + ok}) {
    r = RunCli(dir, args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.err.rfind("usage: ", 0), 0u) << args << ": " << r.err;
  }
}

TEST(ProgramNormalize, PrintsTheSavedForm) {
  test::TempDir dir;
  dir.write("progs/grover.KVP",
            "!Quantum program old name\r\n@INITIALIZE.MI\r\n@Hadamard1.MI  ! first qubit\r\n"
            "!breakpoint\r\n# note\r\n@oracle.MP\n");
  const std::string expected = "!Quantum program progs/grover.kvp\r\n@INITIALIZE.MI\r\n"
                               "@Hadamard1.MI\r\n!BREAKPOINT\r\n@oracle.MP\r\n";
  Result r = RunCli(dir, "program normalize 'progs\\grover.kvp'", dir.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, expected);

  r = RunCli(dir, "program normalize " + Quote(dir.path() + "progs/GROVER.KVP"));
  EXPECT_EQ(r.out, FormatProgram(dir.path() + "progs/GROVER.KVP",
                                 ReadProgramRows(dir.path() + "progs/grover.KVP")));

  r = RunCli(dir, "program normalize " + Quote(dir.path() + "none.kvp"));
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err.rfind("orvex-cli: " + dir.path() + "none.kvp: ", 0), 0u) << r.err;
  r = RunCli(dir, "program normalize");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err.rfind("usage: ", 0), 0u);
}

} // namespace
} // namespace orvex
