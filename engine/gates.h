// The closed-form factors of the product formula: SU(2) rotations for the fields and the
// two-block unitaries of the Heisenberg pair terms.
#pragma once

#include <array>
#include <complex>
#include <vector>

namespace orvex::engine {

using Amp = std::complex<double>;

// One factor acting on one qubit (a 2x2 matrix, rows and columns |0>, |1>) or on a pair of
// qubits (two 2x2 blocks: on {|00>, |11>} and on {|01>, |10>}). Bits are 0-based
// (qubit q is bit q - 1).
struct Op {
  enum Kind { Single, Pair } kind = Single;
  int a = 0;  // bit of the qubit (Single) or of the lower qubit of the pair
  int b = 0;  // bit of the upper qubit (Pair only)
  // Single: m[0..3] = m00, m01, m10, m11.
  // Pair: m[0..3] = block on |00>, |11> (00-00, 00-11, 11-00, 11-11),
  //       m[4..7] = block on |01>, |10> (01-01, 01-10, 10-01, 10-10),
  //       where |01> has bit a set and bit b clear.
  std::array<Amp, 8> m{};
};

// exp(+i theta h.sigma/2) for a field vector h, in closed form:
// cos(theta|h|/2) I + i sin(theta|h|/2) (n.sigma).
Op FieldFactor(int bit, double hx, double hy, double hz, double theta);

// exp(-i theta H_p) with H_p = -(Jx sx sx + Jy sy sy + Jz sz sz)/4 on bits a < b.
Op PairFactor(int bitA, int bitB, double jx, double jy, double jz, double theta);

// The single-qubit factor `later` after `earlier` on the same bit: their product
// later * earlier, as one factor.
Op Then(const Op& earlier, const Op& later);

// Applies `op` to a plain dense vector of 2^n amplitudes (reference and small-state use).
void ApplyDense(std::vector<Amp>& psi, const Op& op);

} // namespace orvex::engine
