// One micro instruction as the engine needs it, and the strict MI file parser.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine_error.h"

namespace orvex::engine {

inline constexpr int kMaxQubits = 32;
inline constexpr int kMaxGroundStateQubits = 8;

struct Coupling {
  int i = 0, j = 0;  // 1-based, i < j
  double jx = 0, jy = 0, jz = 0;
};

enum class InitialState { None, Ground, SpinUp, SpinDown, Random };

struct MiFile {
  std::string name;  // as the program names it
  std::string path;  // the file that was read
  // Twelve values per qubit in the file's order: Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y,
  // Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z. Index 0 is qubit 1.
  std::array<std::array<double, 12>, kMaxQubits> field{};
  std::vector<Coupling> couplings;  // summed per pair, ordered by (i, j)
  int maxQubit = 0;                 // largest qubit index named by a SPIN header or pair line
  std::int64_t fieldSteps = 0;      // main steps m
  std::int64_t intermediateSteps = 0;
  double timeStep = 0;  // tau as the value line gives it (already times 2 pi when asked)
  InitialState initial = InitialState::None;
  int initialLine = 0;
  std::uint64_t seed = 0;
  bool checkNorm = false;

  // Field vector of qubit q (1-based) at time t since the MI started.
  void FieldAt(int q, double t, double& hx, double& hy, double& hz) const;
  bool HasField(int q) const;
  // No oscillating part on any qubit: the fields do not depend on time.
  bool StaticFields() const;
};

// Parses `text` (the file's bytes) of the MI `name`; on a syntax fault returns the error
// with the file name and line.
EngineError ParseMi(const std::string& name, const std::string& text, MiFile& out);

} // namespace orvex::engine
