// The initial states an MI can ask for: all up, all down, random, ground state.
#pragma once

#include <cstdint>

#include "engine/mi_file.h"
#include "engine/state_vector.h"

namespace orvex::engine {

void SetSpinUp(StateVector& psi);
void SetSpinDown(StateVector& psi);

// Independent complex Gaussian amplitudes, normalised. Amplitude i takes the (i+1)-th
// output pair of a splitmix64 sequence started at `seed` and goes through Box-Muller, so
// the vector depends on the seed alone (not on threads or platform libraries beyond the
// last bit of log, sin and cos).
void SetRandom(StateVector& psi, std::uint64_t seed);

// Lowest eigenvector of the MI's H(0) on psi.Qubits() qubits (at most 8), phase fixed so the
// largest-magnitude amplitude is real and positive.
void SetGroundState(StateVector& psi, const MiFile& mi);

} // namespace orvex::engine
