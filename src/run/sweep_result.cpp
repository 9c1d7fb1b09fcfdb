// Reading the sweep command's CSV, and the curves and grids drawn from it.
#include "run/sweep_result.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

#include "workspace/file_bytes.h"
#include "workspace/workspace.h"

namespace orvex {

namespace {

// The field parameters in the file's order, as a --vary spec spells them.
constexpr const char* kFieldParameterNames[12] = {"Hx0", "Hx1", "Omega_x", "Hy0",   "Hy1",   "Omega_y",
                                                  "Hz0", "Hz1", "Omega_z", "phi_x", "phi_y", "phi_z"};

std::vector<std::string> SplitFields(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t from = 0;
  for (;;) {
    const std::size_t comma = line.find(',', from);
    fields.push_back(line.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
    if (comma == std::string::npos) return fields;
    from = comma + 1;
  }
}

bool Finite(const std::string& text, double& v) {
  char* end = nullptr;
  v = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == '\0' && std::isfinite(v);
}

} // namespace

std::optional<SweepResult> ParseSweepCsv(const std::string& text, std::string& error) {
  const std::vector<std::string> lines = SplitLines(text);
  auto fail = [&](std::size_t n, const std::string& why) {
    error = "The sweep's output cannot be read: line " + std::to_string(n + 1) + " " + why + ": '" +
            (n < lines.size() ? lines[n].substr(0, 80) : std::string()) + "'";
    return std::nullopt;
  };
  if (lines.empty()) {
    error = "The sweep's output is empty.";
    return std::nullopt;
  }
  SweepResult result;
  if (lines[0] == "value1,qubit,Qx,Qy,Qz") result.axes = 1;
  else if (lines[0] == "value1,value2,qubit,Qx,Qy,Qz") result.axes = 2;
  else return fail(0, "is not the header value1[,value2],qubit,Qx,Qy,Qz");
  const std::size_t columns = static_cast<std::size_t>(result.axes) + 4;
  for (std::size_t n = 1; n < lines.size(); ++n) {
    if (lines[n].empty()) continue;
    const std::vector<std::string> f = SplitFields(lines[n]);
    if (f.size() != columns)
      return fail(n, "has " + std::to_string(f.size()) + " fields instead of " + std::to_string(columns));
    SweepRow row;
    for (int a = 0; a < result.axes; ++a)
      if (!Finite(f[static_cast<std::size_t>(a)], row.value[a]))
        return fail(n, "has a value that is not a number");
    double qubit = 0;
    const std::size_t qi = static_cast<std::size_t>(result.axes);
    if (!Finite(f[qi], qubit) || qubit != std::floor(qubit) || qubit < 1 || qubit > kMaxQubits)
      return fail(n, "has no qubit number from 1 to " + std::to_string(kMaxQubits));
    row.qubit = static_cast<int>(qubit);
    for (int c = 0; c < 3; ++c)
      if (!Finite(f[qi + 1 + static_cast<std::size_t>(c)], row.Q[c]))
        return fail(n, "has a Q that is not a number");
    result.qubits = std::max(result.qubits, row.qubit);
    result.rows.push_back(row);
  }
  if (result.rows.empty()) {
    error = "The sweep's output holds no points.";
    return std::nullopt;
  }
  return result;
}

std::vector<std::pair<double, double>> SweepCurve(const SweepResult& result, int qubit, int c) {
  std::vector<std::pair<double, double>> curve;
  for (const SweepRow& row : result.rows)
    if (row.qubit == qubit) curve.emplace_back(row.value[0], 1 - 2 * row.Q[c]);
  return curve;
}

SweepGrid SweepGridOf(const SweepResult& result, int qubit, int c) {
  SweepGrid grid;
  std::map<double, std::size_t> xs, ys;
  auto index = [](std::map<double, std::size_t>& seen, std::vector<double>& order, double v) {
    const auto [it, added] = seen.emplace(v, order.size());
    if (added) order.push_back(v);
    return it->second;
  };
  for (const SweepRow& row : result.rows) {
    index(xs, grid.x, row.value[0]);
    index(ys, grid.y, row.value[1]);
  }
  grid.sigma.assign(grid.x.size(), std::vector<double>(grid.y.size(), std::numeric_limits<double>::quiet_NaN()));
  for (const SweepRow& row : result.rows)
    if (row.qubit == qubit) grid.sigma[xs[row.value[0]]][ys[row.value[1]]] = 1 - 2 * row.Q[c];
  return grid;
}

std::string SweepParameterName(const SweepParameter& p) {
  switch (p.kind) {
  case SweepParameter::Field:
    return std::string(kFieldParameterNames[p.index]) + "@" + std::to_string(p.qubit);
  case SweepParameter::Coupling:
    return std::string("J") + static_cast<char>('x' + p.index) + "@" + std::to_string(p.qubit) + "-" +
           std::to_string(p.other);
  case SweepParameter::TimeStep: return "TimeStep";
  case SweepParameter::FieldSteps: return "FieldSteps";
  case SweepParameter::IntermediateSteps: return "IntermediateSteps";
  }
  return {};
}

} // namespace orvex
