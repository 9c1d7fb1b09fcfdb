// The run protocol: start, step granularities, breakpoints, nested programs, early returns,
// abandon, output files and the log; and the exported C entry.
#include <dlfcn.h>

#include <fstream>
#include <sstream>

#include "engine/kv3dll.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string l;
  while (std::getline(in, l)) lines.push_back(l);
  return lines;
}

int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
  return n;
}

// A rotation of qubit 1 about x by `angle` in `main` main steps of `sub` intermediate steps.
MiText RotX(double angle, long main = 1, long sub = 1, int qubits = 2) {
  MiText m;
  m.qubits = qubits;
  m.Field(1, 0, angle);
  m.fieldSteps = main;
  m.intermediateSteps = sub;
  m.timeStep = 1.0 / static_cast<double>(main);
  return m;
}

MiText Up(int qubits = 2) {
  MiText m;
  m.qubits = qubits;
  m.fieldSteps = 0;
  m.intermediateSteps = 0;
  m.timeStep = 0;
  m.initial = "SPIN UP";
  return m;
}

class Protocol : public ::testing::Test {
protected:
  void SetUp() override {
    dir.write("INITIALIZE.MI", Up().Text());
    dir.write("half.MI", RotX(kPi / 2).Text());      // Qz of qubit 1 by sin^2(pi/4) = 0.5
    dir.write("quarter.MI", RotX(kPi / 4).Text());
    dir.write("steps.MI", RotX(kPi, 3, 2).Text());  // 3 main steps of 2 intermediate
  }
  RunDir dir;
  Simulator sim;
};

TEST_F(Protocol, RunHaltsAfterEachBreakpointAndGoesOnFromThere) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@half.MI", "!BREAKPOINT", "!BREAKPOINT",
                                     "@half.MI", "!breakpoint", "@half.MI"}));
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  ASSERT_EQ(a.status, 0);
  EXPECT_EQ(a.entry, 0);
  EXPECT_EQ(a.progress, 1);
  EXPECT_EQ(a.flags[0], 0);
  EXPECT_NEAR(a.z[0], 0.5, 1e-12);
  // The second breakpoint directly follows: the run halts there without evolving.
  sim.Call(a);
  EXPECT_EQ(a.progress, 1);
  EXPECT_NEAR(a.z[0], 0.5, 1e-12);
  sim.Call(a);
  EXPECT_EQ(a.progress, 1);
  EXPECT_NEAR(a.z[0], 1.0, 1e-12);
  sim.Call(a);
  EXPECT_EQ(a.progress, 0);
  EXPECT_NEAR(a.z[0], 0.5, 1e-12);
  EXPECT_EQ(Count(dir.read("kv1dll.log"), "\nMI half.MI:"), 3);
}

TEST_F(Protocol, StepByMiCallPassesBreakpoints) {
  dir.write("test.kvp",
            ProgramText({"@INITIALIZE.MI", "!BREAKPOINT", "@steps.MI", "@half.MI", "!BREAKPOINT"}));
  CallArgs a = StartArgs("test.kvp", 1, 0);
  std::vector<double> z;
  std::vector<int> progress;
  do {
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    EXPECT_EQ(a.flags[0], 0);
    z.push_back(a.z[0]);
    progress.push_back(a.progress);
  } while (a.progress == 1 && z.size() < 10);
  ASSERT_EQ(z.size(), 3u);  // a trailing breakpoint leaves nothing to do
  EXPECT_EQ(progress, (std::vector<int>{1, 1, 0}));
  EXPECT_NEAR(z[0], 0.0, 1e-12);
  EXPECT_NEAR(z[1], 1.0, 1e-12);
  EXPECT_NEAR(z[2], 0.5, 1e-12);
}

