// Gate fidelity: ideal gates, the fidelity and leakage formulas and the virtual-z search.
#include "run/fidelity.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "workspace/numbers.h"

namespace orvex {

namespace {

constexpr double kPi = std::numbers::pi;
const Complex kI{0, 1};

GateMatrix Single(Complex a, Complex b, Complex c, Complex d) {
  GateMatrix g(2);
  g(0, 0) = a;
  g(0, 1) = b;
  g(1, 0) = c;
  g(1, 1) = d;
  return g;
}

GateMatrix Kron(const GateMatrix& x, const GateMatrix& y) {
  GateMatrix g(x.dim * y.dim);
  for (int r1 = 0; r1 < x.dim; ++r1)
    for (int c1 = 0; c1 < x.dim; ++c1)
      for (int r2 = 0; r2 < y.dim; ++r2)
        for (int c2 = 0; c2 < y.dim; ++c2)
          g(r1 * y.dim + r2, c1 * y.dim + c2) = x(r1, c1) * y(r2, c2);
  return g;
}

std::optional<GateMatrix> OneQubitGate(const std::string& n, double angle) {
  const double s = 1 / std::sqrt(2.0), c2 = std::cos(angle / 2), s2 = std::sin(angle / 2);
  if (n == "I") return Single(1, 0, 0, 1);
  if (n == "X") return Single(0, 1, 1, 0);
  if (n == "Y") return Single(0, -kI, kI, 0);
  if (n == "Z") return Single(1, 0, 0, -1);
  if (n == "H") return Single(s, s, s, -s);
  if (n == "S") return Single(1, 0, 0, kI);
  if (n == "T") return Single(1, 0, 0, std::exp(kI * (kPi / 4)));
  if (n == "SX") return Single((1.0 + kI) / 2.0, (1.0 - kI) / 2.0, (1.0 - kI) / 2.0, (1.0 + kI) / 2.0);
  if (n == "RX") return Single(c2, -kI * s2, -kI * s2, c2);
  if (n == "RY") return Single(c2, -s2, s2, c2);
  if (n == "RZ") return Single(std::exp(-kI * (angle / 2)), 0, 0, std::exp(kI * (angle / 2)));
  return std::nullopt;
}

std::optional<GateMatrix> TwoQubitGate(const std::string& n, double angle) {
  GateMatrix g(4);
  for (int i = 0; i < 4; ++i) g(i, i) = 1;
  if (n == "CNOT") {
    g(2, 2) = g(3, 3) = 0;
    g(2, 3) = g(3, 2) = 1;
  } else if (n == "CZ") {
    g(3, 3) = -1;
  } else if (n == "CPHASE") {
    g(3, 3) = std::exp(kI * angle);
  } else if (n == "SWAP" || n == "ISWAP") {
    g(1, 1) = g(2, 2) = 0;
    g(1, 2) = g(2, 1) = n == "SWAP" ? Complex(1) : kI;
  } else if (n == "SQRTSWAP") {
    g(1, 1) = g(2, 2) = (1.0 + kI) / 2.0;
    g(1, 2) = g(2, 1) = (1.0 - kI) / 2.0;
  } else {
    return std::nullopt;
  }
  return g;
}

double Wrap(double phi) {
  phi = std::remainder(phi, 2 * kPi);
  return phi <= -kPi ? phi + 2 * kPi : phi;
}

// Nelder-Mead minimisation of f from x0 with initial step `step`.
template <class F>
std::vector<double> NelderMead(const F& f, std::vector<double> x0, double step) {
  const std::size_t n = x0.size();
  std::vector<std::vector<double>> p(n + 1, x0);
  std::vector<double> v(n + 1);
  for (std::size_t i = 0; i < n; ++i) p[i + 1][i] += step;
  for (std::size_t i = 0; i <= n; ++i) v[i] = f(p[i]);
  auto point = [&](const std::vector<double>& c, const std::vector<double>& w, double t) {
    std::vector<double> r(n);
    for (std::size_t i = 0; i < n; ++i) r[i] = c[i] + t * (w[i] - c[i]);
    return r;
  };
  for (int iter = 0; iter < 4000; ++iter) {
    std::vector<std::size_t> order(n + 1);
    for (std::size_t i = 0; i <= n; ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return v[a] < v[b]; });
    std::vector<std::vector<double>> q;
    std::vector<double> w;
    for (auto i : order) {
      q.push_back(p[i]);
      w.push_back(v[i]);
    }
    p = q;
    v = w;
    if (v[n] - v[0] < 1e-15) break;
    std::vector<double> c(n, 0.0);
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) c[j] += p[i][j] / static_cast<double>(n);
    const auto r = point(c, p[n], -1);
    const double fr = f(r);
    if (fr < v[0]) {
      const auto e = point(c, p[n], -2);
      const double fe = f(e);
      if (fe < fr) p[n] = e, v[n] = fe;
      else p[n] = r, v[n] = fr;
    } else if (fr < v[n - 1]) {
      p[n] = r, v[n] = fr;
    } else {
      const auto k = point(c, p[n], 0.5);
      const double fk = f(k);
      if (fk < v[n]) {
        p[n] = k, v[n] = fk;
      } else {
        for (std::size_t i = 1; i <= n; ++i) {
          p[i] = point(p[0], p[i], 0.5);
          v[i] = f(p[i]);
        }
      }
    }
  }
  std::size_t best = 0;
  for (std::size_t i = 1; i <= n; ++i)
    if (v[i] < v[best]) best = i;
  return p[best];
}

} // namespace

