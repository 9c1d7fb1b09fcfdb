// Kernels under both threading policies against plain dense application; the same bits on
// any number of threads, for registers that every kernel splits into many tasks; and the
// closed-form factors against the matrix exponential of their generators.
#include <cstring>
#include <random>

#include "engine/group_plan.h"
#include "engine/initial_states.h"
#include "engine/kernels.h"
#include "engine/parallel.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

std::vector<Amp> RandomAmps(int n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::normal_distribution<double> g;
  std::vector<Amp> v(std::size_t{1} << n);
  double norm = 0;
  for (auto& a : v) {
    a = Amp(g(gen), g(gen));
    norm += std::norm(a);
  }
  for (auto& a : v) a /= std::sqrt(norm);
  return v;
}

std::vector<Op> RandomOps(int n, unsigned seed, int count) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> u(-2, 2);
  std::uniform_int_distribution<int> bit(0, n - 1);
  std::vector<Op> ops;
  for (int k = 0; k < count; ++k) {
    const int a = bit(gen);
    if (k % 3 == 2 && n > 1) {
      int b = bit(gen);
      while (b == a) b = bit(gen);
      // Both orders of the two bits occur.
      ops.push_back(PairFactor(a, b, u(gen), u(gen), u(gen), u(gen)));
    } else {
      ops.push_back(FieldFactor(a, u(gen), u(gen), u(gen), u(gen)));
    }
  }
  return ops;
}

void Load(StateVector& s, const std::vector<Amp>& v) {
  for (std::uint64_t i = 0; i < v.size(); ++i) s.Set(i, v[i]);
}

double MaxDiff(const StateVector& s, const std::vector<Amp>& v) {
  double d = 0;
  for (std::uint64_t i = 0; i < v.size(); ++i) d = std::max(d, std::abs(s.Get(i) - v[i]));
  return d;
}

template <class Policy>
Policy MakePolicy() {
  return Policy();
}
template <>
ParallelFor MakePolicy<ParallelFor>() {
  return ParallelFor(3);
}

template <class Policy>
class KernelPolicy : public ::testing::Test {};
using Policies = ::testing::Types<ParallelFor, SequentialFor>;
TYPED_TEST_SUITE(KernelPolicy, Policies);

TYPED_TEST(KernelPolicy, LiteralAndTiledSweepsMatchDenseApplication) {
  const TypeParam policy = MakePolicy<TypeParam>();
  for (int n : {1, 3, 9, 11, 13, 15, 18}) {
    const auto psi0 = RandomAmps(n, 7 + n);
    const auto ops = RandomOps(n, 11 + n, n == 1 ? 4 : 40);
    std::vector<Amp> dense = psi0;
    for (const Op& op : ops) ApplyDense(dense, op);

    StateVector literal, tiled, wide, widest;
    ASSERT_TRUE(literal.Allocate(n) && tiled.Allocate(n) && wide.Allocate(n) &&
                widest.Allocate(n));
    Load(literal, psi0);
    Load(tiled, psi0);
    Load(wide, psi0);
    Load(widest, psi0);
    for (const Op& op : ops) ApplyLiteral(policy, literal, op);
    ApplyOps(policy, tiled, ops, 5);  // small tiles: many groups and gathers
    ApplyOps(policy, wide, ops);      // default tiles: one up to 14 qubits, gathered above
    ApplyOps(policy, widest, ops, kTileBits + 3);  // the widest tiles the plan takes
    EXPECT_LT(MaxDiff(literal, dense), 1e-12) << n;
    EXPECT_LT(MaxDiff(tiled, dense), 1e-12) << n;
    EXPECT_LT(MaxDiff(wide, dense), 1e-12) << n;
    EXPECT_LT(MaxDiff(widest, dense), 1e-12) << n;
  }
}

