// Time of one intermediate step of the product formula for a chain of N qubits (fields on
// every qubit, nearest-neighbour XYZ couplings), with the effective memory bandwidth
// (bytes the sweeps read and write per second) beside a plain copy of the same state size.
#include <algorithm>
#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>

#include "engine/gates.h"
#include "engine/initial_states.h"
#include "engine/kernels.h"
#include "engine/parallel.h"
#include "engine/state_vector.h"

namespace {

using namespace orvex::engine;

// The factors of one intermediate step: F(delta/2), pairs forward, pairs backward,
// F(delta/2).
std::vector<Op> ChainStep(int n) {
  const double theta = 0.01;
  std::vector<Op> fields, ops;
  for (int q = 0; q < n; ++q)
    fields.push_back(FieldFactor(q, 0.3 + 0.01 * q, -0.2, 0.7 - 0.02 * q, theta));
  ops = fields;
  for (int q = 0; q + 1 < n; ++q) ops.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, theta));
  for (int q = n - 2; q >= 0; --q) ops.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, theta));
  ops.insert(ops.end(), fields.begin(), fields.end());
  return ops;
}

void BM_IntermediateStep(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector psi;
  if (!psi.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(psi, 1);
  const auto ops = ChainStep(n);
  const int sweeps = SweepCount(n, ops);
  for (auto _ : state) {
    ApplyOps(ParallelFor(), psi, ops);
    benchmark::ClobberMemory();
  }
  // Each sweep reads and writes the whole state once.
  const double bytes = 2.0 * sweeps * static_cast<double>(StateVector::BytesFor(n));
  state.counters["sweeps"] = sweeps;
  state.counters["GB/s"] =
      benchmark::Counter(bytes / 1e9, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["threads"] = EngineThreadCount();
}

// A main step of eight intermediate steps with static fields, as the simulator batches it:
// F(d/2) C [F(d) C] x 7 F(d/2), the inner field halves merged.
void BM_BatchedSteps(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  constexpr int kSteps = 8;
  StateVector psi;
  if (!psi.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(psi, 1);
  const double theta = 0.01;
  std::vector<Op> half, full, pairs, ops;
  for (int q = 0; q < n; ++q) {
    half.push_back(FieldFactor(q, 0.3 + 0.01 * q, -0.2, 0.7 - 0.02 * q, theta));
    full.push_back(FieldFactor(q, 0.3 + 0.01 * q, -0.2, 0.7 - 0.02 * q, 2 * theta));
  }
  for (int q = 0; q + 1 < n; ++q)
    pairs.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, q + 2 == n ? 2 * theta : theta));
  for (int q = n - 3; q >= 0; --q) pairs.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, theta));
  ops = half;
  for (int s = 0; s < kSteps; ++s) {
    ops.insert(ops.end(), pairs.begin(), pairs.end());
    ops.insert(ops.end(), (s + 1 < kSteps ? full : half).begin(),
               (s + 1 < kSteps ? full : half).end());
  }
  const int sweeps = SweepCount(n, ops);
  for (auto _ : state) {
    ApplyOps(ParallelFor(), psi, ops);
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
  if (!psi.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(psi, 1);
  const auto ops = ChainStep(n);
  for (auto _ : state) {
    for (const Op& op : ops) ApplyLiteral(ParallelFor(), psi, op);
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
  if (!psi.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(psi, 1);
  for (auto _ : state) benchmark::DoNotOptimize(Measure(ParallelFor(), psi));
}

// Copies `from` into `to` in chunks on the engine's threads.
void CopyState(const StateVector& from, StateVector& to) {
  constexpr std::uint64_t kChunk = std::uint64_t{1} << 16;
  const std::uint64_t size = from.Size();
  const std::uint64_t chunks = (size + kChunk - 1) / kChunk;
  ParallelFor().Run(chunks, [&](std::uint64_t c) {
    const std::uint64_t b = c * kChunk, e = std::min(size, b + kChunk);
    std::copy(from.Re() + b, from.Re() + e, to.Re() + b);
    std::copy(from.Im() + b, from.Im() + e, to.Im() + b);
  });
}

// A plain copy of a state of the same size (both arrays), on the same threads.
void BM_Copy(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  StateVector from, to;
  if (!from.Allocate(n) || !to.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(from, 1);
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
  if (!psi.Allocate(n) || !to.Allocate(n)) {
    state.SkipWithError("cannot allocate the state");
    return;
  }
  SetRandom(psi, 1);
  using Clock = std::chrono::steady_clock;
  double measureSeconds = 0, copySeconds = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    CopyState(psi, to);
    benchmark::ClobberMemory();
    const auto t1 = Clock::now();
    benchmark::DoNotOptimize(Measure(ParallelFor(), psi));
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

BENCHMARK(BM_IntermediateStep)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Copy)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BatchedSteps)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LiteralStep)->DenseRange(12, 22, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Measure)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MeasureVsCopy)->DenseRange(12, 26, 2)->Unit(benchmark::kMillisecond)->UseManualTime();

} // namespace

BENCHMARK_MAIN();