std::optional<GateMatrix> TargetGate(const std::string& name, double angle, int qubits,
                                     std::string& error) {
  const std::string n = Upper(name);
  if (auto g = OneQubitGate(n, angle)) {
    GateMatrix u = *g;
    for (int k = 1; k < qubits; ++k) u = Kron(u, *g);
    return u;
  }
  if (auto g = TwoQubitGate(n, angle)) {
    if (qubits == 2) return g;
    error = "target " + name + " acts on two qubits, " + std::to_string(qubits) + " chosen";
    return std::nullopt;
  }
  error = "unknown target " + name +
          " (I, X, Y, Z, H, S, T, SX, RX, RY, RZ, CNOT, CZ, SWAP, ISWAP, SQRTSWAP, CPHASE)";
  return std::nullopt;
}

double AverageGateFidelity(const GateMatrix& m, const GateMatrix& u) {
  double mm = 0;
  Complex um = 0;
  for (int r = 0; r < m.dim; ++r)
    for (int c = 0; c < m.dim; ++c) {
      mm += std::norm(m(r, c));
      um += std::conj(u(r, c)) * m(r, c);
    }
  const double d = m.dim;
  return (mm + std::norm(um)) / (d * (d + 1));
}

double Leakage(const GateMatrix& m) {
  double mm = 0;
  for (const Complex& x : m.a) mm += std::norm(x);
  return 1 - mm / m.dim;
}

GateMatrix WithZPhases(const GateMatrix& m, const std::vector<double>& phases) {
  const int k = static_cast<int>(phases.size() / 2);
  // Phase of basis index i under the rotations phases[offset .. offset + k - 1]: qubit t
  // (listed t-th, bit k - 1 - t) contributes exp(-i phi/2) in |0> and exp(+i phi/2) in |1>.
  auto phase = [&](int i, std::size_t offset) {
    double a = 0;
    for (int t = 0; t < k; ++t)
      a += ((i >> (k - 1 - t)) & 1 ? 0.5 : -0.5) * phases[offset + static_cast<std::size_t>(t)];
    return std::exp(kI * a);
  };
  GateMatrix g(m.dim);
  for (int r = 0; r < m.dim; ++r)
    for (int c = 0; c < m.dim; ++c)
      g(r, c) = phase(r, static_cast<std::size_t>(k)) * m(r, c) * phase(c, 0);
  return g;
}

ZPhaseFit OptimiseZPhases(const GateMatrix& m, const GateMatrix& u) {
  int k = 0;
  while ((1 << k) < m.dim) ++k;
  const std::size_t n = 2 * static_cast<std::size_t>(k);
  auto cost = [&](const std::vector<double>& x) {
    return -AverageGateFidelity(WithZPhases(m, x), u);
  };
  ZPhaseFit best;
  best.phases.assign(n, 0.0);
  best.fidelity = -cost(best.phases);
  // Starts: zero and a fixed pseudo-random scatter, so the result is reproducible.
  std::uint64_t seed = 0x9e3779b97f4a7c15ull;
  for (int start = 0; start < 12; ++start) {
    std::vector<double> x0(n, 0.0);
    if (start > 0)
      for (double& x : x0) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        x = (static_cast<double>(seed >> 11) / 9007199254740992.0 * 2 - 1) * kPi;
      }
    std::vector<double> x = NelderMead(cost, x0, 0.5);
    x = NelderMead(cost, x, 1e-3);
    const double f = -cost(x);
    if (f > best.fidelity) {
      best.fidelity = f;
      best.phases = x;
    }
  }
  for (double& p : best.phases) p = Wrap(p);
  best.fidelity = AverageGateFidelity(WithZPhases(m, best.phases), u);
  return best;
}

} // namespace orvex
