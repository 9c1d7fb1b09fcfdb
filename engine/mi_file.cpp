// The engine's view of an MI: the workbench's reader fills a MicroInstruction, and the
// engine takes from it (and from the reader's trace of where each value came from) what the
// evolution needs, checking only what would leave the physics undefined.
#include "engine/mi_file.h"

#include <cmath>
#include <utility>

#include "mi/mi_format.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"

namespace orvex::engine {

void MiFile::FieldAt(int q, double t, double& hx, double& hy, double& hz) const {
  const auto& f = field[q - 1];
  auto axis = [&](int k, int phase) {
    const double h0 = f[k], h1 = f[k + 1], omega = f[k + 2];
    return h1 == 0.0 ? h0 : h0 + h1 * std::sin(omega * t + f[phase]);
  };
  hx = axis(0, 9);
  hy = axis(3, 10);
  hz = axis(6, 11);
}

bool MiFile::HasField(int q) const {
  const auto& f = field[q - 1];
  return f[0] != 0 || f[1] != 0 || f[3] != 0 || f[4] != 0 || f[6] != 0 || f[7] != 0;
}

bool MiFile::StaticFields() const {
  for (const auto& f : field)
    if (f[1] != 0 || f[4] != 0 || f[7] != 0) return false;
  return true;
}

namespace {

// The syntax code for an error the reader raised on a line of `block` (or on a keyword
// line of `kind`).
int ReaderErrorCode(const orvex::RuntimeError& e, orvex::MIBlock block, orvex::MILineKind kind) {
  using orvex::ErrorNumber;
  using orvex::MIBlock;
  if (kind == orvex::MILineKind::Spin)
    return e.code() == ErrorNumber::InvalidProcedureCall ? code::kSpinNumberMissing
                                                         : code::kSpinOutOfRange;
  switch (block) {
  case MIBlock::Pairs:
    if (e.code() == ErrorNumber::InvalidProcedureCall) return code::kPairNumberMissing;
    return e.code() == ErrorNumber::SubscriptOutOfRange ? code::kPairOutOfRange
                                                        : code::kCouplingNotFinite;
  case MIBlock::Spin:
    return e.code() == ErrorNumber::SubscriptOutOfRange ? code::kSpinOutOfRange
                                                        : code::kFieldNotFinite;
  case MIBlock::FieldSteps: return code::kFieldStepsTooLarge;
  case MIBlock::Intermediate: return code::kIntermediateTooLarge;
  default: return code::kTimeStepNotFinite;
  }
}

// Seeds are whole numbers; any finite value maps onto one, the same on every platform.
std::uint64_t SeedOf(double v) {
  constexpr double kTwo64 = 18446744073709551616.0;
  double w = std::fmod(std::floor(v), kTwo64);
  if (w < 0) w += kTwo64;
  return w >= kTwo64 ? 0 : static_cast<std::uint64_t>(w);
}

} // namespace

EngineError ParseMi(const std::string& name, const std::string& text, MiFile& out) {
  out = MiFile{};
  out.name = name;
  auto fail = [&](int code, int line, std::string reason) {
    return EngineError{code, name, line, std::move(reason)};
  };

  orvex::MicroInstruction mi;
  orvex::MIReadTrace trace;
  try {
    orvex::ParseMI(text, mi, "", &trace);
  } catch (const orvex::RuntimeError& e) {
    return fail(ReaderErrorCode(e, trace.block, trace.kind), trace.line, e.description());
  }

  if (trace.maxQubit > kMaxQubits)
    return fail(code::kSpinOutOfRange, trace.maxQubitLine,
                "qubit " + std::to_string(trace.maxQubit) + " is outside 1..32");
  out.maxQubit = trace.maxQubit;

  for (int q = 1; q <= kMaxQubits; ++q)
    for (int k = 0; k < 12; ++k) {
      const double v = mi.Field(q, k);
      if (!std::isfinite(v))
        return fail(code::kFieldNotFinite, trace.fieldLine[static_cast<std::size_t>(q)],
                    "field value " + std::to_string(k + 1) + " of qubit " + std::to_string(q) +
                        " is not finite");
      out.field[static_cast<std::size_t>(q - 1)][static_cast<std::size_t>(k)] = v;
    }

  // The reader stores every pair as its line names it; the couplings are the pairs i < j.
  // A line (j, i) is not what the MI editor shows, and a line (i, i) only shifts the energy.
  for (const auto& p : trace.pairs)
    if (p.i > p.j)
      out.warnings.push_back(name + ":" + std::to_string(p.line) + ": pair line " +
                             std::to_string(p.i) + "," + std::to_string(p.j) +
                             " is ignored: a coupling is written with the lower qubit first");
  for (int i = 1; i <= kMaxQubits; ++i)
    for (int j = i + 1; j <= kMaxQubits; ++j) {
      Coupling c{i, j, mi.J(i, j, 0), mi.J(i, j, 1), mi.J(i, j, 2)};
      if (c.jx == 0 && c.jy == 0 && c.jz == 0) continue;
      if (!std::isfinite(c.jx) || !std::isfinite(c.jy) || !std::isfinite(c.jz)) {
        int line = 0;
        for (const auto& p : trace.pairs)
          if (p.i == i && p.j == j) line = p.line;
        return fail(code::kCouplingNotFinite, line, "coupling value is not finite");
      }
      out.couplings.push_back(c);
    }

  if (mi.FieldSteps < 0)
    return fail(code::kFieldStepsNegative, trace.fieldStepsLine,
                "NUMBER OF FIELD STEPS is negative");
  if (mi.IntermediateSteps < 0)
    return fail(code::kIntermediateNegative, trace.intermediateLine,
                "NUMBER OF INTERMEDIATE TIME STEPS is negative");
  out.fieldSteps = mi.FieldSteps;
  out.intermediateSteps = mi.IntermediateSteps;
  out.timeStep = orvex::TimeStepRadians(mi);
  if (!std::isfinite(out.timeStep))
    return fail(code::kTimeStepNotFinite, trace.timeStepLine, "TIME STEP is not finite");

  // The keyword lines the reader acts on, taken again for what only the engine needs: the
  // initial state (never from a comment), the seed line after a random one, and norm
  // checking, which the reader always turns off in the record.
  const std::vector<std::string> lines = orvex::SplitLines(text);
  for (std::size_t n = 0; n < lines.size(); ++n) {
    const std::string U = orvex::Trim(orvex::Upper(lines[n]));
    const orvex::MILineKind kind = orvex::ClassifyMILine(U);
    if (kind == orvex::MILineKind::CheckNorm) {
      out.checkNorm = U.find("NO CHECK NORM") == std::string::npos;
    } else if (kind == orvex::MILineKind::InitialState && U[0] != '!') {
      const int lineNo = static_cast<int>(n) + 1;
      switch (orvex::InitialStateNamed(U)) {
      case orvex::GroundState: out.initial = InitialState::Ground; break;
      case orvex::AllSpinUp: out.initial = InitialState::SpinUp; break;
      case orvex::AllSpinDown: out.initial = InitialState::SpinDown; break;
      case orvex::RandomState: {
        out.initial = InitialState::Random;
        double seed = 0;
        if (n + 1 < lines.size()) {
          try {
            seed = orvex::MILeadingValue(lines[n + 1]);
          } catch (const orvex::RuntimeError& e) {
            return fail(code::kSeedInvalid, lineNo + 1,
                        "random seed is not a finite number: " + e.description());
          }
        }
        out.seed = SeedOf(seed);
        break;
      }
      default: continue;  // names no state: the reader leaves it alone too
      }
      out.initialLine = lineNo;
    }
  }
  return {};
}

EngineError LoadMi(const std::string& name, const std::string& path, MiFile& out) {
  std::string text;
  try {
    text = orvex::ReadFileBytes(path, name);
  } catch (const orvex::RuntimeError& e) {
    const int status =
        e.code() == orvex::ErrorNumber::OutOfMemory ? code::kMiTooLarge : code::kMiMissing;
    return {status, name, 0, e.description()};
  }
  if (auto e = ParseMi(name, text, out)) return e;
  out.path = path;
  return {};
}

} // namespace orvex::engine
