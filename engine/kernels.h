// State-vector kernels, each templated on a threading policy (ParallelFor or SequentialFor).
//
// ApplyLiteral sweeps the whole vector once per factor: the plain reading of the product
// formula, kept as the reference. ApplyOps does the same products with far fewer sweeps:
// a group of factors whose qubits fit in one tile of 2^kTileBits amplitudes is applied tile
// by tile while the tile sits in cache. Each tile is a subspace that all factors of the
// group map to itself. A group may take a factor from further down the list once every
// earlier factor on its qubits is applied (factors on different qubits commute), so the
// product is the same, up to rounding, as the factors taken one by one.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "engine/gates.h"
#include "engine/state_vector.h"

namespace orvex::engine {

inline constexpr int kTileBits = 14;
// A tile size left to the plan: kTileBits, or up to three bits more (up to 2 MiB, a core's
// second-level cache) where that saves whole sweeps.
inline constexpr int kChosenTile = 0;
// Tiles of the measurement, which only reads: 2^16 amplitudes (1 MiB) stay in a core's cache.
inline constexpr int kMeasureTileBits = 16;

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
              int tileBits = kChosenTile);

// All 3N expectation values and the norm in one parallel loop of fixed tasks: each task
// sums its own tile with independent partial sums, and the tasks' sums are added in task
// order, so the result has the same bits whatever the number of threads. A register larger
// than one tile is read twice (up to 26 qubits): in place as contiguous tiles for the low
// qubits, and as tiles of rows, one row per value of the high qubits, read in place or, when
// there are many rows, gathered (a pair of amplitudes that differ in a high qubit lies in no
// contiguous tile).
template <class For>
Expectations Measure(const For& policy, const StateVector& psi, int tileBits = kMeasureTileBits);

// Measure in pieces: each piece takes a fixed range of its tasks and keeps every task's sums
// apart until Result adds them in task order, so the values have Measure's bits however the
// pieces are spread over calls and threads. Pieces may come in any order, but all of them on
// the same state.
class Measurement {
public:
  Measurement();
  explicit Measurement(int qubits, int tileBits = kMeasureTileBits);
  ~Measurement();
  Measurement(Measurement&&) noexcept;
  Measurement& operator=(Measurement&&) noexcept;

  std::size_t Pieces() const;
  template <class For>
  void MeasurePiece(const For& policy, const StateVector& psi, std::size_t piece);
  Expectations Result() const;

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A factor list prepared for application in pieces: the tiled sweeps of ApplyOps cut into
// slices of tiles (or, for a register that fits one tile, runs of factors). Applying the
// pieces in order, in one call or spread over many, gives exactly ApplyOps' result, so a
// long application can stop between two pieces and go on later.
class OpsPlan {
public:
  OpsPlan() = default;
  OpsPlan(int qubits, std::vector<Op> ops, int tileBits = kChosenTile);
  // Ends the plan. A plan of one tile hands back its factor list, emptied, so that the next
  // list can grow in memory already in use; any other gives an empty vector.
  std::vector<Op> TakeOps();
  std::size_t Pieces() const;
  template <class For>
  void ApplyPiece(const For& policy, StateVector& psi, std::size_t piece) const;

private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

// Number of full sweeps ApplyOps makes for `ops` on n qubits (the benchmark's byte count).
int SweepCount(int qubits, const std::vector<Op>& ops, int tileBits = kChosenTile);

} // namespace orvex::engine
