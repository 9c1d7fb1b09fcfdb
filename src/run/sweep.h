// Parameter sweeps: which value of which MI a sweep varies, the grid of its points, and the
// edit of an MI's text for one point (through the MI reader and writer, so the copy reads as
// any MI the editor writes). Qt-free; the command line runs the points.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvex {

struct SweepParameter {
  enum Kind { Field, Coupling, TimeStep, FieldSteps, IntermediateSteps } kind = Field;
  int index = 0;          // Field: 0..11 in the file's order; Coupling: 0 Jx, 1 Jy, 2 Jz
  int qubit = 0;          // Field: the qubit; Coupling: the lower qubit
  int other = 0;          // Coupling: the upper qubit
};

// One --vary: MI:PARAM=START:STOP:COUNT.
struct SweepAxis {
  std::string mi;          // the MI's name in the set, as given
  SweepParameter parameter;
  double start = 0, stop = 0;
  int count = 1;
  // Point i of count: start + i (stop - start) / (count - 1); start alone for one point.
  double Value(int i) const;
};

// Reads "MI:PARAM=START:STOP:COUNT"; PARAM is a field name with "@qubit" (Hx1@2), a coupling
// with "@i-j" (Jz@1-2, either order), TimeStep (radians), FieldSteps or IntermediateSteps
// (names without regard to case). nullopt with `error` set.
std::optional<SweepAxis> ParseSweepSpec(const std::string& spec, std::string& error);

// Every point of the grid, the first axis outermost: one value per axis.
std::vector<std::vector<double>> SweepPoints(const std::vector<SweepAxis>& axes);

// The MI text with `parameter` set to `value`, read by the MI reader and written back by the
// writer for the qubits the text names (or more, to reach the parameter's qubit). A step
// count must be a whole number from 0 to 2^31 - 1 and a time step is written in radians.
// Throws the reader's RuntimeError, or RuntimeError 5 (invalid procedure call) for a value the
// parameter cannot take.
std::string EditMIText(const std::string& text, const std::string& source,
                       const SweepParameter& parameter, double value);

} // namespace orvex
