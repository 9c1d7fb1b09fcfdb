// Copying the register's amplitudes out of a run context, for callers outside the library.
#pragma once

#include <cstdint>

namespace orvex::engine {

class Simulator;

// The contract of kv3state (engine/kv3dll.h): 2^N (re, im) pairs into `amplitudes` when
// 2^N <= capacity, returning 2^N; 0 without a run context; -(2^N) (INT32_MIN for N >= 31)
// when the capacity is too small. *qubits = N (0 without a context).
std::int32_t CopyState(const Simulator& simulator, std::int32_t capacity, double* amplitudes,
                       std::int32_t* qubits);

} // namespace orvex::engine
