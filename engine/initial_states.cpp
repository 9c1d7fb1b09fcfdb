// Initial states; the ground state uses a dense Hermitian eigensolver (Eigen).
#include "engine/initial_states.h"

#include <cmath>
#include <complex>
#include <vector>

#include <Eigen/Dense>

#include "engine/kernels.h"
#include "engine/parallel.h"

namespace orvex::engine {

void SetSpinUp(StateVector& psi) {
  psi.Clear();
  psi.Re()[0] = 1.0;
}

void SetSpinDown(StateVector& psi) {
  psi.Clear();
  psi.Re()[psi.Size() - 1] = 1.0;
}

namespace {

std::uint64_t SplitMix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

} // namespace

void SetRandom(StateVector& psi, std::uint64_t seed) {
  constexpr double kTwoPi = 6.283185307179586476925;
  constexpr double kUnit = 1.0 / 9007199254740992.0;  // 2^-53
  constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15ull;
  constexpr std::uint64_t kChunk = 1 << 14;
  const std::uint64_t size = psi.Size();
  double* re = psi.Re();
  double* im = psi.Im();
  const std::uint64_t chunks = (size + kChunk - 1) / kChunk;
  std::vector<double> partial(chunks, 0.0);
  // Output k of splitmix64 from state `seed` is SplitMix(seed + k * golden), so any
  // amplitude can be drawn on its own.
  ParallelFor().Run(chunks, [&](std::uint64_t c) {
    double sum = 0;
    const std::uint64_t end = std::min(size, (c + 1) * kChunk);
    for (std::uint64_t i = c * kChunk; i < end; ++i) {
      const std::uint64_t a = SplitMix(seed + (2 * i) * kGolden);
      const std::uint64_t b = SplitMix(seed + (2 * i + 1) * kGolden);
      const double u1 = static_cast<double>((a >> 11) + 1) * kUnit;  // (0, 1]
      const double u2 = static_cast<double>(b >> 11) * kUnit;        // [0, 1)
      const double r = std::sqrt(-2.0 * std::log(u1));
      re[i] = r * std::cos(kTwoPi * u2);
      im[i] = r * std::sin(kTwoPi * u2);
      sum += re[i] * re[i] + im[i] * im[i];
    }
    partial[c] = sum;
  });
  double norm2 = 0;
  for (double p : partial) norm2 += p;
  const double scale = 1.0 / std::sqrt(norm2);
  ParallelFor().Run(chunks, [&](std::uint64_t c) {
    const std::uint64_t end = std::min(size, (c + 1) * kChunk);
    for (std::uint64_t i = c * kChunk; i < end; ++i) {
      re[i] *= scale;
      im[i] *= scale;
    }
  });
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