// Field factors join the pair factors next to them, and pair factors on the same two qubits
// join each other, into one 4x4 per pass where both bits are above a vector. Sequences
// where the order of that product matters: a field before and after its pair, a pair after
// a joined pair on the same qubits (bits in either order), a field that must stay apart
// because its next pair has a bit inside a vector.
TEST(TiledSweeps, JoinedFactorsKeepTheOrderOfTheProduct) {
  const int n = 9;
  auto f = [](int bit, double t) { return FieldFactor(bit, 0.3 + t, -0.7, 0.5 * t, 0.9); };
  auto p = [](int a, int b, double t) { return PairFactor(a, b, 1.1, -0.4 + t, 0.6, 0.8); };
  const std::vector<std::vector<Op>> lists = {
      {f(4, 0), p(4, 7, 0), p(7, 4, 1), f(7, 1)},
      {f(7, 0), f(7, 1), p(4, 7, 0), f(4, 2), p(4, 7, 1), f(7, 3), f(5, 0), p(5, 4, 2)},
      {f(2, 0), f(6, 1), p(2, 6, 0), f(6, 2), p(3, 6, 1), f(2, 3), f(3, 4)},
  };
  for (std::size_t k = 0; k < lists.size(); ++k) {
    const auto psi0 = RandomAmps(n, 40 + static_cast<unsigned>(k));
    std::vector<Amp> dense = psi0;
    for (const Op& op : lists[k]) ApplyDense(dense, op);
    StateVector psi;
    ASSERT_TRUE(psi.Allocate(n));
    Load(psi, psi0);
    ApplyOps(SequentialFor(), psi, lists[k]);
    EXPECT_LT(MaxDiff(psi, dense), 1e-12) << k;
  }
}

// A chain's sub-step: fields, pairs up, pairs down, fields.
std::vector<Op> ChainStep(int n) {
  std::vector<Op> ops;
  for (int q = 0; q < n; ++q) ops.push_back(FieldFactor(q, 0.3, -0.2, 0.7, 0.01));
  for (int q = 0; q + 1 < n; ++q) ops.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, 0.01));
  for (int q = n - 2; q >= 0; --q) ops.push_back(PairFactor(q, q + 1, 0.5, 0.4, 0.9, 0.01));
  for (int q = 0; q < n; ++q) ops.push_back(FieldFactor(q, 0.3, -0.2, 0.7, 0.01));
  return ops;
}

// A sweep may take a factor from further down the list once every earlier factor on its
// qubits is applied: a chain's sub-step on 20 qubits then needs three sweeps of 14-bit tiles
// (taken strictly in order it needed six). On 24 qubits 14-bit tiles need six, and the plan
// takes tiles of 16 bits, which need three.
TEST(TiledSweeps, FactorsOnOtherQubitsMoveUpAndTheTilesWidenWhereThatSavesSweeps) {
  EXPECT_EQ(SweepCount(20, ChainStep(20), 14), 3);
  EXPECT_EQ(SweepCount(24, ChainStep(24), 14), 6);
  EXPECT_EQ(SweepCount(24, ChainStep(24)), 3);
}

// <sigma_x, y, z> of every qubit by the plain serial sums, one qubit at a time.
std::vector<Bloch> SerialBloch(const std::vector<Amp>& v, int n) {
  std::vector<Bloch> r(n);
  for (int q = 0; q < n; ++q) {
    const std::size_t s = std::size_t{1} << q;
    for (std::size_t i = 0; i < v.size(); ++i) {
      if (i & s) continue;
      const Amp c = std::conj(v[i]) * v[i | s];
      r[q].x += 2 * c.real();
      r[q].y += 2 * c.imag();
      r[q].z += std::norm(v[i]) - std::norm(v[i | s]);
    }
  }
  return r;
}

