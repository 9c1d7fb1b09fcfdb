// Parameter sweeps: the --vary ranges, the grid of points they span, and the edits of an MI for one point.
#include "run/sweep.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "mi/mi_format.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"
#include "workspace/workspace.h"

namespace orvex {

namespace {

constexpr const char* kFieldNames[12] = {"HX0",     "HX1",   "OMEGA_X", "HY0",   "HY1",   "OMEGA_Y",
                                         "HZ0",     "HZ1",   "OMEGA_Z", "PHI_X", "PHI_Y", "PHI_Z"};

bool Number(const std::string& text, double& v) {
  char* end = nullptr;
  v = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && std::isfinite(v);
}

bool Qubit(const std::string& text, int& q) {
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || v < 1 || v > kMaxQubits) return false;
  q = static_cast<int>(v);
  return true;
}

bool ParseParameter(const std::string& text, SweepParameter& p) {
  const std::string u = Upper(text);
  if (u == "TIMESTEP") return p.kind = SweepParameter::TimeStep, true;
  if (u == "FIELDSTEPS") return p.kind = SweepParameter::FieldSteps, true;
  if (u == "INTERMEDIATESTEPS") return p.kind = SweepParameter::IntermediateSteps, true;
  const std::size_t at = u.find('@');
  if (at == std::string::npos) return false;
  const std::string name = u.substr(0, at), where = u.substr(at + 1);
  for (int k = 0; k < 12; ++k)
    if (name == kFieldNames[k]) {
      p.kind = SweepParameter::Field;
      p.index = k;
      return Qubit(where, p.qubit);
    }
  if (name != "JX" && name != "JY" && name != "JZ") return false;
  p.kind = SweepParameter::Coupling;
  p.index = name[1] - 'X';
  const std::size_t dash = where.find('-');
  if (dash == std::string::npos || !Qubit(where.substr(0, dash), p.qubit) ||
      !Qubit(where.substr(dash + 1), p.other) || p.qubit == p.other)
    return false;
  if (p.qubit > p.other) std::swap(p.qubit, p.other);
  return true;
}

} // namespace

double SweepAxis::Value(int i) const {
  if (count <= 1) return start;
  if (i == count - 1) return stop;
  return start + (stop - start) * static_cast<double>(i) / static_cast<double>(count - 1);
}

std::optional<SweepAxis> ParseSweepSpec(const std::string& spec, std::string& error) {
  SweepAxis axis;
  const std::size_t colon = spec.find(':'), equals = spec.find('=');
  std::vector<std::string> range;
  if (colon != std::string::npos && equals != std::string::npos && colon < equals) {
    std::size_t from = equals + 1;
    for (;;) {
      const std::size_t to = spec.find(':', from);
      range.push_back(spec.substr(from, to == std::string::npos ? std::string::npos : to - from));
      if (to == std::string::npos) break;
      from = to + 1;
    }
  }
  double count = 0;
  if (range.size() != 3 || colon == 0) {
    error = "--vary takes MI:PARAM=START:STOP:COUNT, not '" + spec + "'";
    return std::nullopt;
  }
  axis.mi = spec.substr(0, colon);
  const std::string parameter = spec.substr(colon + 1, equals - colon - 1);
  if (!ParseParameter(parameter, axis.parameter)) {
    error = "unknown parameter '" + parameter + "' in '" + spec +
            "' (Hx0@Q ... phi_z@Q, Jx@I-J, Jy@I-J, Jz@I-J with I, J from 1 to 32, TimeStep, "
            "FieldSteps, IntermediateSteps)";
    return std::nullopt;
  }
  if (!Number(range[0], axis.start) || !Number(range[1], axis.stop) || !Number(range[2], count) ||
      count < 1 || count > 1000000 || count != std::floor(count)) {
    error = "the range of '" + spec + "' must be START:STOP:COUNT with a whole COUNT of at least 1";
    return std::nullopt;
  }
  axis.count = static_cast<int>(count);
  return axis;
}

std::vector<std::vector<double>> SweepPoints(const std::vector<SweepAxis>& axes) {
  std::vector<std::vector<double>> points{{}};
  for (const SweepAxis& axis : axes) {
    std::vector<std::vector<double>> next;
    for (const auto& p : points)
      for (int i = 0; i < axis.count; ++i) {
        next.push_back(p);
        next.back().push_back(axis.Value(i));
      }
    points = std::move(next);
  }
  return points;
}

std::string EditMIText(const std::string& text, const std::string& source,
                       const SweepParameter& p, double value) {
  MicroInstruction mi;
  MIReadTrace trace;
  ParseMI(text, mi, source, &trace);
  mi.Name = source;
  int qubits = std::max(1, trace.maxQubit);
  auto count = [&](const char* what) {
    if (!(value >= 0 && value <= std::numeric_limits<std::int32_t>::max()) ||
        value != std::floor(value))
      throw RuntimeError(ErrorNumber::InvalidProcedureCall,
                         std::string("Invalid procedure call or argument: ") + what + " of " +
                             source + " cannot be " + NumText(value));
    return static_cast<std::int32_t>(value);
  };
  switch (p.kind) {
  case SweepParameter::Field:
    mi.Field(p.qubit, p.index) = value;
    qubits = std::max(qubits, p.qubit);
    break;
  case SweepParameter::Coupling:
    mi.J(p.qubit, p.other, p.index) = value;
    qubits = std::max(qubits, p.other);
    break;
  case SweepParameter::TimeStep:
    mi.TimeStep = value;
    mi.TimeStepInPi = 0;
    break;
  case SweepParameter::FieldSteps: mi.FieldSteps = count("the number of field steps"); break;
  case SweepParameter::IntermediateSteps:
    mi.IntermediateSteps = count("the number of intermediate steps");
    break;
  }
  // A random initial state keeps its seed: the writer makes the seed Int(rnd * 278332379) + 1,
  // so the middle of the seed's interval gives it back.
  double rnd = 0;
  const std::vector<std::string> lines = SplitLines(text);
  for (std::size_t n = 0; n + 1 < lines.size(); ++n) {
    const std::string u = Upper(Trim(lines[n]));
    if (u.empty() || u[0] == '!' || InitialStateNamed(u) != RandomState) continue;
    const double seed = MILeadingValue(lines[n + 1]);
    if (seed >= 1 && seed <= 278332379) rnd = (std::floor(seed) - 0.5) / 278332379;
  }
  return FormatMI(mi, qubits, rnd);
}

} // namespace orvex
