// State-vector kernels, each templated on a threading policy (ParallelFor or SequentialFor).
//
// ApplyLiteral sweeps the whole vector once per factor: the plain reading of the product
// formula, kept as the reference. ApplyOps does the same products with far fewer sweeps:
// consecutive factors whose qubits fit in one tile of 2^kTileBits amplitudes are applied
// tile by tile while the tile sits in cache. Each tile is a subspace that all factors of the
// group map to itself, so every amplitude sees the same operations in the same order.
#pragma once

#include <vector>

#include "engine/gates.h"
#include "engine/state_vector.h"

namespace orvex::engine {

inline constexpr int kTileBits = 14;

// <sigma_x>, <sigma_y>, <sigma_z> of one qubit.
struct Bloch {
  double x = 0, y = 0, z = 0;
};

struct Expectations {
  std::vector<Bloch> qubits;  // index q - 1
  double norm2 = 0;           // sum of |amplitude|^2
};

template <class For>
void ApplyLiteral(const For& policy, StateVector& psi, const Op& op);

template <class For>
void ApplyOps(const For& policy, StateVector& psi, const std::vector<Op>& ops,
              int tileBits = kTileBits);

template <class For>
Expectations Measure(const For& policy, const StateVector& psi, int tileBits = kTileBits);

// Number of full sweeps ApplyOps makes for `ops` on n qubits (the benchmark's byte count).
int SweepCount(int qubits, const std::vector<Op>& ops, int tileBits = kTileBits);

} // namespace orvex::engine
