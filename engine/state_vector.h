// The register's state: 2^N complex amplitudes held as two aligned arrays (real parts and
// imaginary parts), so the kernels' loops run over plain doubles and vectorise.
#pragma once

#include <complex>
#include <cstdint>
#include <memory>

namespace orvex::engine {

class StateVector {
public:
  StateVector() = default;
  // Allocates 2^n amplitudes set to |0...0>; false (and an empty vector) when the memory
  // cannot be had.
  bool Allocate(int qubits);
  // The same without touching the amplitudes (their values are undefined until written), so
  // that a caller can prepare a large state in pieces.
  bool AllocateUnset(int qubits);
  void Release();

  int Qubits() const { return qubits_; }
  std::uint64_t Size() const { return size_; }
  bool Empty() const { return size_ == 0; }
  double* Re() { return re_.get(); }
  double* Im() { return im_.get(); }
  const double* Re() const { return re_.get(); }
  const double* Im() const { return im_.get(); }

  std::complex<double> Get(std::uint64_t i) const { return {re_[i], im_[i]}; }
  void Set(std::uint64_t i, std::complex<double> a) {
    re_[i] = a.real();
    im_[i] = a.imag();
  }
  // Sets every amplitude to 0.
  void Clear();
  // Bytes one amplitude array pair occupies: 16 * 2^n.
  static std::uint64_t BytesFor(int qubits) { return std::uint64_t{16} << qubits; }

private:
  struct Free {
    void operator()(double* p) const;
  };
  int qubits_ = 0;
  std::uint64_t size_ = 0;
  std::unique_ptr<double[], Free> re_;
  std::unique_ptr<double[], Free> im_;
};

} // namespace orvex::engine
