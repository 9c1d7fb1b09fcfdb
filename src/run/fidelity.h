// Gate fidelity of a pulse: the map a program performs on a few chosen qubits (the others
// starting in |0>), compared with an ideal gate. Pure linear algebra on small dense matrices;
// the command line obtains the map from the engine and hands it here.
//
// Index convention of every matrix here: the qubit listed first is the most significant bit,
// so with qubits "1,2" the index 2 (binary 10) is qubit 1 in |1> and qubit 2 in |0>, the way
// the bit string "q1 q2" reads from left to right (CNOT on 1,2: control 1, target 2).
#pragma once

#include <complex>
#include <optional>
#include <string>
#include <vector>

namespace orvex {

using Complex = std::complex<double>;

// A d x d matrix, row-major.
struct GateMatrix {
  int dim = 0;
  std::vector<Complex> a;
  GateMatrix() = default;
  explicit GateMatrix(int d) : dim(d), a(static_cast<std::size_t>(d) * d) {}
  Complex& operator()(int r, int c) { return a[static_cast<std::size_t>(r) * dim + c]; }
  Complex operator()(int r, int c) const { return a[static_cast<std::size_t>(r) * dim + c]; }
};

// The ideal gate `name` (I X Y Z H S T SX RX RY RZ on one qubit, CNOT CZ SWAP ISWAP SQRTSWAP
// CPHASE on two; letter case ignored) for `qubits` chosen qubits: a one-qubit gate acts on
// each of them (a tensor power), a two-qubit gate needs exactly two. RX, RY, RZ are
// exp(-i angle sigma/2); CPHASE puts exp(i angle) on |11>. nullopt with `error` set when the
// name or the qubit count does not fit.
std::optional<GateMatrix> TargetGate(const std::string& name, double angle, int qubits,
                                     std::string& error);

// Average gate fidelity (Tr(M^+ M) + |Tr(U^+ M)|^2) / (d (d + 1)) and leakage 1 - Tr(M^+ M)/d.
double AverageGateFidelity(const GateMatrix& m, const GateMatrix& u);
double Leakage(const GateMatrix& m);

// Virtual z rotations around the map: diag(exp(-i phi_q sigma_z / 2)) on each qubit before
// (phases[0..k-1]) and after (phases[k..2k-1]) the map.
GateMatrix WithZPhases(const GateMatrix& m, const std::vector<double>& phases);

struct ZPhaseFit {
  std::vector<double> phases;  // before (k), then after (k), each in (-pi, pi]
  double fidelity = 0;
};

// The z phases that maximise the fidelity of WithZPhases(m, phases) against `u` (a
// Nelder-Mead search from several starts, polished to convergence).
ZPhaseFit OptimiseZPhases(const GateMatrix& m, const GateMatrix& u);

} // namespace orvex
