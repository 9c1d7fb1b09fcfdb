// The MI parser follows the workbench's block structure (keywords tested on the trimmed,
// upper-case line) but refuses what the workbench's reader silently reads as 0.
#include "engine/mi_file.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>
#include <utility>

#include "engine/numbers.h"

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

enum class Block { None, Pairs, Spin, FieldSteps, TimeStep, Intermediate, About, Seed };

std::string Quote(std::string_view s) {
  std::string q(1, '"');
  q.append(Trim(s));
  q.push_back('"');
  return q;
}

// The leading value of a block's value line: a number, optionally followed by a separator
// (blank, ";", "(" or "!") and anything after it.
bool LeadingValue(std::string_view line, double& v) {
  std::string_view s = Trim(line);
  std::size_t pos = 0;
  if (!ScanNumber(s, pos, v)) return false;
  if (pos == s.size()) return true;
  const char c = s[pos];
  return c == ' ' || c == '\t' || c == ';' || c == '(' || c == '!';
}

} // namespace

EngineError ParseMi(const std::string& name, const std::string& text, MiFile& out) {
  out = MiFile{};
  out.name = name;
  const auto lines = SplitLines(text);
  Block block = Block::None;
  int spin = 0;
  int blockLine = 0;      // line of the header of the current value block
  bool blockHasValue = true;
  std::map<std::pair<int, int>, Coupling> pairs;

  auto fail = [&](int code, int line, std::string reason) {
    return EngineError{code, name, line, std::move(reason)};
  };
  // A value block (field steps, time step, intermediate steps, seed) must hold its value.
  auto closeBlock = [&]() -> EngineError {
    if (blockHasValue) return {};
    switch (block) {
    case Block::FieldSteps:
      return fail(code::kFieldStepsMissing, blockLine, "NUMBER OF FIELD STEPS has no value");
    case Block::TimeStep:
      return fail(code::kTimeStepMissing, blockLine, "TIME STEP has no value");
    case Block::Intermediate:
      return fail(code::kIntermediateMissing, blockLine,
                  "NUMBER OF INTERMEDIATE TIME STEPS has no value");
    case Block::Seed:
      return fail(code::kSeedMissing, blockLine, "INITIAL STATE: RANDOM has no seed line");
    default: return {};
    }
  };
  auto open = [&](Block b, int line, bool needsValue) -> EngineError {
    if (auto e = closeBlock()) return e;
    block = b;
    blockLine = line;
    blockHasValue = !needsValue;
    return {};
  };
  auto stepCount = [&](double v, int line, const char* what, int negative, int notWhole,
                       std::int64_t& target) -> EngineError {
    if (!std::isfinite(v) || v != std::floor(v) || v > 2147483647.0) {
      if (std::isfinite(v) && v < 0) {
        return fail(negative, line, std::string(what) + " is negative");
      }
      return fail(notWhole, line, std::string(what) + " is not a whole number up to 2147483647");
    }
    if (v < 0) return fail(negative, line, std::string(what) + " is negative");
    target = static_cast<std::int64_t>(v);
    return {};
  };

  for (std::size_t n = 0; n < lines.size(); ++n) {
    const int lineNo = static_cast<int>(n) + 1;
    const std::string& line = lines[n];
    const std::string u = Upper(Trim(line));
    EngineError e;
    if (u == "HEISENBERG INTERACTION") {
      e = open(Block::Pairs, lineNo, false);
    } else if (u == "END" || u == "!END") {
      e = open(Block::None, lineNo, false);
    } else if (u.rfind("SPIN", 0) == 0) {
      if ((e = open(Block::Spin, lineNo, false))) return e;
      const std::size_t colon = line.find(':');
      double v = 0;
      std::string_view number;
      if (colon != std::string::npos) {
        const std::size_t paren = line.find('(', colon);
        number = std::string_view(line).substr(
            colon + 1, paren == std::string::npos ? std::string::npos : paren - colon - 1);
      }
      if (colon == std::string::npos || !ParseWholeNumber(number, v))
        return fail(code::kSpinNumberMissing, lineNo, "SPIN header without a qubit number");
      if (v != std::floor(v) || v < 1 || v > kMaxQubits)
        return fail(code::kSpinOutOfRange, lineNo,
                    "qubit " + std::string(Trim(number)) + " is outside 1..32");
      spin = static_cast<int>(v);
      out.maxQubit = std::max(out.maxQubit, spin);
    } else if (u == "NUMBER OF FIELD STEPS") {
      e = open(Block::FieldSteps, lineNo, true);
    } else if (u.rfind("TIME STEP", 0) == 0) {
      e = open(Block::TimeStep, lineNo, true);
    } else if (u == "NUMBER OF INTERMEDIATE TIME STEPS") {
      e = open(Block::Intermediate, lineNo, true);
    } else if (u == "!ABOUT") {
      e = open(Block::About, lineNo, false);
    } else if (u.find("INITIAL STATE") != std::string::npos) {
      // The line leaves the current block open, as the workbench's reader does.
      out.initialLine = lineNo;
      if (u.find(": GROUND STATE") != std::string::npos) {
        out.initial = InitialState::Ground;
      } else if (u.find(": SPIN UP") != std::string::npos) {
        out.initial = InitialState::SpinUp;
      } else if (u.find(": SPIN DOWN") != std::string::npos) {
        out.initial = InitialState::SpinDown;
      } else if (u.find(": RANDOM") != std::string::npos) {
        out.initial = InitialState::Random;
        e = open(Block::Seed, lineNo, true);
      } else if (u[0] != '!') {  // a description line may mention the words
        return fail(code::kInitialStateUnknown, lineNo,
                    "unknown initial state " + Quote(line) +
                        " (GROUND STATE, SPIN UP, SPIN DOWN or RANDOM)");
      }
    } else if (u.find("CHECK NORM") != std::string::npos) {
      out.checkNorm = u.find("NO CHECK NORM") == std::string::npos;
    } else if (u.empty()) {
      // blank lines carry nothing
    } else {
      switch (block) {
      case Block::None:
      case Block::About: break;  // comments and description text
      case Block::Pairs: {
        if (u[0] == '!' || u[0] == '#') break;
        std::string_view rest(line);
        double v[5];
        for (int k = 0; k < 5; ++k) {
          const std::size_t comma = rest.find(',');
          std::string_view token = rest.substr(0, comma);
          if (!ParseWholeNumber(token, v[k])) {
            return fail(code::kPairNumberMissing, lineNo,
                        "pair line needs i, j, Jx, Jy, Jz: value " + std::to_string(k + 1) +
                            " is missing or not a number");
          }
          rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
          if (comma == std::string_view::npos && k < 4) {
            return fail(code::kPairNumberMissing, lineNo,
                        "pair line needs i, j, Jx, Jy, Jz: only " + std::to_string(k + 1) +
                            " values");
          }
        }
        for (int k = 0; k < 2; ++k)
          if (v[k] != std::floor(v[k]) || v[k] < 1 || v[k] > kMaxQubits)
            return fail(code::kPairOutOfRange, lineNo,
                        "pair qubit index " + std::to_string(v[k]) + " is outside 1..32");
        for (int k = 2; k < 5; ++k)
          if (!std::isfinite(v[k]))
            return fail(code::kCouplingNotFinite, lineNo, "coupling value is not finite");
        int i = static_cast<int>(v[0]), j = static_cast<int>(v[1]);
        out.maxQubit = std::max({out.maxQubit, i, j});
        if (i == j) break;  // only shifts the energy
        if (i > j) std::swap(i, j);
        Coupling& c = pairs[{i, j}];
        c.i = i;
        c.j = j;
        c.jx += v[2];
        c.jy += v[3];
        c.jz += v[4];
        if (!std::isfinite(c.jx) || !std::isfinite(c.jy) || !std::isfinite(c.jz))
          return fail(code::kCouplingNotFinite, lineNo, "coupling value is not finite");
        break;
      }
      case Block::Spin: {
        if (u[0] == '!' || u[0] == '#') break;
        std::string_view rest(line);
        std::vector<std::string_view> tokens;
        for (;;) {
          const std::size_t comma = rest.find(',');
          tokens.push_back(Trim(rest.substr(0, comma)));
          if (comma == std::string_view::npos) break;
          rest = rest.substr(comma + 1);
        }
        while (!tokens.empty() && tokens.back().empty()) tokens.pop_back();
        if (tokens.size() != 12)
          return fail(code::kFieldNumberMissing, lineNo,
                      "qubit " + std::to_string(spin) + " needs 12 field values, the line has " +
                          std::to_string(tokens.size()));
        for (int k = 0; k < 12; ++k) {
          double v = 0;
          if (!ParseWholeNumber(tokens[k], v))
            return fail(code::kFieldNumberMissing, lineNo,
                        "field value " + std::to_string(k + 1) + " of qubit " +
                            std::to_string(spin) + " is missing or not a number: " +
                            Quote(tokens[k]));
          if (!std::isfinite(v))
            return fail(code::kFieldNotFinite, lineNo,
                        "field value " + std::to_string(k + 1) + " of qubit " +
                            std::to_string(spin) + " is not finite");
          out.field[spin - 1][k] = v;
        }
        break;
      }
      case Block::FieldSteps:
      case Block::TimeStep:
      case Block::Intermediate:
      case Block::Seed: {
        if (blockHasValue) break;  // text after the value (comments) is left alone
        double v = 0;
        if (!LeadingValue(line, v)) {
          switch (block) {
          case Block::FieldSteps:
            return fail(code::kFieldStepsMissing, lineNo,
                        "NUMBER OF FIELD STEPS is not a number: " + Quote(line));
          case Block::TimeStep:
            return fail(code::kTimeStepMissing, lineNo,
                        "TIME STEP is not a number: " + Quote(line));
          case Block::Intermediate:
            return fail(code::kIntermediateMissing, lineNo,
                        "NUMBER OF INTERMEDIATE TIME STEPS is not a number: " + Quote(line));
          default:
            return fail(code::kSeedMissing, lineNo, "random seed is not a number: " + Quote(line));
          }
        }
        blockHasValue = true;
        if (block == Block::FieldSteps) {
          if ((e = stepCount(v, lineNo, "NUMBER OF FIELD STEPS", code::kFieldStepsNegative,
                             code::kFieldStepsNotWhole, out.fieldSteps)))
            return e;
        } else if (block == Block::Intermediate) {
          if ((e = stepCount(v, lineNo, "NUMBER OF INTERMEDIATE TIME STEPS",
                             code::kIntermediateNegative, code::kIntermediateNotWhole,
                             out.intermediateSteps)))
            return e;
        } else if (block == Block::TimeStep) {
          if (!std::isfinite(v))
            return fail(code::kTimeStepNotFinite, lineNo, "TIME STEP is not finite");
          out.timeStep = v;
        } else {
          if (!std::isfinite(v) || v != std::floor(v) || v < 0 || v > 9.2e18)
            return fail(code::kSeedInvalid, lineNo,
                        "random seed is not a whole number from 0: " + Quote(line));
          out.seed = static_cast<std::uint64_t>(v);
        }
        break;
      }
      }
    }
    if (e) return e;
  }
  if (auto e = closeBlock()) return e;
  for (auto& [key, c] : pairs)
    if (c.jx != 0 || c.jy != 0 || c.jz != 0) out.couplings.push_back(c);
  return {};
}

} // namespace orvex::engine
