// Allocation of the state arrays (64-byte aligned, no value initialisation by new).
#include "engine/state_vector.h"

#include <cstdlib>
#include <cstring>
#include <new>


namespace orvex::engine {

void StateVector::Free::operator()(double* p) const { std::free(p); }

bool StateVector::Allocate(int qubits) {
  if (!AllocateUnset(qubits)) return false;
  Clear();
  re_[0] = 1.0;
  return true;
}

bool StateVector::AllocateUnset(int qubits) {
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
  return true;
}

void StateVector::Release() {
  re_.reset();
  im_.reset();
  qubits_ = 0;
  size_ = 0;
}

void StateVector::Clear() {
  if (size_ == 0) return;
  std::memset(re_.get(), 0, size_ * sizeof(double));
  std::memset(im_.get(), 0, size_ * sizeof(double));
}

} // namespace orvex::engine