TYPED_TEST(KernelPolicy, MeasureMatchesTheSerialSums) {
  const TypeParam policy = MakePolicy<TypeParam>();
  // One tile, and registers of two to four tile layouts (the last group of high qubits
  // partly filled, down to one or two qubits in long rows; rows of two, four and eight
  // amplitudes; seven high qubits, gathered), and the default tiles of a register split over
  // the threads.
  for (auto [n, tile] : {std::pair{1, 14}, {2, 14}, {3, 14}, {8, 3}, {9, 14}, {10, 4}, {11, 4},
                         {13, 5}, {13, 6}, {16, kMeasureTileBits}, {19, 12},
                         {19, kMeasureTileBits}}) {
    const auto psi0 = RandomAmps(n, 3 + n);
    StateVector s;
    ASSERT_TRUE(s.Allocate(n));
    Load(s, psi0);
    const auto ref = SerialBloch(psi0, n);
    const Expectations e = Measure(policy, s, tile);
    EXPECT_NEAR(e.norm2, 1.0, 1e-12);
    for (int q = 0; q < n; ++q) {
      EXPECT_NEAR(e.qubits[q].x, ref[q].x, 1e-12) << n << " q" << q << " tile " << tile;
      EXPECT_NEAR(e.qubits[q].y, ref[q].y, 1e-12) << n << " q" << q << " tile " << tile;
      EXPECT_NEAR(e.qubits[q].z, ref[q].z, 1e-12) << n << " q" << q << " tile " << tile;
    }
  }
}

// ---- The same bits on any number of threads ----

// 20 qubits: every kernel cuts its work into at least eight tasks (the literal sweeps take
// 2^14 amplitudes a task, the tiled sweeps at least eight tiles of 2^14 a piece, a 3-qubit
// group 2^14 rows a task, the measurement tiles of 2^16 and tiles of rows of 2^11).
constexpr int kSplitQubits = 20;

bool SameBits(const StateVector& a, const StateVector& b) {
  return a.Size() == b.Size() &&
         std::memcmp(a.Re(), b.Re(), a.Size() * sizeof(double)) == 0 &&
         std::memcmp(a.Im(), b.Im(), a.Size() * sizeof(double)) == 0;
}

void ExpectSameValues(const Expectations& a, const Expectations& b, const std::string& what) {
  EXPECT_EQ(a.norm2, b.norm2) << what;
  ASSERT_EQ(a.qubits.size(), b.qubits.size()) << what;
  for (std::size_t q = 0; q < a.qubits.size(); ++q) {
    EXPECT_EQ(a.qubits[q].x, b.qubits[q].x) << what << " q" << q;
    EXPECT_EQ(a.qubits[q].y, b.qubits[q].y) << what << " q" << q;
    EXPECT_EQ(a.qubits[q].z, b.qubits[q].z) << what << " q" << q;
  }
}

// A random 3-qubit unitary's worth of matrix (unitarity does not matter to the kernel).
std::vector<Amp> RandomMatrix(int k, unsigned seed) {
  return RandomAmps(2 * k, seed);
}

// Everything a state goes through, on `policy`: the random state, literal field and pair
// sweeps, tiled sweeps, a 3-qubit group; then its measurement in one pass and in pieces
// taken backwards.
struct KernelRun {
  StateVector psi;
  Expectations whole, pieces;
};

KernelRun RunKernels(const ParallelFor& policy) {
  const int n = kSplitQubits;
  KernelRun r;
  EXPECT_TRUE(r.psi.AllocateUnset(n));
  SetRandom(policy, r.psi, 42);
  const auto ops = RandomOps(n, 9, 12);
  for (const Op& op : ops) ApplyLiteral(policy, r.psi, op);
  ApplyOps(policy, r.psi, RandomOps(n, 10, 40));
  GroupPlan(n, {17, 2, 9}, RandomMatrix(3, 11)).Apply(policy, r.psi);
  r.whole = Measure(policy, r.psi);
  Measurement m(n);
  for (std::size_t p = m.Pieces(); p-- > 0;) m.MeasurePiece(policy, r.psi, p);
  r.pieces = m.Result();
  return r;
}

class ThreadCounts : public ::testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Threads, ThreadCounts, ::testing::Values(2u, 3u, 8u));

TEST_P(ThreadCounts, KernelsAndMeasurementGiveTheBitsOfOneThread) {
  static const KernelRun one = RunKernels(ParallelFor(1));
  const KernelRun many = RunKernels(ParallelFor(GetParam()));
  EXPECT_TRUE(SameBits(one.psi, many.psi));
  ExpectSameValues(one.whole, many.whole, "one pass");
  // Pieces in any order, spread over calls: the one-pass values.
  ExpectSameValues(one.whole, many.pieces, "pieces");
  ExpectSameValues(one.whole, one.pieces, "pieces, one thread");
}

