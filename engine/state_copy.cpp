#include "engine/state_copy.h"

#include <climits>

#include "engine/simulator.h"

namespace orvex::engine {

std::int32_t CopyState(const Simulator& simulator, std::int32_t capacity, double* amplitudes,
                       std::int32_t* qubits) {
  const StateVector* psi = simulator.State();
  if (qubits) *qubits = psi ? psi->Qubits() : 0;
  if (!psi) return 0;
  if (psi->Qubits() >= 31) return INT32_MIN;
  const std::uint64_t size = psi->Size();
  if (capacity < 0 || static_cast<std::uint64_t>(capacity) < size || !amplitudes)
    return -static_cast<std::int32_t>(size);
  const double* re = psi->Re();
  const double* im = psi->Im();
  for (std::uint64_t i = 0; i < size; ++i) {
    amplitudes[2 * i] = re[i];
    amplitudes[2 * i + 1] = im[i];
  }
  return static_cast<std::int32_t>(size);
}

} // namespace orvex::engine
