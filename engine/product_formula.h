// The product formula of one MI: the factors that evolve the state over an interval of its
// sub-steps (the integrator's stages, merged field halves and pair factors, idle qubits and
// small coupled groups folded over a reported interval), applied in pieces that a caller may
// stop between and resume.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/gates.h"
#include "engine/group_plan.h"
#include "engine/kernels.h"
#include "engine/mi_file.h"
#include "engine/parallel.h"
#include "engine/state_vector.h"

namespace orvex::engine {

// Integrators, as flags word 1 names them at a start.
inline constexpr int kSecondOrder = 0;
inline constexpr int kFourthOrder = 4;

// The factors of `count` sub-steps of `mi` from sub-step l of main step k, in the product's
// order. Without `merge`, the literal formula: per stage F(t, h/2), the pairs forward and
// backward, F(t, h/2), each term its own factor. With it, a factor on qubits that nothing has
// touched since their last factor of the same kind is multiplied into that one (the product
// is unchanged).
std::vector<Op> SubStepFactors(const MiFile& mi, int integrator, std::int64_t k,
                               std::int64_t l, std::int64_t count, bool merge);

// A factor list under construction, merging as SubStepFactors describes.
class FactorList {
public:
  explicit FactorList(bool merge) : merge_(merge) { last_.fill(-1); }
  void Field(int bit, double hx, double hy, double hz, double angle);
  void Pair(const Coupling& c, double angle);
  std::vector<Op>& Ops() { return ops_; }
  bool Empty() const { return ops_.empty(); }
  // Starts again from no factors (keeping the memory); nothing is merged into the factors
  // taken before.
  void Clear();

private:
  struct Source {
    bool pure;    // still the closed form of (v, angle)
    double v[3];  // the field vector or the pair's couplings
    double angle;
  };
  void Push(const Op& op, const Source& s, int a, int b);

  bool merge_;
  std::vector<Op> ops_;
  std::vector<Source> sources_;
  std::array<int, kMaxQubits> last_;
};

class ProductFormula {
public:
  // The formula of `mi` on a register of `qubits` qubits. `literal`: the reference, neither
  // merged nor folded, one full sweep per factor. `batchLimit` > 0 caps the sub-steps of a
  // batch.
  ProductFormula(const MiFile& mi, int integrator, int qubits, bool literal,
                 std::int64_t batchLimit);

  const MiFile& Mi() const { return *mi_; }
  // Sub-steps per batch: long batches share sweeps between sub-steps; each main step is cut
  // at multiples of this, whatever the calls, so a run has the same bits however it returns.
  std::int64_t Batch() const { return batch_; }

  // Prepares the factors of `count` sub-steps from sub-step l of main step k as the open
  // batch. `endsInterval`: the batch ends a reported interval, so the folded evolution is
  // applied with it. Returns whether the batch changes the state or its folded evolution.
  bool Open(std::int64_t k, std::int64_t l, std::int64_t count, bool endsInterval);
  bool IsOpen() const { return open_; }
  // Applies the open batch's next piece; true when that was its last and the batch is closed.
  bool ApplyNext(const ParallelFor& policy, StateVector& psi);
  // Applies the next piece of the folded evolution that is still pending, so that once it
  // returns true the state is the literal product's at the last sub-step done. Call it only
  // between batches; it opens a batch of its own, which it closes with its last piece.
  bool FlushNext(const ParallelFor& policy, StateVector& psi);

private:
  // A group of qubits coupled only among themselves, evolved in its own 2^k space.
  struct Group {
    std::vector<int> bits;               // state bits, ascending; local bit j = bits[j]
    std::vector<std::size_t> couplings;  // indices into the MI's couplings
    std::vector<Amp> pending, step;      // column-major; step: one sub-step's (static fields)
    bool dirty = false;
  };
  Coupling Local(const Coupling& p, int g) const;
  int LocalBit(int g, int bit) const;
  void FoldGroups(std::int64_t count, std::vector<FactorList>& groupLists);
  void FlushGroupList(int g, FactorList& list);
  std::size_t Pieces() const;
  // The groups' matrices gathered since they were last applied become plans, and the
  // groups start again from the identity.
  void PlanPendingGroups();

  const MiFile* mi_;
  int integrator_;
  int qubits_;
  bool literal_;
  std::int64_t batch_ = 1;
  // Qubits (bit q - 1) with a field that no coupling touches: each evolves on its own, its
  // rotations multiplied into `idle_` (one 2x2 per qubit) over a reported interval.
  std::uint32_t idleQubits_ = 0;
  FactorList idle_{true};
  std::vector<Group> groups_;
  std::array<int, kMaxQubits> groupOf_{};  // group index of bit b, or -1

  // The open batch: the groups' matrices first, then the other factors.
  bool open_ = false;
  std::vector<GroupPlan> groupPlans_;
  OpsPlan plan_;
  FactorList list_;  // the batch's factors on the state; its memory is kept from batch to batch
  std::vector<Op> literalOps_;  // the reference: one full sweep per factor
  std::size_t next_ = 0, pieces_ = 0;
};

} // namespace orvex::engine
