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

class Protocol : public ::testing::Test {
protected:
  void SetUp() override {
    dir.write("INITIALIZE.MI", InitMi(2).Text());
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
  app.write("progs/INITIALIZE.MI", InitMi(2).Text());
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
  // The population of |1> grows from 0 to 1 all the way: each early return reports the state
  // so far, never one behind the last, and some of them a state between the two ends (the
  // first call may return before its first sub-step has ended).
  int calls = 0, early = 0, between = 0;
  double last = 0;
  do {
    a.progress = 1;
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    ++calls;
    if (a.flags[0] == 1) {
      ++early;
      EXPECT_EQ(a.progress, 1);  // left as it was
      EXPECT_GE(a.z[0], last - 1e-12);
      if (a.z[0] > 0.0 && a.z[0] < 1.0) ++between;
      last = a.z[0];
    }
  } while ((a.flags[0] == 1 || a.progress == 1) && calls < 100000);
  EXPECT_GT(between, 0);
  EXPECT_EQ(calls, early + 1);
  EXPECT_NEAR(a.z[0], 1.0, 1e-9);
}

// ---- Large registers, early returns in step mode, the engine's flag words ----

// 16 qubits, fields on qubits 1 and 16 and one coupling between them: cheap sub-steps, yet a
// main step of 200 of them is far more than one batch of factors.
MiText WideChain(long main, long sub) {
  MiText m;
  m.qubits = 16;
  m.Field(1, 0, 0.9).Field(1, 6, 0.4).Field(16, 3, -0.7).Field(16, 4, 0.3).Field(16, 5, 1.7);
  m.Pair(1, 16, 0.5, -0.3, 0.8);
  m.fieldSteps = main;
  m.intermediateSteps = sub;
  m.timeStep = 0.25;
  return m;
}

// Steps through a program to its end; each finished step (flags[0] = 0) leaves its state in
// `states` and its progress word in `progress`; returns the number of early returns.
int StepThrough(Simulator& sim, CallArgs a, std::vector<Vector>& states,
                std::vector<int>* progress = nullptr) {
  int early = 0;
  for (int calls = 0; calls < 100000; ++calls) {
    a.progress = 1;
    const int before = a.progress;
    sim.Call(a);
    EXPECT_EQ(a.status, 0);
    if (a.status != 0) break;
    if (a.flags[0] == 1) {
      ++early;
      EXPECT_EQ(a.progress, before);
      continue;
    }
    states.push_back(StateOf(sim));
    if (progress) progress->push_back(a.progress);
    if (a.progress == 0) break;
  }
  return early;
}

TEST_F(Protocol, MainStepsAreWholeStepsAtSixteenQubits) {
  dir.write("chain.MI", WideChain(4, 200).Text());
  dir.write("test.kvp", ProgramText({"@chain.MI"}));
  sim.SetReturnInterval(std::chrono::hours(1));
  std::vector<Vector> steps;
  std::vector<int> progress;
  StepThrough(sim, StartArgs("test.kvp", 1, -1), steps, &progress);
  EXPECT_EQ(progress, (std::vector<int>{1, 1, 1, 0}));
  EXPECT_NEAR(sim.ProgramTime(), 1.0, 1e-12);
  // The same bits as a run without halts.
  Simulator whole;
  ASSERT_EQ(RunToEnd(whole, "test.kvp").status, 0);
  ASSERT_FALSE(steps.empty());
  EXPECT_EQ(steps.back(), StateOf(whole));
}

TEST_F(Protocol, StepsThatRunOutOfTimeReturnEarlyAndFinishWithTheSameBits) {
  // Fields on all 16 qubits and a chain of couplings: a sub-step takes several sweeps, so a
  // call without time left returns inside sub-steps as well as between them.
  MiText chain = WideChain(2, 6);
  for (int q = 1; q <= 16; ++q) chain.Field(q, 6, 0.1 * q).Field(q, 0, 0.05 * (17 - q));
  for (int q = 1; q < 16; ++q) chain.Pair(q, q + 1, 0.3, 0.2, 0.4 + 0.01 * q);
  // Qubits 1-4 of 20, coupled only among themselves: their evolution over a reported
  // interval is one 16x16 matrix, whose application to the register is more than one piece
  // of work, so a step is cut short inside it too.
  MiText group;
  group.qubits = 20;
  for (int q = 1; q <= 4; ++q) group.Field(q, 0, 0.3 * q).Field(q, 6, 0.5 - 0.2 * q);
  group.Pair(1, 2, 0.9, -0.4, 0.6).Pair(2, 3, 0.3, 0.8, -1.1).Pair(3, 4, 1.2, 0.5, 0.7);
  group.fieldSteps = 2;
  group.intermediateSteps = 6;
  group.timeStep = 0.5;
  for (const MiText* mi : {&chain, &group}) {
    dir.write("init.MI", InitMi(mi->qubits).Text());
    dir.write("chain.MI", mi->Text());
    dir.write("test.kvp", ProgramText({"@init.MI", "@chain.MI", "!BREAKPOINT", "@chain.MI"}));
    for (int granularity : {0, -1, 1}) {
      std::vector<Vector> patient, hurried;
      Simulator a, b;
      a.SetReturnInterval(std::chrono::hours(1));
      b.SetReturnInterval(std::chrono::microseconds(0));
      const std::string what = std::to_string(mi->qubits) + " qubits, granularity " +
                               std::to_string(granularity);
      EXPECT_EQ(StepThrough(a, StartArgs("test.kvp", 1, granularity), patient), 0) << what;
      EXPECT_GT(StepThrough(b, StartArgs("test.kvp", 1, granularity), hurried), 0) << what;
      ASSERT_EQ(patient.size(), hurried.size()) << what;
      for (std::size_t k = 0; k < patient.size(); ++k)
        EXPECT_EQ(patient[k], hurried[k]) << what << " step " << k;
    }
  }
}

TEST_F(Protocol, FlagWordOneChoosesTheIntegratorAtTheStart) {
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@half.MI"}));
  for (int word : {7, -1, 2}) {
    CallArgs a = StartArgs("test.kvp");
    a.flags[1] = word;
    sim.Call(a);
    EXPECT_LE(a.status, -1) << word;  // a syntax-class code
    EXPECT_GE(a.status, -19) << word;
    EXPECT_NE(dir.read("kv1dll.log").find("error " + std::to_string(a.status) +
                                          ": test.kvp:0: unknown integrator " +
                                          std::to_string(word)),
              std::string::npos)
        << dir.read("kv1dll.log");
  }
  for (int word : {0, 4}) {
    CallArgs a = StartArgs("test.kvp");
    a.flags[1] = word;
    sim.Call(a);
    EXPECT_EQ(a.status, 0) << word;
    EXPECT_NEAR(a.z[0], 0.5, 1e-12);
    EXPECT_NE(dir.read("kv1dll.log").find(word == 4 ? "integrator: fourth order"
                                                    : "integrator: second order"),
              std::string::npos);
  }
}

TEST_F(Protocol, FlagWordTwoCountsSubStepsThroughNestedPrograms) {
  dir.write("a.MI", RotX(1.0, 2, 5).Text());    // 10 sub-steps
  dir.write("b.MI", RotX(0.5, 4, 5).Text());    // 20
  dir.write("inner.kvp", ProgramText({"@b.MI", "!BREAKPOINT"}));
  dir.write("inner.MP", "@inner.kvp\r\n");
  dir.write("test.kvp", ProgramText({"@INITIALIZE.MI", "@a.MI", "@inner.MP", "@inner.MP"}));
  // Run mode: 30 of the 50 sub-steps at the first halt; all 50 at the second, which is not
  // yet the end; 1000 only at the end.
  CallArgs a = StartArgs("test.kvp");
  std::vector<int> words;
  for (int calls = 0; calls < 10 && (words.empty() || a.progress == 1); ++calls) {
    a.progress = 1;
    sim.Call(a);
    ASSERT_EQ(a.status, 0);
    words.push_back(a.flags[2]);
  }
  EXPECT_EQ(words, (std::vector<int>{600, 999, 1000}));
  // Step by step: never down, 1000 exactly at the end.
  CallArgs s = StartArgs("test.kvp", 1, 1);
  int last = 0, steps = 0;
  do {
    sim.Call(s);
    ASSERT_EQ(s.status, 0);
    EXPECT_GE(s.flags[2], last);
    EXPECT_EQ(s.flags[2] == 1000, s.progress == 0);
    last = s.flags[2];
  } while (s.progress == 1 && ++steps < 100);
  EXPECT_EQ(last, 1000);
  // An abandoned run reports nothing done.
  s.entry = -2;
  sim.Call(s);
  EXPECT_EQ(s.flags[2], 0);
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
  other.write("INITIALIZE.MI", InitMi(2).Text());
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
    dir.write("INITIALIZE.MI", InitMi(2).Text());
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
