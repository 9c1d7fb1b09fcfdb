// Time of one intermediate step of the product formula for a chain of N qubits (fields on
// every qubit, nearest-neighbour XYZ couplings), with the effective memory bandwidth
// (bytes the sweeps read and write per second) beside a plain copy of the same state size.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "engine/gates.h"
#include "engine/initial_states.h"
#include "engine/kernels.h"
#include "engine/parallel.h"
#include "engine/product_formula.h"
#include "engine/simulator.h"
#include "engine/state_vector.h"

namespace {

using namespace orvex::engine;

// The kernels' threads: ORVEX_THREADS, else every core, as the engine library takes them.
const ParallelFor& Threads() {
  static const ParallelFor policy(DefaultThreadCount());
  return policy;
}

// A chain of n qubits with static fields on every qubit and nearest-neighbour couplings,
// `sub` intermediate steps of delta = 0.02 in one main step.
MiFile ChainMi(int n, long sub) {
  MiFile mi;
  mi.maxQubit = n;
  mi.fieldSteps = 1;
  mi.intermediateSteps = sub;
  mi.timeStep = 0.02 * static_cast<double>(sub);
  for (int q = 0; q < n; ++q) {
    mi.field[q][0] = 0.3 + 0.01 * q;   // Hx0
    mi.field[q][3] = -0.2;             // Hy0
    mi.field[q][6] = 0.7 - 0.02 * q;   // Hz0
  }
  for (int q = 1; q < n; ++q) mi.couplings.push_back({q, q + 1, 0.5, 0.4, 0.9});
  return mi;
}

// The factors of one intermediate step as the simulator applies them (the middle pair
// factors merged), or as the literal formula reads.
std::vector<Op> ChainStep(int n, bool merge = true) {
  return SubStepFactors(ChainMi(n, 1), kSecondOrder, 0, 0, 1, merge);
}

// Allocates every state of a benchmark of n qubits; false (the benchmark skipped with an
// error) when one does not fit.
bool Allocate(benchmark::State& state, int n, std::initializer_list<StateVector*> states) {
  for (StateVector* s : states)
    if (!s->Allocate(n)) {
      state.SkipWithError("cannot allocate the state");
      return false;
    }
  return true;
}

void BM_IntermediateStep(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  const auto ops = ChainStep(n);
  const int sweeps = SweepCount(n, ops);
  for (auto _ : state) {
    ApplyOps(Threads(), psi, ops);
    benchmark::ClobberMemory();
  }
  // Each sweep reads and writes the whole state once.
  const double bytes = 2.0 * sweeps * static_cast<double>(StateVector::BytesFor(n));
  state.counters["sweeps"] = sweeps;
  state.counters["GB/s"] =
      benchmark::Counter(bytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["threads"] = Threads().Threads();
}

// A main step of eight intermediate steps with static fields, as the simulator batches it:
// F(d/2) C [F(d) C] x 7 F(d/2), the inner field halves merged.
void BM_BatchedSteps(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  constexpr int kSteps = 8;
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  const auto ops = SubStepFactors(ChainMi(n, kSteps), kSecondOrder, 0, 0, kSteps, true);
  const int sweeps = SweepCount(n, ops);
  for (auto _ : state) {
    ApplyOps(Threads(), psi, ops);
    benchmark::ClobberMemory();
  }
  const double bytes = 2.0 * sweeps * static_cast<double>(StateVector::BytesFor(n));
  state.counters["sweeps"] = sweeps;
  state.counters["GB/s"] =
      benchmark::Counter(bytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["s/step"] = benchmark::Counter(
      kSteps, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_LiteralStep(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  const auto ops = ChainStep(n, false);
  for (auto _ : state) {
    for (const Op& op : ops) ApplyLiteral(Threads(), psi, op);
    benchmark::ClobberMemory();
  }
  const double bytes = 2.0 * static_cast<double>(ops.size()) *
                       static_cast<double>(StateVector::BytesFor(n));
  state.counters["GB/s"] =
      benchmark::Counter(bytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Measure(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  for (auto _ : state) benchmark::DoNotOptimize(Measure(Threads(), psi));
}

// Copies `from` into `to` in chunks on the engine's threads.
void CopyState(const StateVector& from, StateVector& to) {
  constexpr std::uint64_t kChunk = std::uint64_t{1} << 16;
  const std::uint64_t size = from.Size();
  const std::uint64_t chunks = (size + kChunk - 1) / kChunk;
  Threads().Run(chunks, [&](std::uint64_t c) {
    const std::uint64_t b = c * kChunk, e = std::min(size, b + kChunk);
    std::copy(from.Re() + b, from.Re() + e, to.Re() + b);
    std::copy(from.Im() + b, from.Im() + e, to.Im() + b);
  });
}

// A plain copy of a state of the same size (both arrays), on the same threads.
void BM_Copy(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector from, to;
  if (!Allocate(state, n, {&from, &to})) return;
  SetRandom(Threads(), from, 1);
  for (auto _ : state) {
    CopyState(from, to);
    benchmark::ClobberMemory();
  }
  const double bytes = 2.0 * static_cast<double>(StateVector::BytesFor(n));
  state.counters["GB/s"] =
      benchmark::Counter(bytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

// The measurement of the reported values (all 3N expectation values and the norm) side by
// side with a plain copy of the state, timed alternately in the same loop so that a busy
// machine slows both alike: "copy ms" is the copy's time and "x copy" the measurement's time
// in copies. The iteration time is the measurement's.
void BM_MeasureVsCopy(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi, to;
  if (!Allocate(state, n, {&psi, &to})) return;
  SetRandom(Threads(), psi, 1);
  using Clock = std::chrono::steady_clock;
  double measureSeconds = 0, copySeconds = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    CopyState(psi, to);
    benchmark::ClobberMemory();
    const auto t1 = Clock::now();
    benchmark::DoNotOptimize(Measure(Threads(), psi));
    const auto t2 = Clock::now();
    copySeconds += std::chrono::duration<double>(t1 - t0).count();
    const double m = std::chrono::duration<double>(t2 - t1).count();
    measureSeconds += m;
    state.SetIterationTime(m);
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters["copy ms"] = 1e3 * copySeconds / iterations;
  state.counters["x copy"] = measureSeconds / copySeconds;
}

// ---- Whole runs through the simulator ----

// A directory of its own under the temporary directory, the current directory while the
// object lives.
class BenchDir {
public:
  BenchDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "orvex-bench-XXXXXX").string();
    if (mkdtemp(tmpl.data())) path_ = tmpl;
    saved_ = std::filesystem::current_path();
    if (!path_.empty()) std::filesystem::current_path(path_);
  }
  ~BenchDir() {
    std::filesystem::current_path(saved_);
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  bool Ok() const { return !path_.empty(); }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(name, std::ios::binary) << text;
  }

private:
  std::string path_;
  std::filesystem::path saved_;
};

std::string Num(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

// An MI in the workbench's layout: twelve field values per qubit, pair lines (i, j, J).
struct MiSpec {
  int qubits = 1;
  std::vector<std::array<double, 12>> fields;  // index q - 1
  std::vector<std::pair<int, int>> pairs;
  std::array<double, 3> j{0.5, 0.4, 0.9};
  long intermediateSteps = 1;
  double timeStep = 1;
  std::string initial;

  std::string Text() const {
    std::string t = "!Micro instruction \r\nHEISENBERG INTERACTION\r\n";
    for (auto [a, b] : pairs)
      t += std::to_string(a) + "," + std::to_string(b) + ", " + Num(j[0]) + "," + Num(j[1]) +
           "," + Num(j[2]) + ",  ! Jx, Jy, Jz \r\n";
    t += "END\r\n";
    for (int q = 1; q <= qubits; ++q) {
      t += "SPIN : " + std::to_string(q) +
           " (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)\r\n";
      for (int k = 0; k < 12; ++k)
        t += Num(q <= static_cast<int>(fields.size()) ? fields[q - 1][k] : 0.0) + ", ";
      t += "\r\nEND\r\n";
    }
    t += "NUMBER OF FIELD STEPS\r\n1\r\nEND\r\n";
    t += "TIME STEP\r\n" + Num(timeStep) + "\r\nEND\r\n";
    t += "NUMBER OF INTERMEDIATE TIME STEPS\r\n" + std::to_string(intermediateSteps) +
         "\r\nEND\r\n";
    if (!initial.empty()) t += "INITIAL STATE: " + initial + "\r\n1\r\nEND\r\n";
    t += "NO CHECK NORM\r\n!ABOUT\r\n!bench\r\n!END\r\n";
    return t;
  }
};

// Static fields on every qubit of `mi` (x, y and z, each qubit a little different) and, with
// `groupSize` 1, the whole nearest-neighbour chain; otherwise chains of `groupSize` qubits
// that nothing couples to each other.
void AddChain(MiSpec& mi, int groupSize = 1) {
  mi.fields.assign(static_cast<std::size_t>(mi.qubits), {});
  for (int q = 0; q < mi.qubits; ++q)
    mi.fields[static_cast<std::size_t>(q)] = {0.3 + 0.01 * q, 0, 0, -0.2, 0, 0, 0.7 - 0.02 * q,
                                              0, 0, 0, 0, 0};
  for (int q = 1; q < mi.qubits; ++q)
    if (groupSize == 1 || q % groupSize != 0) mi.pairs.emplace_back(q, q + 1);
}

// Times `first` and `second` (each returns its seconds, < 0 on failure) alternately in one
// loop, so that a busy machine slows both alike; counters "<name> ms" for each and `ratio`,
// second over first.
template <class First, class Second>
void TimeSideBySide(benchmark::State& state, First first, Second second, const std::string& firstName,
                    const std::string& secondName, const std::string& ratio) {
  double a = 0, b = 0;
  for (auto _ : state) {
    const double x = first(), y = second();
    if (x < 0 || y < 0) {
      state.SkipWithError("the run failed");
      return;
    }
    a += x;
    b += y;
    state.SetIterationTime(x + y);
  }
  const double iterations = static_cast<double>(state.iterations());
  state.counters[firstName + " ms"] = 1e3 * a / iterations;
  state.counters[secondName + " ms"] = 1e3 * b / iterations;
  state.counters[ratio] = b / a;
}

// One main step of a pulse on `qubits` qubits with 1 and with 100 intermediate steps, timed
// alternately in the same loop (a busy machine slows both alike). Kind 0: an oscillating
// field on qubit 1 only, no couplings (the other qubits idle); kind 1: the chain above
// (fields on every qubit, nearest-neighbour couplings) as the control; kind k > 1: the chain
// cut into isolated groups of k qubits. Each timed call is the
// pulse MI of a program whose first MI set a random state: the evolution and the report of
// the values. "x 1-step" is the 100-step pulse's time in 1-step pulses.
void BM_PulseSteps(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int kind = static_cast<int>(state.range(1));
  BenchDir dir;
  if (!dir.Ok()) {
    state.SkipWithError("cannot create a directory");
    return;
  }
  MiSpec init;
  init.qubits = n;
  init.initial = "RANDOM";
  init.intermediateSteps = 0;
  dir.Write("init.MI", init.Text());
  for (long steps : {1L, 100L}) {
    MiSpec pulse;
    pulse.qubits = n;
    pulse.intermediateSteps = steps;
    pulse.timeStep = 0.8;
    if (kind > 0) {
      AddChain(pulse, kind);
    } else {
      pulse.fields.resize(n);
      pulse.fields[0] = {0, 0.9, 1.7, 0, 0, 0, 0.6, 0, 0, 0.2, 0, 0};
    }
    dir.Write("pulse" + std::to_string(steps) + ".MI", pulse.Text());
    dir.Write("p" + std::to_string(steps) + ".kvp",
              "!Quantum program progs\\p.kvp\r\n@init.MI\r\n@pulse" + std::to_string(steps) +
                  ".MI\r\n");
  }
  Simulator sim(DefaultThreadCount());
  sim.SetReturnInterval(std::chrono::microseconds(3600000000LL));
  using Clock = std::chrono::steady_clock;
  // Runs `program`; returns the seconds of the pulse's call, or < 0 on failure.
  auto pulse = [&](const char* program) {
    CallArgs a;
    a.entry = -1;
    a.runMode = 1;
    a.flags[3] = 0;  // one MI per step
    a.SetProgramName(program);
    sim.Call(a);
    if (a.status != 0) return -1.0;
    const auto t0 = Clock::now();
    do sim.Call(a);
    while (a.status == 0 && a.flags[0] == 1);
    const double s = std::chrono::duration<double>(Clock::now() - t0).count();
    return a.status == 0 ? s : -1.0;
  };
  TimeSideBySide(state, [&] { return pulse("p1.kvp"); }, [&] { return pulse("p100.kvp"); },
                 "1-step", "100-step", "x 1-step");
}

// The calls of a run in run mode, as the workbench makes them: the XYZ chain of the QuTiP
// comparison (couplings (1, 0.8, 0.6) on (q, q+1), Hz0 = 1 + 0.05 q, Hx1 = 0.5,
// Omega_x = 1.5, phi_x = 0.37 q, tau = 10, 4 intermediate steps) from |0...0>, every call
// timed. The counters give the distribution of call times (the start call, which allocates
// the state, apart) and the process's peak resident memory in units of the state's
// 16 * 2^N bytes. Run it alone, so that the peak is this run's:
//   orvex_bench --benchmark_filter=BM_ChainCallTimes/26
void BM_ChainCallTimes(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  BenchDir dir;
  if (!dir.Ok()) {
    state.SkipWithError("cannot create a directory");
    return;
  }
  MiSpec chain;
  chain.qubits = n;
  chain.j = {1, 0.8, 0.6};
  chain.timeStep = 10;
  chain.intermediateSteps = 4;
  chain.fields.resize(n);
  for (int q = 1; q <= n; ++q) {
    chain.fields[q - 1] = {0, 0.5, 1.5, 0, 0, 0, 1 + 0.05 * q, 0, 0, 0.37 * q, 0, 0};
    if (q < n) chain.pairs.emplace_back(q, q + 1);
  }
  dir.Write("chain.MI", chain.Text());
  dir.Write("chain.kvp", "!Quantum program progs\\chain.kvp\r\n@chain.MI\r\n");
  using Clock = std::chrono::steady_clock;
  std::vector<double> ms;
  double startMs = 0;
  for (auto _ : state) {
    Simulator sim(DefaultThreadCount());
    CallArgs a;
    a.entry = -1;
    a.runMode = 0;
    a.SetProgramName("chain.kvp");
    ms.clear();
    for (bool first = true;; first = false) {
      const auto t0 = Clock::now();
      sim.Call(a);
      const double t = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
      if (first)
        startMs = t;
      else
        ms.push_back(t);
      if (a.status != 0 || (a.flags[0] == 0 && a.progress == 0)) break;
    }
    if (a.status != 0) {
      state.SkipWithError("the run failed");
      return;
    }
  }
  std::sort(ms.begin(), ms.end());
  auto at = [&](double share) {
    return ms.empty() ? 0.0 : ms[static_cast<std::size_t>(share * (ms.size() - 1) + 0.5)];
  };
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const double peak = static_cast<double>(usage.ru_maxrss) * 1024.0;  // ru_maxrss is in KiB
  state.counters["calls"] = static_cast<double>(ms.size() + 1);
  state.counters["start ms"] = startMs;
  state.counters["min ms"] = at(0);
  state.counters["median ms"] = at(0.5);
  state.counters["p99 ms"] = at(0.99);
  state.counters["max ms"] = at(1);
  state.counters["peak x state"] = peak / static_cast<double>(StateVector::BytesFor(n));
}

// ---- One sub-step against the machine's limits ----

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVEX_BENCH_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ORVEX_BENCH_CLONES
#endif

typedef double V8 __attribute__((vector_size(8 * sizeof(double))));
constexpr int kFmaChains = 12;

// kFmaChains independent chains of fused multiply-adds on eight lanes each: enough chains to
// cover the instruction's latency on every port, so the loop runs at the cores' peak rate.
ORVEX_BENCH_CLONES double FmaBurst(long iterations, double seed) {
  V8 acc[kFmaChains];
  for (int k = 0; k < kFmaChains; ++k)
    for (int j = 0; j < 8; ++j) acc[k][j] = seed + 0.001 * (k * 8 + j);
  V8 a, b;
  for (int j = 0; j < 8; ++j) a[j] = 0.999999 - 1e-9 * j, b[j] = 1e-7 * (j + 1);
  for (long i = 0; i < iterations; ++i)
    for (int k = 0; k < kFmaChains; ++k) acc[k] = acc[k] * a + b;
  double sum = 0;
  for (int k = 0; k < kFmaChains; ++k)
    for (int j = 0; j < 8; ++j) sum += acc[k][j];
  return sum;
}

// Fused multiply-adds per second (one per lane) on all the engine's threads, the best of a
// few tries.
double PeakFmaRate() {
  static const double rate = [] {
    constexpr long kIterations = 1 << 16;
    constexpr std::uint64_t kTasks = 64;
    double best = 0;
    for (int attempt = 0; attempt < 5; ++attempt) {
      std::vector<double> sink(kTasks);
      const auto t0 = std::chrono::steady_clock::now();
      Threads().Run(kTasks, [&](std::uint64_t t) { sink[t] = FmaBurst(kIterations, 1.0 + t); });
      const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      benchmark::DoNotOptimize(sink.data());
      best = std::max(best, static_cast<double>(kTasks) * kIterations * kFmaChains * 8 / s);
    }
    return best;
  }();
  return rate;
}

void BM_PeakFma(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(FmaBurst(1 << 16, 1.0));
  state.counters["GFMA/s all threads"] = PeakFmaRate() / 1e9;
  state.counters["GFMA/s one thread"] = benchmark::Counter(
      static_cast<double>(1 << 16) * kFmaChains * 8 / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

// The factor kernels' own rate: one sub-step of a chain small enough to stay in one core's
// cache (at most one tile, applied in place on the calling thread), in multiply-adds per
// second counted as the compute bound counts them. Compare with BM_PeakFma's one-thread rate.
void BM_FactorsInCache(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  const auto ops = ChainStep(n);
  for (auto _ : state) {
    ApplyOps(SequentialFor(), psi, ops);
    benchmark::ClobberMemory();
  }
  const double fmas = 8.0 * static_cast<double>(ops.size()) * static_cast<double>(psi.Size());
  state.counters["GFMA/s"] =
      benchmark::Counter(fmas / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

// The measurement's own rate: a register small enough to be one block in one core's cache,
// measured on the calling thread, in multiply-adds per second of its pair sums (sx and sy
// are four multiply-adds per pair and qubit, two per amplitude). Compare with BM_PeakFma's
// one-thread rate.
void BM_MeasureInCache(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!Allocate(state, n, {&psi})) return;
  SetRandom(Threads(), psi, 1);
  for (auto _ : state) benchmark::DoNotOptimize(Measure(SequentialFor(), psi));
  const double fmas = 2.0 * n * static_cast<double>(psi.Size());
  state.counters["GFMA/s"] =
      benchmark::Counter(fmas / 1e9, benchmark::Counter::kIsIterationInvariantRate);
}

// One second-order sub-step of the chain (ChainStep) beside its two lower bounds: the
// compute bound, the factors' multiply-adds at the measured peak rate (a 2x2 complex factor
// on an amplitude pair is 16 multiply-adds of real numbers, 8 per amplitude and factor), and
// the memory bound, the bytes the sweeps read and write at the bandwidth of a plain copy of a
// state of the same size, timed alternately in the same loop. "x bound" is the step's time
// in units of the larger bound.
void BM_SubStepBounds(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi, from, to;
  if (!Allocate(state, n, {&psi, &from, &to})) return;
  SetRandom(Threads(), psi, 1);
  SetRandom(Threads(), from, 2);
  const auto ops = ChainStep(n);
  const int sweeps = SweepCount(n, ops);
  const double peak = PeakFmaRate();
  using Clock = std::chrono::steady_clock;
  double stepSeconds = 0, copySeconds = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    CopyState(from, to);
    benchmark::ClobberMemory();
    const auto t1 = Clock::now();
    ApplyOps(Threads(), psi, ops);
    benchmark::ClobberMemory();
    const auto t2 = Clock::now();
    copySeconds += std::chrono::duration<double>(t1 - t0).count();
    const double s = std::chrono::duration<double>(t2 - t1).count();
    stepSeconds += s;
    state.SetIterationTime(s);
  }
  const double iterations = static_cast<double>(state.iterations());
  const double stateBytes = static_cast<double>(StateVector::BytesFor(n));
  const double copyRate = 2 * stateBytes * iterations / copySeconds;  // bytes per second
  const double fmas = 8.0 * static_cast<double>(ops.size()) * static_cast<double>(psi.Size());
  const double computeBound = fmas / peak, memoryBound = 2.0 * sweeps * stateBytes / copyRate;
  const double step = stepSeconds / iterations;
  state.counters["sweeps"] = sweeps;
  state.counters["step ms"] = 1e3 * step;
  state.counters["compute ms"] = 1e3 * computeBound;
  state.counters["memory ms"] = 1e3 * memoryBound;
  state.counters["x compute"] = step / computeBound;
  state.counters["x bound"] = step / std::max(computeBound, memoryBound);
}

// A pulse on a small register: a chain of `qubits` coupled qubits (one folded group) with
// oscillating transverse fields, 200000 intermediate steps in one main step, run through the
// simulator. The group's matrix collects every factor of every sub-step, so this is the cost
// of a sub-step where the register is small, as in most single- and two-qubit pulse design.
void BM_SmallPulse(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  constexpr long kSteps = 200000;
  BenchDir dir;
  if (!dir.Ok()) {
    state.SkipWithError("cannot create a directory");
    return;
  }
  MiSpec pulse;
  pulse.qubits = n;
  pulse.intermediateSteps = kSteps;
  pulse.timeStep = 20;
  AddChain(pulse);
  for (int q = 0; q < n; ++q) {
    pulse.fields[static_cast<std::size_t>(q)][1] = 0.5;       // Hx1
    pulse.fields[static_cast<std::size_t>(q)][2] = 1.5;       // Omega_x
    pulse.fields[static_cast<std::size_t>(q)][9] = 0.37 * q;  // phi_x
  }
  dir.Write("pulse.MI", pulse.Text());
  dir.Write("p.kvp", "!Quantum program progs\\p.kvp\r\n@pulse.MI\r\n");
  Simulator sim(DefaultThreadCount());
  for (auto _ : state) {
    CallArgs a;
    a.entry = -1;
    a.SetProgramName("p.kvp");
    do sim.Call(a);
    while (a.status == 0 && a.flags[0] > 0);
    if (a.status != 0) {
      state.SkipWithError("the run failed");
      return;
    }
  }
  state.counters["us per sub-step"] = benchmark::Counter(
      1e-6 * kSteps, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// What the trace's records cost a run: a chain of N qubits (fields on every qubit,
// nearest-neighbour couplings) called 16 times, one intermediate step per call, so that every
// sub-step ends a main step and is recorded (the worst case: an MI of n intermediate steps
// pays one record per n sub-steps). Output files off; the run with records on and the run
// without are timed alternately in one loop. "on / off" is the ratio of their times.
void BM_TraceRecording(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  BenchDir dir;
  if (!dir.Ok()) {
    state.SkipWithError("cannot create a directory");
    return;
  }
  MiSpec chain;
  chain.qubits = n;
  chain.intermediateSteps = 1;
  chain.timeStep = 0.05;
  AddChain(chain);
  dir.Write("chain.MI", chain.Text());
  std::string program = "!Quantum program progs\\chain.kvp\r\n";
  for (int k = 0; k < 16; ++k) program += "@chain.MI\r\n";
  dir.Write("chain.kvp", program);
  Simulator sim(DefaultThreadCount());
  std::vector<double> times(64), q(64 * 96);
  using Clock = std::chrono::steady_clock;
  auto run = [&](bool record) {
    sim.Trace().SetRecording(record);
    CallArgs a;
    a.entry = -1;
    a.SetProgramName("chain.kvp");
    const auto t0 = Clock::now();
    do {
      sim.Call(a);
      while (sim.Trace().Take(times.size(), times.data(), q.data()) > 0) {
      }
    } while (a.status == 0 && a.flags[0] > 0);
    const double s = std::chrono::duration<double>(Clock::now() - t0).count();
    return a.status == 0 ? s : -1.0;
  };
  TimeSideBySide(state, [&] { return run(false); }, [&] { return run(true); }, "off", "on",
                 "on / off");
}

BENCHMARK(BM_IntermediateStep)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Copy)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BatchedSteps)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LiteralStep)->DenseRange(12, 22, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Measure)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MeasureVsCopy)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_ChainCallTimes)->Arg(22)->Arg(26)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PeakFma)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FactorsInCache)->DenseRange(10, 14, 2);
BENCHMARK(BM_MeasureInCache)->DenseRange(10, 16, 3);
BENCHMARK(BM_SubStepBounds)->DenseRange(16, 24, 2)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_PulseSteps)
    ->ArgsProduct({{20}, {0, 1, 2, 4, 5}})
    ->ArgNames({"qubits", "kind"})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();
BENCHMARK(BM_SmallPulse)->DenseRange(2, 4, 1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TraceRecording)->DenseRange(16, 20, 2)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

BENCHMARK_MAIN();
