// The initial states an MI can ask for: all up, all down, random, ground state. The large
// ones are prepared in pieces, so that a caller with a time budget can stop between two.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/mi_file.h"
#include "engine/parallel.h"
#include "engine/state_vector.h"

namespace orvex::engine {

// A state written in pieces of fixed index ranges: applying the pieces in order, in one call
// or spread over many, on any number of threads, gives the same bits.
class StatePreparation {
public:
  StatePreparation() = default;
  // Every amplitude 0 but amplitude `index`, which is 1 (|0...0> is index 0).
  static StatePreparation Basis(int qubits, std::uint64_t index);
  // The random state of `seed` (SetRandom).
  static StatePreparation Random(int qubits, std::uint64_t seed);

  std::size_t Pieces() const { return pieces_; }
  // Pieces must come in order: the random state's second half scales by the norm that its
  // first half summed.
  void ApplyPiece(const ParallelFor& policy, StateVector& psi, std::size_t piece);
  void Apply(const ParallelFor& policy, StateVector& psi) {
    for (std::size_t p = 0; p < pieces_; ++p) ApplyPiece(policy, psi, p);
  }

private:
  template <class F>
  void ForEachTask(const ParallelFor& policy, std::size_t slice, const F& f) const;
  void Zero(const ParallelFor& policy, StateVector& psi, std::size_t slice);
  void Draw(const ParallelFor& policy, StateVector& psi, std::size_t slice);
  void Scale(const ParallelFor& policy, StateVector& psi, std::size_t slice);

  bool random_ = false;
  std::uint64_t value_ = 0;  // the basis index or the seed
  std::uint64_t size_ = 0;
  std::size_t slices_ = 0, pieces_ = 0;
  std::vector<double> partial_;  // random: |amplitude|^2 summed per task, in task order
  double scale_ = 1;
};

void SetSpinUp(const ParallelFor& policy, StateVector& psi);
void SetSpinDown(const ParallelFor& policy, StateVector& psi);

// Independent complex Gaussian amplitudes, normalised. Amplitude i takes the (i+1)-th
// output pair of a splitmix64 sequence started at `seed` and goes through Box-Muller, so
// the vector depends on the seed alone (not on threads or platform libraries beyond the
// last bit of log, sin and cos).
void SetRandom(const ParallelFor& policy, StateVector& psi, std::uint64_t seed);

// Lowest eigenvector of the MI's H(0) on psi.Qubits() qubits (at most 8), phase fixed so the
// largest-magnitude amplitude is real and positive.
void SetGroundState(StateVector& psi, const MiFile& mi);

} // namespace orvex::engine
