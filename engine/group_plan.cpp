// The dense k-qubit kernel, cut into pieces of fixed index ranges.
#include "engine/group_plan.h"

#include <algorithm>
#include <utility>

#include "engine/parallel.h"

namespace orvex::engine {

namespace {
using u64 = std::uint64_t;
// Rows (sets of 2^k amplitudes that the matrix mixes) per task, and complex multiply-adds
// per piece: 2^23 of them are some 10 ms of one core, a fraction of a call's budget.
constexpr int kChunkBits = 14;
constexpr int kPieceWorkBits = 23;
} // namespace

GroupPlan::GroupPlan(int qubits, std::vector<int> bits, std::vector<Amp> matrix)
    : bits_(std::move(bits)), matrix_(std::move(matrix)) {
  const int k = static_cast<int>(bits_.size());
  const u64 dim = u64{1} << k;
  sorted_ = bits_;
  std::sort(sorted_.begin(), sorted_.end());
  offset_.assign(dim, 0);
  for (u64 l = 0; l < dim; ++l)
    for (int j = 0; j < k; ++j)
      if (l >> j & 1) offset_[l] |= u64{1} << bits_[j];
  const int freeBits = qubits - k;
  chunkBits_ = std::min(kChunkBits, freeBits);
  tasks_ = u64{1} << (freeBits - chunkBits_);
  // A row costs dim^2 multiply-adds.
  const int taskWorkBits = chunkBits_ + 2 * k;
  tasksPerPiece_ = std::min(tasks_, u64{1} << std::max(0, kPieceWorkBits - taskWorkBits));
  pieces_ = static_cast<std::size_t>((tasks_ + tasksPerPiece_ - 1) / tasksPerPiece_);
}

template <class For>
void GroupPlan::ApplyPiece(const For& policy, StateVector& psi, std::size_t piece) const {
  double* re = psi.Re();
  double* im = psi.Im();
  const u64 dim = offset_.size();
  const u64 first = static_cast<u64>(piece) * tasksPerPiece_;
  const u64 count = std::min(tasksPerPiece_, tasks_ - first);
  const int chunkBits = chunkBits_;
  policy.Run(count, [&](u64 t) {
    double xr[64], xi[64];
    const u64 c = first + t;
    const u64 begin = c << chunkBits, end = (c + 1) << chunkBits;
    for (u64 r = begin; r < end; ++r) {
      // r with a zero inserted at every group bit, lowest first.
      u64 base = r;
      for (int b : sorted_) base = ((base >> b) << (b + 1)) | (base & ((u64{1} << b) - 1));
      for (u64 l = 0; l < dim; ++l) {
        xr[l] = re[base | offset_[l]];
        xi[l] = im[base | offset_[l]];
      }
      for (u64 row = 0; row < dim; ++row) {
        double yr = 0, yi = 0;
        for (u64 col = 0; col < dim; ++col) {
          const Amp m = matrix_[col * dim + row];
          yr += m.real() * xr[col] - m.imag() * xi[col];
          yi += m.real() * xi[col] + m.imag() * xr[col];
        }
        re[base | offset_[row]] = yr;
        im[base | offset_[row]] = yi;
      }
    }
  });
}

template void GroupPlan::ApplyPiece<ParallelFor>(const ParallelFor&, StateVector&,
                                                 std::size_t) const;
template void GroupPlan::ApplyPiece<SequentialFor>(const SequentialFor&, StateVector&,
                                                   std::size_t) const;

} // namespace orvex::engine