TEST_F(Protocol, StepByMainStepCountsAZeroStepMiAsOneStep) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@steps.MI"}));
  CallArgs a = StartArgs("test.kvp", 1, -1);
  std::vector<double> z, t;
  do {
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    z.push_back(a.z[0]);
    t.push_back(sim.ProgramTime());
  } while (a.progress == 1 && z.size() < 10);
  ASSERT_EQ(z.size(), 4u);
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(t[k], k / 3.0, 1e-12);
    EXPECT_NEAR(z[k], std::pow(std::sin(kPi * k / 6), 2), 1e-12) << k;
  }
}

TEST_F(Protocol, StepByIntermediateStep) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@steps.MI"}));
  CallArgs a = StartArgs("test.kvp", 1, 1);
  std::vector<double> t;
  do {
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    t.push_back(sim.ProgramTime());
  } while (a.progress == 1 && t.size() < 20);
  ASSERT_EQ(t.size(), 7u);  // the initial MI, then 3 x 2 intermediate steps
  for (int k = 0; k < 7; ++k) EXPECT_NEAR(t[k], k / 6.0, 1e-12);
  EXPECT_NEAR(a.z[0], 1.0, 1e-12);
  // The granularity is fixed at the start: a later flags[3] does not change it.
  CallArgs b = StartArgs("test.kvp", 1, 0);
  sim.Call(b);
  b.flags[3] = 1;
  sim.Call(b);
  EXPECT_EQ(b.progress, 0);
  EXPECT_NEAR(b.z[0], 1.0, 1e-12);
}

TEST_F(Protocol, NestedProgramsThroughRedirectsResolvedInAncestors) {
  // The run directory is app/progs; "@progs\sub\inner.kvp" resolves from app/.
  RunDir app;
  app.write("progs/INITIALIZE.MI", Up().Text());
  app.write("progs/HALF.MI", RotX(kPi / 2).Text());
  app.write("progs/Sub/Inner.KVP", ProgramText({"@half.mi", "!BREAKPOINT", "@Half.MI"}));
  app.write("progs/outer.kvp", ProgramText({"@initialize.mi", "@inner.MP", "@half.MI"}));
  app.write("progs/inner.MP", "@progs\\sub\\inner.kvp\r\n");
  ASSERT_EQ(chdir((app.dir().path() + "progs").c_str()), 0);
  CallArgs a = StartArgs("OUTER.KVP");
  sim.Call(a);
  ASSERT_EQ(a.status, 0) << app.read("progs/kv1dll.log");
  EXPECT_EQ(a.progress, 1);  // the breakpoint inside the called program
  EXPECT_NEAR(a.z[0], 0.5, 1e-12);
  sim.Call(a);
  EXPECT_EQ(a.progress, 0);
  EXPECT_NEAR(a.z[0], 0.5, 1e-12);  // three quarter turns: pi/2 * 3
  EXPECT_EQ(Count(app.read("progs/kv1dll.log"), "\nMI "), 4);
  ASSERT_EQ(chdir(app.dir().path().c_str()), 0);
}

TEST_F(Protocol, FilesWithLfOrLoneCrLineEnds) {
  auto ends = [](std::string text, const std::string& end) {
    for (std::size_t p = 0; (p = text.find("\r\n", p)) != std::string::npos; p += end.size())
      text.replace(p, 2, end);
    return text;
  };
  dir.write("cr.MI", ends(RotX(kPi / 2).Text(), "\r"));
  dir.write("lf.MI", ends(RotX(kPi / 2).Text(), "\n"));
  dir.write("inner.kvp", "!Quantum program inner.kvp\n@lf.MI\n!BREAKPOINT\n");
  dir.write("inner.MP", "@inner.kvp\r");
  dir.write("test.kvp", "!Quantum program test.kvp\r@INITIALIZE.MI\r@cr.MI\r@inner.MP\r");
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  ASSERT_EQ(a.status, 0) << dir.read("kv1dll.log");
  EXPECT_EQ(a.progress, 1);  // the breakpoint of the LF file
  EXPECT_NEAR(a.z[0], 1.0, 1e-12);
  EXPECT_EQ(Count(dir.read("kv1dll.log"), "\nMI "), 3);
}

