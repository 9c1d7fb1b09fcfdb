// The workbench's side of the fidelity command: arguments out, printed results in.
#include "run/fidelity_job.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

const std::vector<FidelityTarget>& FidelityTargets() {
  static const std::vector<FidelityTarget> targets = {
      {"I", "I", false, 0},
      {"X", "X", false, 0},
      {"Y", "Y", false, 0},
      {"Z", "Z", false, 0},
      {"H", "H", false, 0},
      {"S", "S", false, 0},
      {"T", "T", false, 0},
      {"SX", "\u221AX", false, 0},
      {"RX", "Rx(\u03B8)", true, 0},
      {"RY", "Ry(\u03B8)", true, 0},
      {"RZ", "Rz(\u03B8)", true, 0},
      {"CNOT", "CNOT", false, 2},
      {"CZ", "CZ", false, 2},
      {"SWAP", "SWAP", false, 2},
      {"ISWAP", "iSWAP", false, 2},
      {"SQRTSWAP", "\u221ASWAP", false, 2},
      {"CPHASE", "CPhase(\u03C6)", true, 2},
  };
  return targets;
}

std::vector<std::string> FidelityArguments(const FidelityRequest& r) {
  std::string qubits;
  for (int q : r.qubits) qubits += (qubits.empty() ? "" : ",") + std::to_string(q);
  std::vector<std::string> args = {"fidelity", r.what,    "--set",    r.set,    "--home",
                                   r.home,     "--qubits", qubits,    "--target", r.target};
  const auto found = std::find_if(FidelityTargets().begin(), FidelityTargets().end(),
                                  [&](const FidelityTarget& t) { return r.target == t.name; });
  if (found != FidelityTargets().end() && found->takesAngle) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.17g", r.angle);
    args.insert(args.end(), {"--angle", buffer});
  }
  if (r.zPhases) args.push_back("--z-phases");
  args.insert(args.end(), {"--order", r.order == 4 ? "4" : "2"});
  return args;
}

bool ParseQubitList(const std::string& text, int registerSize, std::vector<int>& qubits,
                    std::string& error) {
  qubits.clear();
  std::size_t from = 0;
  while (from <= text.size()) {
    const std::size_t to = std::min(text.find(',', from), text.size());
    const std::string part = Trim(text.substr(from, to - from));
    char* end = nullptr;
    const long q = std::strtol(part.c_str(), &end, 10);
    if (part.empty() || *end != '\0') {
      error = "Give the qubits as numbers separated by commas, for example 1,2.";
      return false;
    }
    if (q < 1 || q > registerSize) {
      error = "Qubit " + part + " is not in the register (qubits 1 to " +
              std::to_string(registerSize) + ").";
      return false;
    }
    if (std::find(qubits.begin(), qubits.end(), q) != qubits.end()) {
      error = "Qubit " + part + " is listed twice.";
      return false;
    }
    qubits.push_back(static_cast<int>(q));
    from = to + 1;
  }
  if (qubits.size() > 4) {
    error = "At most four qubits can be compared with a gate.";
    return false;
  }
  return true;
}

std::vector<int> QubitsActedOn(const MicroInstruction& mi, int registerSize) {
  const int n = std::clamp(registerSize, 1, kMaxQubits);
  std::vector<bool> acted(static_cast<std::size_t>(n) + 1, false);
  for (int q = 1; q <= n; ++q)
    for (int k = 0; k < 12; ++k)
      if (mi.Field(q, k) != 0) acted[static_cast<std::size_t>(q)] = true;
  for (int i = 1; i <= n; ++i)
    for (int j = i + 1; j <= n; ++j)
      for (int c = 0; c < 3; ++c)
        if (mi.J(i, j, c) != 0) acted[static_cast<std::size_t>(i)] = acted[static_cast<std::size_t>(j)] = true;
  std::vector<int> qubits;
  for (int q = 1; q <= n && qubits.size() < 4; ++q)
    if (acted[static_cast<std::size_t>(q)]) qubits.push_back(q);
  if (qubits.empty()) qubits.push_back(1);
  return qubits;
}

