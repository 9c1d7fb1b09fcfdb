// Allocation of the state arrays (64-byte aligned, no value initialisation by new).
#include "engine/state_vector.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "engine/parallel.h"

namespace orvex::engine {

void StateVector::Free::operator()(double* p) const { std::free(p); }

bool StateVector::Allocate(int qubits) {
  Release();
  if (qubits < 0 || qubits > 40) return false;
  const std::uint64_t size = std::uint64_t{1} << qubits;
  const std::size_t bytes = static_cast<std::size_t>(size * sizeof(double));
  const std::size_t rounded = (bytes + 63) / 64 * 64;
  double* re = static_cast<double*>(std::aligned_alloc(64, rounded));
  if (!re) return false;
  double* im = static_cast<double*>(std::aligned_alloc(64, rounded));
  if (!im) {
    std::free(re);
    return false;
  }
  re_.reset(re);
  im_.reset(im);
  qubits_ = qubits;
  size_ = size;
  Clear();
  re_[0] = 1.0;
  return true;
}

void StateVector::Release() {
  re_.reset();
  im_.reset();
  qubits_ = 0;
  size_ = 0;
}

void StateVector::Clear() {
  constexpr std::uint64_t kChunk = std::uint64_t{1} << 16;
  const std::uint64_t chunks = (size_ + kChunk - 1) / kChunk;
  double* re = re_.get();
  double* im = im_.get();
  const std::uint64_t size = size_;
  auto clear = [&](std::uint64_t c) {
    const std::uint64_t begin = c * kChunk;
    const std::uint64_t len = begin + kChunk > size ? size - begin : kChunk;
    std::memset(re + begin, 0, len * sizeof(double));
    std::memset(im + begin, 0, len * sizeof(double));
  };
  if (chunks > 1)
    ParallelFor().Run(chunks, clear);
  else if (chunks == 1)
    clear(0);
}

} // namespace orvex::engine
