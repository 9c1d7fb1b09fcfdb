// One micro instruction as the engine needs it, read by the workbench's own MI reader so
// that an MI runs exactly as the MI editor shows it.
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
  std::vector<Coupling> couplings;  // the non-zero pairs i < j, ordered by (i, j)
  int maxQubit = 0;                 // largest qubit index named by a SPIN header or pair line
  std::int64_t fieldSteps = 0;      // main steps m
  std::int64_t intermediateSteps = 0;
  double timeStep = 0;  // tau in radians: the value line (already times 2 pi when asked)
  InitialState initial = InitialState::None;
  int initialLine = 0;
  std::uint64_t seed = 0;
  bool checkNorm = false;
  std::vector<std::string> warnings;  // lines the engine ignores, for the log

  // Field vector of qubit q (1-based) at time t since the MI started.
  void FieldAt(int q, double t, double& hx, double& hy, double& hz) const;
  bool HasField(int q) const;
  // No oscillating part on any qubit: the fields do not depend on time.
  bool StaticFields() const;
};

// Reads `text` (the file's bytes) of the MI `name` with the workbench's reader and takes
// from it what the engine needs. On top of the reader it refuses only what would leave the
// physics undefined: a value that is not finite, a negative step count, a qubit index beyond
// 32. An INITIAL STATE line counts only when it does not begin with "!" (a description may
// mention the words); the seed of a random state is the leading value of the line after it.
// A fault is returned with the file name, the line and the reader's reason.
EngineError ParseMi(const std::string& name, const std::string& text, MiFile& out);

// The same for the file at `path`, read whole within the workbench's size limit: a file that
// cannot be read is kMiMissing, one over the limit kMiTooLarge.
EngineError LoadMi(const std::string& name, const std::string& path, MiFile& out);

} // namespace orvex::engine
