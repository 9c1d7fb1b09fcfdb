// The output of `orvex-cli sweep` read back: the header value1[,value2],qubit,Qx,Qy,Qz and one
// row per point and qubit, the first parameter outermost. The sweep window runs the command
// and draws what this reads; Qt-free.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "run/sweep.h"

namespace orvex {

struct SweepRow {
  double value[2] = {0, 0};  // the parameters' values (value[1] only for two parameters)
  int qubit = 0;
  double Q[3] = {0, 0, 0};   // Qx, Qy, Qz
};

struct SweepResult {
  int axes = 0;    // 1 or 2
  int qubits = 0;  // the largest qubit number of the rows
  std::vector<SweepRow> rows;
};

// Reads the whole output. nullopt with `error` naming the line and what is wrong with it.
std::optional<SweepResult> ParseSweepCsv(const std::string& text, std::string& error);

// <sigma> = 1 - 2 Q of component c (0 x, 1 y, 2 z) of `qubit` against the first value, in
// row order.
std::vector<std::pair<double, double>> SweepCurve(const SweepResult& result, int qubit, int c);

// A two-parameter sweep as a grid: the distinct first values (x) and second values (y) in the
// order they come, and <sigma> of component c of `qubit` at sigma[ix][iy] (NaN where no row).
struct SweepGrid {
  std::vector<double> x, y;
  std::vector<std::vector<double>> sigma;
};
SweepGrid SweepGridOf(const SweepResult& result, int qubit, int c);

// The PARAM of a --vary spec for `parameter` (Omega_x@1, Jx@1-2, TimeStep, ...), read back
// as the same parameter by ParseSweepSpec.
std::string SweepParameterName(const SweepParameter& parameter);

} // namespace orvex
