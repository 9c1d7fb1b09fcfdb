// orvex-cli fidelity: the map a pulse performs on up to four chosen qubits (the others start
// in |0>) and its average gate fidelity and leakage against an ideal gate.
//
// Column j of the map is the state the program leaves from the j-th basis state of the chosen
// qubits, projected onto the others in |0>. The basis state is made by an MI of our own run
// first: a field along x on each qubit to flip, for a time of pi, which is exactly i sigma_x;
// its phase i per flipped qubit is divided out again.
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/scratch_run.h"
#include "mi/mi_format.h"
#include "run/fidelity.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex::cli {

namespace {

constexpr int kFailure = 2;
constexpr int kMaxChosen = 4;

int Fail(const std::string& message) {
  std::fprintf(stderr, "orvex-cli fidelity: %s\n", message.c_str());
  return kFailure;
}

bool ParseNumber(const std::string& text, double& v) {
  char* end = nullptr;
  v = std::strtod(text.c_str(), &end);
  return !text.empty() && end && *end == '\0' && std::isfinite(v);
}

// "1,2,3": distinct qubits 1..32, at most four.
bool ParseQubits(const std::string& text, std::vector<int>& qubits, std::string& error) {
  std::size_t from = 0;
  while (from <= text.size()) {
    const std::size_t to = std::min(text.find(',', from), text.size());
    const std::string part = text.substr(from, to - from);
    char* end = nullptr;
    const long q = std::strtol(part.c_str(), &end, 10);
    if (part.empty() || *end != '\0' || q < 1 || q > 32) {
      error = "--qubits takes qubit numbers 1 to 32 separated by commas, not '" + text + "'";
      return false;
    }
    for (int seen : qubits)
      if (seen == q) {
        error = "qubit " + part + " is listed twice in --qubits";
        return false;
      }
    qubits.push_back(static_cast<int>(q));
    from = to + 1;
  }
  if (qubits.size() > kMaxChosen) {
    error = "--qubits takes at most 4 qubits";
    return false;
  }
  return true;
}

std::string Amplitude(Complex a) {
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "%.6f%c%.6fi", a.real(), a.imag() < 0 ? '-' : '+',
                std::abs(a.imag()));
  return buffer;
}

} // namespace

int Fidelity(const Args& args) {
  std::string what, set, home, target, qubitText, error;
  double angle = 0;
  bool zPhases = false, haveAngle = false;
  int order = 2;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--z-phases") {
      zPhases = true;
    } else if (arg == "--set" || arg == "--home" || arg == "--qubits" || arg == "--target" ||
               arg == "--angle" || arg == "--order") {
      if (i + 1 >= args.size()) return Fail(arg + " needs a value");
      const std::string& v = args[++i];
      if (arg == "--set") set = v;
      else if (arg == "--home") home = v;
      else if (arg == "--qubits") qubitText = v;
      else if (arg == "--target") target = v;
      else if (arg == "--angle") {
        if (!ParseNumber(v, angle)) return Fail("--angle takes a number (radians), not '" + v + "'");
        haveAngle = true;
      } else if (v == "2" || v == "4") {
        order = v == "4" ? 4 : 2;
      } else {
        return Fail("--order takes 2 or 4, not '" + v + "'");
      }
    } else if (!arg.empty() && arg[0] == '-') {
      return Fail("unknown option " + arg);
    } else if (what.empty()) {
      what = arg;
    } else {
      return Fail("more than one MI or program given");
    }
  }
  if (what.empty()) return Fail("no MI or program given");
  if (set.empty()) return Fail("no MI set given (--set NAME)");
  if (qubitText.empty()) return Fail("no qubits given (--qubits 1,2)");
  if (target.empty()) return Fail("no target gate given (--target NAME)");
  std::vector<int> qubits;
  if (!ParseQubits(qubitText, qubits, error)) return Fail(error);
  const std::string name = Upper(target);
  if ((name == "RX" || name == "RY" || name == "RZ" || name == "CPHASE") && !haveAngle)
    return Fail("target " + target + " needs --angle");
  const int k = static_cast<int>(qubits.size()), d = 1 << k;
  const auto u = TargetGate(target, angle, k, error);
  if (!u) return Fail(error);

  const auto homeDir = HomeDirectory(home, error);
  if (!homeDir) return Fail(error);
  const auto setDir = SetDirectory(*homeDir, set, error);
  if (!setDir) return Fail(error);
  const auto program = ProgramTextFor(what, *setDir, error);
  if (!program) return Fail(error);
  ScratchSet scratch(*homeDir, *setDir);
  if (!scratch.Ok()) return Fail(scratch.Error());

  std::optional<GateMatrix> map;
  try {
    map = GateMap(scratch, *program, qubits, order, error);
  } catch (const RuntimeError& e) {
    return Fail(e.description());
  }
  if (!map) return Fail(error);
  const GateMatrix& m = *map;

  for (int r = 0; r < d; ++r) {
    std::string line;
    for (int c = 0; c < d; ++c) line += (c ? "  " : "") + Amplitude(m(r, c));
    std::printf("%s\n", line.c_str());
  }
  double f = AverageGateFidelity(m, *u);
  if (zPhases) {
    const ZPhaseFit fit = OptimiseZPhases(m, *u);
    for (int t = 0; t < k; ++t)
      std::printf("z phase before qubit %d: %.9f\n", qubits[static_cast<std::size_t>(t)],
                  fit.phases[static_cast<std::size_t>(t)]);
    for (int t = 0; t < k; ++t)
      std::printf("z phase after qubit %d: %.9f\n", qubits[static_cast<std::size_t>(t)],
                  fit.phases[static_cast<std::size_t>(k + t)]);
    f = fit.fidelity;
  }
  std::printf("fidelity %.12g, leakage %.12g\n", f, Leakage(m));
  return 0;
}

} // namespace orvex::cli