TEST_F(Protocol, LongRunsReturnEarlyAndResume) {
  // The field has an "oscillating" part of frequency 0 (sin(pi/2) = 1, so pi in all): no
  // merging of factors, every intermediate step costs its own work.
  MiText slow = RotX(kPi - 1, 1, 400000);
  slow.Field(1, 1, 1.0).Field(1, 9, kPi / 2);
  dir.write("long.MI", slow.Text());
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@long.MI"}));
  sim.SetReturnInterval(std::chrono::milliseconds(2));
  CallArgs a = StartArgs("test.kvp");
  int calls = 0, early = 0;
  do {
    a.progress = 1;
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    ++calls;
    if (a.flags[0] == 1) {
      ++early;
      EXPECT_EQ(a.progress, 1);  // left as it was
      EXPECT_GT(a.z[0], 0.0);    // the state so far is reported
    }
  } while ((a.flags[0] == 1 || a.progress == 1) && calls < 100000);
  EXPECT_GT(early, 0);
  EXPECT_EQ(calls, early + 1);
  EXPECT_NEAR(a.z[0], 1.0, 1e-9);
}

TEST_F(Protocol, AbandonFreesTheContextAndAStartBeginsAfresh) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@half.MI", "!BREAKPOINT", "@half.MI"}));
  CallArgs a = StartArgs("test.kvp");
  sim.Call(a);
  ASSERT_EQ(a.progress, 1);
  CallArgs reset;
  reset.entry = -2;
  reset.progress = 1;
  reset.flags[0] = 5;
  reset.status = 3;
  sim.Call(reset);
  EXPECT_EQ(reset.status, 0);
  EXPECT_EQ(reset.progress, 0);
  EXPECT_EQ(reset.flags[0], 0);
  EXPECT_FALSE(sim.Active());
  CallArgs again = StartArgs("test.kvp");
  sim.Call(again);
  EXPECT_EQ(again.progress, 1);
  EXPECT_NEAR(again.z[0], 0.5, 1e-12);
}

TEST_F(Protocol, OutputFilesHoldOneLinePerMainStepAndInitialState) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@steps.MI", "@half.MI"}));
  CallArgs a = RunToEnd(sim, "test.kvp", true);
  ASSERT_EQ(a.status, 0);
  for (const char* file : {"qubit01.out", "qubit02.out"}) {
    const auto lines = Lines(dir.read(file));
    ASSERT_EQ(lines.size(), 6u) << file;  // header, initial state, 3 main steps, half
    EXPECT_EQ(lines[0], "# t Qx Qy Qz");
    double t, x, y, z;
    ASSERT_EQ(std::sscanf(lines[3].c_str(), "%lf %lf %lf %lf", &t, &x, &y, &z), 4);
    EXPECT_NEAR(t, 2.0 / 3, 1e-14);
    if (std::string(file) == "qubit01.out") {
      EXPECT_NEAR(z, 0.75, 1e-14);  // sin^2(pi/3)
      EXPECT_NEAR(y, (1 - std::sin(2 * kPi / 3)) / 2, 1e-14);
    } else {
      EXPECT_EQ(lines[3].rfind("0.666666666666667 0.5 0.5 ", 0), 0u) << lines[3];
      EXPECT_NEAR(z, 0.0, 1e-14);
    }
    ASSERT_EQ(std::sscanf(lines[5].c_str(), "%lf", &t), 1);
    EXPECT_NEAR(t, 2.0, 1e-14);
  }
  EXPECT_FALSE(dir.exists("qubit03.out"));
  // A new start truncates them; without output files asked for, none are written.
  a = RunToEnd(sim, "test.kvp", true);
  EXPECT_EQ(Lines(dir.read("qubit01.out")).size(), 6u);
  RunDir other;
  other.write("INITIALIZE.MI", Up().Text());
  other.write("test.kvp", ProgramText({"@INITIALIZE.MI"}));
  ASSERT_EQ(RunToEnd(sim, "test.kvp", false).status, 0);
  EXPECT_FALSE(other.exists("qubit01.out"));
}

