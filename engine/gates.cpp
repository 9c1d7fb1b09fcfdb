// Closed-form factors; no matrix exponential is computed at run time.
#include "engine/gates.h"

#include <cmath>

namespace orvex::engine {

Op FieldFactor(int bit, double hx, double hy, double hz, double theta) {
  Op op;
  op.kind = Op::Single;
  op.a = bit;
  const double h = std::hypot(hx, hy, hz);
  if (h == 0.0) {
    op.m = {Amp(1), Amp(0), Amp(0), Amp(1)};
    return op;
  }
  const double c = std::cos(theta * h / 2), s = std::sin(theta * h / 2);
  const double nx = hx / h, ny = hy / h, nz = hz / h;
  // i s (n.sigma) with n.sigma = [[nz, nx - i ny], [nx + i ny, -nz]]
  op.m[0] = Amp(c, s * nz);
  op.m[1] = Amp(s * ny, s * nx);
  op.m[2] = Amp(-s * ny, s * nx);
  op.m[3] = Amp(c, -s * nz);
  return op;
}

Op Then(const Op& earlier, const Op& later) {
  Op op = earlier;
  const auto& f = later.m;
  const auto& m = earlier.m;
  op.m = {f[0] * m[0] + f[1] * m[2], f[0] * m[1] + f[1] * m[3],
          f[2] * m[0] + f[3] * m[2], f[2] * m[1] + f[3] * m[3],
          Amp(), Amp(), Amp(), Amp()};
  return op;
}

Op PairFactor(int bitA, int bitB, double jx, double jy, double jz, double theta) {
  Op op;
  op.kind = Op::Pair;
  op.a = bitA;
  op.b = bitB;
  // On {|00>, |11>}: H_p = -(Jz I + (Jx - Jy) X)/4; on {|01>, |10>}: -(-Jz I + (Jx + Jy) X)/4.
  // exp(-i theta H_p) = exp(i theta d/4) [cos(theta o/4) I + i sin(theta o/4) X] per block.
  auto block = [&](double diag, double off, Amp* m) {
    const Amp phase = std::polar(1.0, theta * diag / 4);
    const double c = std::cos(theta * off / 4), s = std::sin(theta * off / 4);
    m[0] = phase * c;
    m[1] = phase * Amp(0, s);
    m[2] = phase * Amp(0, s);
    m[3] = phase * c;
  };
  block(jz, jx - jy, &op.m[0]);
  block(-jz, jx + jy, &op.m[4]);
  return op;
}

namespace {

// m0 x + m1 y written out: the operator of std::complex also checks every product for NaN.
inline Amp Combine(const Amp& m0, const Amp& x, const Amp& m1, const Amp& y) {
  return {m0.real() * x.real() - m0.imag() * x.imag() + (m1.real() * y.real() - m1.imag() * y.imag()),
          m0.real() * x.imag() + m0.imag() * x.real() + (m1.real() * y.imag() + m1.imag() * y.real())};
}

} // namespace

void ApplyDense(std::vector<Amp>& psi, const Op& op) {
  const std::size_t n = psi.size();
  const auto& m = op.m;
  if (op.kind == Op::Single) {
    const std::size_t s = std::size_t{1} << op.a;
    for (std::size_t i = 0; i < n; ++i) {
      if (i & s) continue;
      const Amp x = psi[i], y = psi[i | s];
      psi[i] = Combine(m[0], x, m[1], y);
      psi[i | s] = Combine(m[2], x, m[3], y);
    }
    return;
  }
  const std::size_t sa = std::size_t{1} << op.a, sb = std::size_t{1} << op.b;
  for (std::size_t i = 0; i < n; ++i) {
    if (i & (sa | sb)) continue;
    const std::size_t i00 = i, i11 = i | sa | sb, i01 = i | sa, i10 = i | sb;
    const Amp p = psi[i00], q = psi[i11];
    psi[i00] = Combine(m[0], p, m[1], q);
    psi[i11] = Combine(m[2], p, m[3], q);
    const Amp u = psi[i01], v = psi[i10];
    psi[i01] = Combine(m[4], u, m[5], v);
    psi[i10] = Combine(m[6], u, m[7], v);
  }
}

} // namespace orvex::engine
