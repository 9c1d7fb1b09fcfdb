// Runs of a register larger than one piece of work, returning at every opportunity: inside
// the start's preparation of the state, inside an initial state, inside sub-steps and
// inside the measurements of the reported values; they must end with the bits of a run that
// never returns early.
#include <cstring>

#include "engine/kernels.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

// 19 qubits: the state takes two pieces to prepare (four for a random one) and a
// measurement some thirty.
constexpr int kQubits = 19;

// Fields on every qubit and one chain of couplings through all of them: nothing is folded
// over a reported interval, so measuring between any two batches leaves the state as it was.
MiText Chain() {
  MiText mi;
  mi.qubits = kQubits;
  for (int q = 1; q <= kQubits; ++q) mi.Field(q, 0, 0.3 + 0.02 * q).Field(q, 6, 0.6 - 0.03 * q);
  for (int q = 1; q < kQubits; ++q) mi.Pair(q, q + 1, 0.5, 0.4, 0.9 - 0.01 * q);
  mi.fieldSteps = 2;
  mi.intermediateSteps = 3;
  mi.timeStep = 0.4;
  return mi;
}

struct Outcome {
  Vector state;
  CallArgs last;
  std::string outputs;  // every qubit's output file
  int calls = 0;
  bool stateAfterFirstCall = false;
};

Outcome RunProgram(const std::string& program, unsigned threads, bool hurried) {
  RunDir dir;
  dir.write("chain.MI", Chain().Text());
  dir.write("random.MI", InitMi(kQubits, "RANDOM", 3).Text());
  dir.write("test.kvp", program);
  Simulator sim(threads);
  sim.SetReturnInterval(hurried ? std::chrono::microseconds(0) : std::chrono::hours(1));
  Outcome o;
  CallArgs a = StartArgs("test.kvp", 0, 0, true);
  for (; o.calls < 100000; ++o.calls) {
    a.progress = 1;
    sim.Call(a);
    if (o.calls == 0) o.stateAfterFirstCall = sim.State() != nullptr;
    EXPECT_EQ(a.status, 0) << dir.read("kv1dll.log");
    if (a.status != 0 || (a.flags[0] == 0 && a.progress == 0)) break;
  }
  ++o.calls;
  o.last = a;
  o.state = StateOf(sim);
  for (int q = 1; q <= kQubits; ++q)
    o.outputs += dir.read(std::string("qubit") + (q < 10 ? "0" : "") + std::to_string(q) + ".out");
  return o;
}

TEST(Resume, ARunCutAtEveryPointEndsWithTheBitsOfAnUncutRun) {
  const std::string program =
      ProgramText({"@chain.MI", "@random.MI", "@chain.MI", "!BREAKPOINT", "@chain.MI"});
  const Outcome whole = RunProgram(program, 1, false);
  const Outcome cut = RunProgram(program, 2, true);
  // The start call returned inside the preparation of |0...0>: no state to copy out yet.
  EXPECT_TRUE(whole.stateAfterFirstCall);
  EXPECT_FALSE(cut.stateAfterFirstCall);
  EXPECT_GT(cut.calls, whole.calls);
  ExpectSameBits(whole.state, whole.last, cut.state, cut.last, kQubits);
  // Every record written along the way, from measurements cut into pieces, is the same.
  EXPECT_FALSE(whole.outputs.empty());
  EXPECT_EQ(whole.outputs, cut.outputs);
}

TEST(Resume, AnInitialStateAndItsMeasurementTakeManyShortCalls) {
  // A random state and nothing else: its preparation and the measurement of its values
  // return after every piece, and report the values once both are done.
  const Outcome whole = RunProgram(ProgramText({"@random.MI"}), 1, false);
  const Outcome cut = RunProgram(ProgramText({"@random.MI"}), 1, true);
  EXPECT_EQ(whole.calls, 1);
  EXPECT_GT(cut.calls, static_cast<int>(Measurement(kQubits).Pieces()));
  EXPECT_EQ(whole.outputs, cut.outputs);
  for (int q = 0; q < kQubits; ++q) EXPECT_EQ(whole.last.x[q], cut.last.x[q]) << q;
}

} // namespace
} // namespace orvex::engine::test
