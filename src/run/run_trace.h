// A program's trace: the qubits' Q against program time over the current run, kept in
// Workspace::Traces per program slot. The run controller fills it (from the engine's trace
// records when the engine has them, else one point per engine call); the trace window, the
// spheres' trails and the CSV export read it. Qt-free.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "run/engine_library.h"
#include "workspace/workspace.h"

namespace orvex {

// At most this many points are kept per program; when full, every second point goes (the
// first and the newest always stay), so a long run keeps its whole span at half the density.
inline constexpr std::size_t kMaxTracePoints = 20000;

// Empties the trace (a start from idle, a reset).
void ClearTrace(ProgramTrace& trace);

// Appends one point: program time `time`, Q of qubits 1..n from x, y, z (index q - 1).
void AppendTracePoint(ProgramTrace& trace, double time, int n, const double* x, const double* y,
                      const double* z);

// Moves every pending record out of the engine (kv3trace) into the trace; returns the number
// moved (0 when the engine lacks the entry).
int DrainEngineTrace(const EngineExtras& engine, ProgramTrace& trace);

// The Bloch vector's length |r| = |(1 - 2Qx, 1 - 2Qy, 1 - 2Qz)|: 1 for a pure qubit, 0 for a
// fully mixed one.
double Purity(double qx, double qy, double qz);

// One curve of the trace: (time, value) per point for qubit q (1-based) and component c
// (0, 1, 2 = x, y, z; 3 = purity |r|); the value is Q, or <sigma> = 1 - 2Q when `sigma` (the
// purity is the same either way).
std::vector<std::pair<double, double>> TraceCurve(const ProgramTrace& trace, int qubit, int c,
                                                  bool sigma);

// The trace as CSV: the header "t,qubit,Qx,Qy,Qz", then one line per point and qubit, the
// numbers with %.15g; lines end with "\n".
std::string TraceCsv(const ProgramTrace& trace);

// One basis state of the populations view.
struct Population {
  std::uint32_t index = 0;  // b = sum of bit_q 2^(q-1)
  std::string label;        // its bits, qubit 1 first
  double probability = 0;
};
// The `count` most probable basis states of n qubits from 2^n amplitudes (re, im pairs),
// most probable first (ties by index).
std::vector<Population> LargestPopulations(const std::vector<double>& amplitudes, int n,
                                           std::size_t count = 32);

// The registers the populations view covers.
inline constexpr int kMaxPopulationQubits = 12;

// The current amplitudes from the engine (kv3state), or empty when the engine lacks the
// entry, has no run, or the register has more than kMaxPopulationQubits qubits; `qubits`
// receives N.
std::vector<double> EngineAmplitudes(const EngineExtras& engine, int& qubits);

} // namespace orvex