// A run through the simulator: an initial random state; fields on every qubit; a chain of
// couplings over qubits 6..20 (tiled sweeps), a coupled group of qubits 1..3 (its folded
// matrix), qubits 4 and 5 idle (their folded rotations); then a reported value.
struct SimRun {
  Vector state;
  CallArgs last;
};

SimRun RunChain(unsigned threads) {
  RunDir dir;
  MiText mi;
  mi.qubits = kSplitQubits;
  mi.initial = "RANDOM";
  mi.seed = 5;
  mi.fieldSteps = 2;
  mi.intermediateSteps = 2;
  mi.timeStep = 0.3;
  for (int q = 1; q <= kSplitQubits; ++q) mi.Field(q, 0, 0.2 + 0.03 * q).Field(q, 6, 0.5 - 0.02 * q);
  mi.Pair(1, 2, 0.9, -0.4, 0.6).Pair(2, 3, 0.3, 0.8, -1.1);
  for (int q = 6; q < kSplitQubits; ++q) mi.Pair(q, q + 1, 0.5, 0.4, 0.9 - 0.01 * q);
  dir.write("chain.MI", mi.Text());
  dir.write("test.kvp", ProgramText({"@chain.MI"}));
  Simulator sim(threads);
  SimRun r;
  r.last = RunToEnd(sim, "test.kvp");
  EXPECT_EQ(r.last.status, 0) << dir.read("kv1dll.log");
  r.state = StateOf(sim);
  return r;
}

TEST_P(ThreadCounts, ARunThroughTheSimulatorGivesTheBitsOfOneThread) {
  static const SimRun one = RunChain(1);
  const SimRun many = RunChain(GetParam());
  ExpectSameBits(one.state, one.last, many.state, many.last, kSplitQubits);
}

TEST(Factors, FieldFactorIsTheExponentialOfTheField) {
  const double hx = 0.3, hy = -1.1, hz = 0.7, theta = 0.9;
  const Op op = FieldFactor(0, hx, hy, hz, theta);
  // exp(+i theta h.sigma/2) = exp(-i H theta) with H = -h.sigma/2.
  const Matrix h = -(hx * Pauli('x') + hy * Pauli('y') + hz * Pauli('z')) / 2.0;
  const Matrix u = Expm(h, theta);
  EXPECT_LT(std::abs(op.m[0] - u(0, 0)), 1e-14);
  EXPECT_LT(std::abs(op.m[1] - u(0, 1)), 1e-14);
  EXPECT_LT(std::abs(op.m[2] - u(1, 0)), 1e-14);
  EXPECT_LT(std::abs(op.m[3] - u(1, 1)), 1e-14);
  const Op none = FieldFactor(0, 0, 0, 0, theta);
  EXPECT_EQ(none.m[0], Amp(1));
  EXPECT_EQ(none.m[1], Amp(0));
}

TEST(Factors, PairFactorIsTheExponentialOfThePairTerm) {
  const double jx = 0.8, jy = -0.35, jz = 1.4, theta = 0.6;
  MiText pair;
  pair.qubits = 2;
  pair.Pair(1, 2, jx, jy, jz);
  const Matrix u = Expm(Hamiltonian(pair, 2, 0), theta);
  std::vector<Amp> psi = {Amp(0.1, 0.2), Amp(-0.3, 0.4), Amp(0.5, -0.1), Amp(0.2, 0.6)};
  Vector v(4);
  for (int i = 0; i < 4; ++i) v[i] = psi[i];
  const Vector ref = u * v;
  for (const Op& op : {PairFactor(0, 1, jx, jy, jz, theta), PairFactor(1, 0, jx, jy, jz, theta)}) {
    auto out = psi;
    ApplyDense(out, op);
    for (int i = 0; i < 4; ++i) EXPECT_LT(std::abs(out[i] - ref[i]), 1e-14) << i;
  }
}

} // namespace
} // namespace orvex::engine::test