TEST_F(Protocol, LogNamesTheEngineProgramRegisterAndEveryMi) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@steps.MI"}));
  ASSERT_EQ(RunToEnd(sim, "test.kvp").status, 0);
  const auto log = Lines(dir.read("kv1dll.log"));
  ASSERT_GE(log.size(), 6u);
  EXPECT_EQ(log[0], "Orvex simulation engine (kv3) version 1.0.0");
  EXPECT_EQ(log[1], "program: test.kvp");
  EXPECT_EQ(log[2], "qubits: 2");
  EXPECT_EQ(log[3], "state vector: 4 amplitudes, 64 bytes");
  EXPECT_EQ(log[log.size() - 2],
            "MI INITIALIZE.MI: 0 main steps, 0 intermediate steps, time step 0, duration 0, "
            "norm 1");
  EXPECT_EQ(log.back().rfind("MI steps.MI: 3 main steps, 2 intermediate steps, time step "
                             "0.333333333333333, duration 1, norm ",
                             0),
            0u)
      << log.back();
  // A new start truncates the log.
  ASSERT_EQ(RunToEnd(sim, "test.kvp").status, 0);
  EXPECT_EQ(Count(dir.read("kv1dll.log"), "version"), 1);
}

TEST_F(Protocol, NormCheckPassesForUnitaryEvolution) {
  MiText checked = RotX(1.0, 2, 50);
  checked.checkNorm = true;
  checked.Pair(1, 2, 0.3, 0.4, 0.5);
  dir.write("checked.MI", checked.Text());
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@checked.MI"}));
  EXPECT_EQ(RunToEnd(sim, "test.kvp").status, 0);
}

// ---- The exported C entry, loaded as the workbench loads it ----

std::string EnginePath() {
  if (const char* env = std::getenv("ORVEX_ENGINE")) return env;
  return std::string(ORVEX_BIN_DIR) + "/libkv3.so";
}

TEST(Kv3dllEntry, RunsAProgramAcrossCallsAndResets) {
  void* lib = dlopen(EnginePath().c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  auto entry = reinterpret_cast<decltype(&kv3dll)>(dlsym(lib, "kv3dll"));
  ASSERT_NE(entry, nullptr);
  {
    RunDir dir;
    dir.write("INITIALIZE.MI", Up().Text());
    dir.write("rot.MI", RotX(kPi / 2).Text());
    dir.write("prog.kvp", ProgramText({"@INITIALIZE.MI", "@rot.MI", "!BREAKPOINT", "@rot.MI"}));
    std::int32_t status = 0, progress = 1, runMode = 0, noOutput = 1, entryWord = -1;
    double x[32], y[32], z[32];
    std::fill(z, z + 32, -7.0);
    std::int32_t flags[4] = {0, 0, 0, 0};
    char name[33];
    std::snprintf(name, sizeof name, "%-32s", "prog.kvp");
    entry(&status, &progress, &runMode, &noOutput, &entryWord, x, y, z, flags, name);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(entryWord, 0);
    EXPECT_EQ(progress, 1);
    EXPECT_NEAR(z[0], 0.5, 1e-12);
    EXPECT_NEAR(z[1], 0.0, 1e-12);
    EXPECT_EQ(z[2], -7.0);  // only qubits 1..N are written
    entry(&status, &progress, &runMode, &noOutput, &entryWord, x, y, z, flags, name);
    EXPECT_EQ(progress, 0);
    EXPECT_NEAR(z[0], 1.0, 1e-12);
    entryWord = -2;
    entry(&status, &progress, &runMode, &noOutput, &entryWord, x, y, z, flags, name);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(progress, 0);
    // An error code comes back through the status word.
    std::snprintf(name, sizeof name, "%-32s", "missing.kvp");
    entryWord = -1;
    entry(&status, &progress, &runMode, &noOutput, &entryWord, x, y, z, flags, name);
    EXPECT_EQ(status, -1002);
  }
  dlclose(lib);
}

} // namespace
} // namespace orvex::engine::test
