// A dense matrix on a few qubits of the register (a folded group's evolution, or any k-qubit
// unitary), applied in pieces that a caller may stop between and resume.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/gates.h"
#include "engine/state_vector.h"

namespace orvex::engine {

// The 2^k x 2^k `matrix` (column-major: matrix[col * 2^k + row]) on the state bits `bits`
// (local bit j of the matrix's index is state bit bits[j]), k <= 6. Each piece takes a fixed
// range of the indices whose group bits are clear, about the same arithmetic whatever k, so
// one piece is short at every register size. Every amplitude sees the same sums in the same
// order however the pieces are spread over calls or threads.
class GroupPlan {
public:
  GroupPlan() = default;
  GroupPlan(int qubits, std::vector<int> bits, std::vector<Amp> matrix);

  std::size_t Pieces() const { return pieces_; }
  template <class For>
  void ApplyPiece(const For& policy, StateVector& psi, std::size_t piece) const;
  // All pieces in order.
  template <class For>
  void Apply(const For& policy, StateVector& psi) const {
    for (std::size_t p = 0; p < pieces_; ++p) ApplyPiece(policy, psi, p);
  }

private:
  std::vector<int> bits_, sorted_;
  std::vector<Amp> matrix_;
  std::vector<std::uint64_t> offset_;  // state index offset of each local index
  int chunkBits_ = 0;                  // rows of one task: 2^chunkBits_
  std::uint64_t tasksPerPiece_ = 1, tasks_ = 0;
  std::size_t pieces_ = 0;
};

} // namespace orvex::engine
