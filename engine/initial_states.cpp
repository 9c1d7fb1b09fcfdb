// Initial states; the ground state uses a dense Hermitian eigensolver (Eigen).
#include "engine/initial_states.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <complex>
#include <vector>

#include <Eigen/Dense>

namespace orvex::engine {

namespace {

using u64 = std::uint64_t;

// Amplitudes per task, and per piece: 2^18 amplitudes are some 4 MiB to zero, or some 10 ms
// of one core drawing random numbers.
constexpr int kTaskBits = 14;
constexpr int kSliceBits = 18;

u64 SplitMix(u64 x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

} // namespace

StatePreparation StatePreparation::Basis(int qubits, u64 index) {
  StatePreparation p;
  p.value_ = index;
  p.size_ = u64{1} << qubits;
  p.slices_ = static_cast<std::size_t>((p.size_ + (u64{1} << kSliceBits) - 1) >> kSliceBits);
  p.pieces_ = p.slices_;
  return p;
}

StatePreparation StatePreparation::Random(int qubits, u64 seed) {
  StatePreparation p = Basis(qubits, seed);
  p.random_ = true;
  // Draw every slice, then scale every slice; a state of one slice in one piece.
  p.pieces_ = p.slices_ == 1 ? 1 : 2 * p.slices_;
  p.partial_.assign(static_cast<std::size_t>((p.size_ + (u64{1} << kTaskBits) - 1) >> kTaskBits),
                    0.0);
  return p;
}

void StatePreparation::ApplyPiece(const ParallelFor& policy, StateVector& psi,
                                  std::size_t piece) {
  if (random_ && slices_ == 1 && piece == 0) {
    Draw(policy, psi, 0);
    Scale(policy, psi, 0);
    return;
  }
  if (random_)
    piece < slices_ ? Draw(policy, psi, piece) : Scale(policy, psi, piece - slices_);
  else
    Zero(policy, psi, piece);
}

// The tasks of slice `slice`: f(task, from, to) for each run of 2^kTaskBits amplitudes
// [from, to), `task` counted from the state's first amplitude.
template <class F>
void StatePreparation::ForEachTask(const ParallelFor& policy, std::size_t slice,
                                   const F& f) const {
  const u64 begin = u64{slice} << kSliceBits, end = std::min(size_, (u64{slice} + 1) << kSliceBits);
  const u64 tasks = ((end - begin) + (u64{1} << kTaskBits) - 1) >> kTaskBits;
  policy.Run(tasks, [&](u64 t) {
    const u64 from = begin + (t << kTaskBits);
    f((begin >> kTaskBits) + t, from, std::min(end, from + (u64{1} << kTaskBits)));
  });
}

void StatePreparation::Zero(const ParallelFor& policy, StateVector& psi, std::size_t slice) {
  double* re = psi.Re();
  double* im = psi.Im();
  ForEachTask(policy, slice, [&](u64, u64 from, u64 to) {
    std::memset(re + from, 0, (to - from) * sizeof(double));
    std::memset(im + from, 0, (to - from) * sizeof(double));
    if (value_ >= from && value_ < to) re[value_] = 1.0;
  });
}

void StatePreparation::Draw(const ParallelFor& policy, StateVector& psi, std::size_t slice) {
  constexpr double kTwoPi = 6.283185307179586476925;
  constexpr double kUnit = 1.0 / 9007199254740992.0;  // 2^-53
  constexpr u64 kGolden = 0x9E3779B97F4A7C15ull;
  double* re = psi.Re();
  double* im = psi.Im();
  // Output k of splitmix64 from state `seed` is SplitMix(seed + k * golden), so any
  // amplitude can be drawn on its own.
  const u64 seed = value_;
  ForEachTask(policy, slice, [&](u64 task, u64 from, u64 to) {
    double sum = 0;
    for (u64 i = from; i < to; ++i) {
      const u64 a = SplitMix(seed + (2 * i) * kGolden);
      const u64 b = SplitMix(seed + (2 * i + 1) * kGolden);
      const double u1 = static_cast<double>((a >> 11) + 1) * kUnit;  // (0, 1]
      const double u2 = static_cast<double>(b >> 11) * kUnit;        // [0, 1)
      const double r = std::sqrt(-2.0 * std::log(u1));
      re[i] = r * std::cos(kTwoPi * u2);
      im[i] = r * std::sin(kTwoPi * u2);
      sum += re[i] * re[i] + im[i] * im[i];
    }
    partial_[task] = sum;
  });
}

void StatePreparation::Scale(const ParallelFor& policy, StateVector& psi, std::size_t slice) {
  if (slice == 0) {
    double norm2 = 0;
    for (double p : partial_) norm2 += p;
    scale_ = 1.0 / std::sqrt(norm2);
  }
  double* re = psi.Re();
  double* im = psi.Im();
  const double scale = scale_;
  ForEachTask(policy, slice, [&](u64, u64 from, u64 to) {
    for (u64 i = from; i < to; ++i) {
      re[i] *= scale;
      im[i] *= scale;
    }
  });
}

void SetSpinUp(const ParallelFor& policy, StateVector& psi) {
  StatePreparation::Basis(psi.Qubits(), 0).Apply(policy, psi);
}

void SetSpinDown(const ParallelFor& policy, StateVector& psi) {
  StatePreparation::Basis(psi.Qubits(), psi.Size() - 1).Apply(policy, psi);
}

void SetRandom(const ParallelFor& policy, StateVector& psi, std::uint64_t seed) {
  StatePreparation::Random(psi.Qubits(), seed).Apply(policy, psi);
}

void SetGroundState(StateVector& psi, const MiFile& mi) {
  using Matrix = Eigen::MatrixXcd;
  const int n = psi.Qubits();
  const Eigen::Index dim = Eigen::Index{1} << n;
  Matrix h = Matrix::Zero(dim, dim);
  // H = -sum_pairs (Jx SxSx + Jy SySy + Jz SzSz) - sum_i h_i(0).S_i, built column by column
  // from the action of each term on a basis state.
  for (Eigen::Index b = 0; b < dim; ++b) {
    for (int q = 1; q <= n && q <= kMaxQubits; ++q) {
      double hx, hy, hz;
      mi.FieldAt(q, 0.0, hx, hy, hz);
      const Eigen::Index s = Eigen::Index{1} << (q - 1);
      const bool down = (b & s) != 0;
      const double z = down ? -1.0 : 1.0;
      h(b, b) += -hz * z / 2;
      // sigma_x |b> = |b^s>; sigma_y |0> = i|1>, sigma_y |1> = -i|0>
      h(b ^ s, b) += -hx / 2;
      h(b ^ s, b) += -hy / 2 * std::complex<double>(0, down ? -1.0 : 1.0);
    }
    for (const Coupling& c : mi.couplings) {
      if (c.j > n) continue;
      const Eigen::Index si = Eigen::Index{1} << (c.i - 1), sj = Eigen::Index{1} << (c.j - 1);
      const double zi = (b & si) ? -1.0 : 1.0, zj = (b & sj) ? -1.0 : 1.0;
      h(b, b) += -c.jz * zi * zj / 4;
      h(b ^ si ^ sj, b) += -c.jx / 4;
      // sigma_y sigma_y |b> = (i zi)(i zj) |b^si^sj> = -zi zj |...>
      h(b ^ si ^ sj, b) += -c.jy / 4 * (-zi * zj);
    }
  }
  Eigen::SelfAdjointEigenSolver<Matrix> solver(h);
  Eigen::VectorXcd v = solver.eigenvectors().col(0);
  Eigen::Index big = 0;
  for (Eigen::Index i = 1; i < dim; ++i)
    if (std::abs(v[i]) > std::abs(v[big])) big = i;
  const std::complex<double> phase = std::conj(v[big]) / std::abs(v[big]);
  v *= phase;
  v /= v.norm();
  for (Eigen::Index i = 0; i < dim; ++i) psi.Set(static_cast<std::uint64_t>(i), v[i]);
  psi.Set(static_cast<std::uint64_t>(big), std::abs(v[big]));
}

} // namespace orvex::engine