FidelitySubject FidelitySubjectForMI(const Workspace& ws, const std::string& name) {
  FidelitySubject s;
  const bool callable = Upper(name).ends_with(".MP");
  s.what = callable || Upper(name).ends_with(".MI") ? name : name + ".MI";
  s.title = (callable ? "program " : "MI ") + NameWithoutExtension(s.what);
  s.qubits = {1};
  for (int i = 1; i <= ws.MICount; ++i) {
    const MicroInstruction& mi = ws.MITable(i);
    if (mi.InUse && Upper(mi.Name) == Upper(s.what)) {
      s.qubits = QubitsActedOn(mi, ws.NumberOfQubits);
      break;
    }
  }
  return s;
}

FidelitySubject FidelitySubjectForProgram(const Workspace& ws, int slot) {
  FidelitySubject s;
  const ProgramSlot& p = ws.Program(slot);
  s.qubits = {1};
  s.title = "program " + (p.Caption.empty() ? FileNameOf(p.Name) : p.Caption);
  if (Lower(p.Name) == "new" || p.Changed) {
    s.programText = FormatProgram(p.Caption.empty() ? "New" : p.Caption, p.Rows);
    s.title += " (unsaved edits included)";
  } else {
    const std::string full = ws.AppDir + NormalizeSeparators(p.Name);
    s.what = ResolvePath(full).value_or(full);
  }
  return s;
}

namespace {

// "0.707107-0.000000i" as the command prints an amplitude.
bool ParseAmplitude(const std::string& token, Complex& a) {
  const char* s = token.c_str();
  char* end = nullptr;
  const double re = std::strtod(s, &end);
  if (end == s || (*end != '+' && *end != '-')) return false;
  const double sign = *end == '-' ? -1 : 1;
  const char* imStart = end + 1;
  const double im = std::strtod(imStart, &end);
  if (end == imStart || *end != 'i' || end[1] != '\0') return false;
  a = Complex(re, sign * im);
  return true;
}

bool ParseMatrixRow(const std::string& line, std::vector<Complex>& row) {
  std::istringstream in(line);
  std::string token;
  row.clear();
  while (in >> token) {
    Complex a;
    if (!ParseAmplitude(token, a)) return false;
    row.push_back(a);
  }
  return !row.empty();
}

} // namespace

std::optional<FidelityResult> ParseFidelityOutput(const std::string& text, std::string& error) {
  FidelityResult result;
  std::vector<std::vector<Complex>> rows;
  bool haveFidelity = false;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::vector<Complex> row;
    int qubit = 0;
    double phase = 0, f = 0, l = 0;
    char when[8] = {};
    if (std::sscanf(line.c_str(), "z phase %7s qubit %d: %lf", when, &qubit, &phase) == 3) {
      const std::string w = when;
      if (w == "before") result.phasesBefore.push_back(phase);
      else if (w == "after") result.phasesAfter.push_back(phase);
    } else if (std::sscanf(line.c_str(), "fidelity %lf, leakage %lf", &f, &l) == 2) {
      result.fidelity = f;
      result.leakage = l;
      haveFidelity = true;
    } else if (ParseMatrixRow(line, row)) {
      rows.push_back(std::move(row));
    }
  }
  const int d = static_cast<int>(rows.size());
  const bool powerOfTwo = d >= 1 && d <= 16 && (d & (d - 1)) == 0;
  const bool square = std::all_of(rows.begin(), rows.end(),
                                  [d](const std::vector<Complex>& r) { return static_cast<int>(r.size()) == d; });
  if (!powerOfTwo || !square) {
    error = "The fidelity command printed no map of a gate.";
    return std::nullopt;
  }
  if (!haveFidelity) {
    error = "The fidelity command printed no fidelity.";
    return std::nullopt;
  }
  result.map = GateMatrix(d);
  for (int r = 0; r < d; ++r)
    for (int c = 0; c < d; ++c) result.map(r, c) = rows[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)];
  return result;
}

} // namespace orvex
