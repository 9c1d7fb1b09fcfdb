// The MI text format: a lenient keyword state machine for reading, and a byte-exact writer
// whose text the simulation engine reads as it stands.
#include "mi/mi_format.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include "workspace/file_bytes.h"
#include "workspace/numbers.h"

namespace orvex {

namespace {

const char* const kEOL = "\r\n";
// 2 pi as the reader divides by it, and pi as the writer multiplies by it (exactly half).
constexpr double kTwoPi = 6.28318530717958;
constexpr double kPi = 3.14159265358979;

// 1-based position of `what` in `text`, 0 when absent (as InStr counts).
std::size_t Pos(const std::string& text, char what, std::size_t from = 1) {
  if (from < 1) from = 1;
  if (from > text.size()) return 0;
  std::size_t p = text.find(what, from - 1);
  return p == std::string::npos ? 0 : p + 1;
}

bool Contains(const std::string& text, const char* what) {
  return text.find(what) != std::string::npos;
}

bool StartsWith(const std::string& text, const char* what) {
  return text.rfind(what, 0) == 0;
}

// Mid(text, start, length) with the run-time's checks: a negative length is an invalid
// procedure call; a start beyond the text gives "".
std::string Mid(const std::string& text, long start, long length) {
  if (start < 1 || length < 0)
    throw RuntimeError(ErrorNumber::InvalidProcedureCall,
                       "Invalid procedure call or argument: the SPIN line holds no qubit "
                       "number between \":\" and \"(\"");
  if (static_cast<std::size_t>(start) > text.size()) return {};
  return text.substr(static_cast<std::size_t>(start - 1), static_cast<std::size_t>(length));
}

// The number a "TIME STEP ; x* 2 * PI" header carries after its ";", if any.
std::optional<double> HeaderNumber(const std::string& header) {
  const std::size_t semicolon = header.find(';');
  if (semicolon == std::string::npos) return std::nullopt;
  try {
    std::size_t consumed = 0;
    const double v = Val(std::string_view(header).substr(semicolon + 1), consumed);
    if (consumed == 0) return std::nullopt;
    return v;
  } catch (const RuntimeError&) {
    return std::nullopt;  // too large for a Double: the header records no usable figure
  }
}

// The writer's value line for a step of `ts` times 2 pi.
std::string TwoPiLine(double ts) { return NumText((ts + ts) * kPi); }

// The time step in units of 2 pi for a value line `v` (text `line`) under a header that
// carries `header`. The header holds the user's own figure: when it gives the value line
// back as the writer writes it, it is kept, so an MI opened and saved is the same file.
// Otherwise a step that reproduces both the header's number and the value line at the
// writer's 15 digits is looked for between the header's number and the quotient (hand-made
// files with more digits); failing that, the quotient stands.
double TimeStepInTwoPi(const std::optional<double>& header, double v, const std::string& line) {
  const double quotient = v / kTwoPi;
  if (!header) return quotient;
  const double h = *header;
  if (TwoPiLine(h) == Trim(line)) return h;
  const std::string wantHeader = Str(h);
  const std::string wantLine = NumText(v);
  auto fits = [&](double ts) { return Str(ts) == wantHeader && TwoPiLine(ts) == wantLine; };
  if (fits(h)) return h;
  if (fits(quotient)) return quotient;
  double ts = h;
  for (int step = 0; step < 128 && ts != quotient; ++step) {
    ts = std::nextafter(ts, quotient);
    if (fits(ts)) return ts;
  }
  return quotient;
}

// Runs `body`, adding the file and line to the description of a run-time error.
template <typename F>
void AtLine(const std::string& source, std::size_t lineNo, F&& body) {
  try {
    body();
  } catch (const RuntimeError& e) {
    std::string where = source.empty() ? "" : source + ", ";
    throw RuntimeError(e.code(), e.description() + " (" + where + "line " +
                                     std::to_string(lineNo) + ")");
  }
}

} // namespace

MILineKind ClassifyMILine(const std::string& U) {
  if (U == "HEISENBERG INTERACTION") return MILineKind::Pairs;
  if (U == "END" || U == "!END") return MILineKind::End;
  if (StartsWith(U, "SPIN")) return MILineKind::Spin;
  if (U == "NUMBER OF FIELD STEPS") return MILineKind::FieldSteps;
  if (StartsWith(U, "TIME STEP"))
    return Contains(U, "PI") ? MILineKind::TimeStepPi : MILineKind::TimeStep;
  if (U == "NUMBER OF INTERMEDIATE TIME STEPS") return MILineKind::Intermediate;
  if (U == "!ABOUT") return MILineKind::About;
  if (Contains(U, "INITIAL STATE")) return MILineKind::InitialState;
  if (Contains(U, "CHECK NORM")) return MILineKind::CheckNorm;
  return MILineKind::Data;
}

double MILeadingValue(const std::string& line) {
  const std::string s = Trim(line);
  std::size_t p = Pos(s, ';');
  if (p == 0) p = Pos(s, '(');
  if (p == 0) p = Pos(s, ' ');
  if (p == 0) p = Pos(s, '!');
  if (p == 0) p = s.size();
  return Val(std::string_view(s).substr(0, p));
}

int InitialStateNamed(const std::string& U) {
  if (Contains(U, ": GROUND STATE")) return GroundState;
  if (Contains(U, ": SPIN UP")) return AllSpinUp;
  if (Contains(U, ": SPIN DOWN")) return AllSpinDown;
  if (Contains(U, ": RANDOM")) return RandomState;
  return -1;
}

void ParseMI(const std::string& text, MicroInstruction& mi) { ParseMI(text, mi, ""); }

void ParseMI(const std::string& text, MicroInstruction& record, const std::string& source,
             MIReadTrace* trace) {
  MIReadTrace local;
  MIReadTrace& t = trace ? *trace : local;
  t = MIReadTrace{};
  // Read into a copy: a file rejected half-way leaves the record as it was.
  MicroInstruction mi = record;
  mi.Description.clear();
  mi.TimeStepInPi = 0;
  MIBlock block = MIBlock::None;
  int spin = 0;
  std::optional<double> piHeader;  // the number of the last "TIME STEP ; x* 2 * PI" header
  auto names = [&t](int q, int lineNo) {
    if (q > t.maxQubit) {
      t.maxQubit = q;
      t.maxQubitLine = lineNo;
    }
  };
  const std::vector<std::string> lines = SplitLines(text);
  for (std::size_t n = 0; n < lines.size(); ++n) {
    const std::string& L = lines[n];
    const std::string U = Trim(Upper(L));
    const int lineNo = static_cast<int>(n) + 1;
    const MILineKind kind = ClassifyMILine(U);
    t.line = lineNo;
    t.kind = kind;
    t.block = block;
    AtLine(source, n + 1, [&] {
      switch (kind) {
      case MILineKind::Pairs: block = MIBlock::Pairs; break;
      case MILineKind::End: block = MIBlock::None; break;
      case MILineKind::Spin: {
        block = MIBlock::Spin;
        // The index sits between ":" and "("; the character before "(" is dropped, and
        // without "(" the last two characters of the line are.
        long p1 = static_cast<long>(Pos(L, ':'));
        long p2 = static_cast<long>(Pos(L, '('));
        if (p2 == 0) p2 = static_cast<long>(L.size());
        spin = CInt(Int(Val(Mid(L, p1 + 1, p2 - p1 - 2))));
        names(spin, lineNo);
        break;
      }
      case MILineKind::FieldSteps: block = MIBlock::FieldSteps; break;
      case MILineKind::TimeStep: block = MIBlock::TimeStep; break;
      case MILineKind::TimeStepPi:
        block = MIBlock::TimeStepPi;
        piHeader = HeaderNumber(L);
        break;
      case MILineKind::Intermediate: block = MIBlock::Intermediate; break;
      case MILineKind::About: block = MIBlock::About; break;
      case MILineKind::InitialState: {
        const int named = InitialStateNamed(U);
        if (named >= 0) mi.InitialState = static_cast<std::int16_t>(named);
        break;
      }
      case MILineKind::CheckNorm: mi.CheckNorm = !Contains(U, "NO CHECK NORM"); break;
      case MILineKind::Data:
        switch (block) {
        case MIBlock::Pairs: {
          // i, j, Jx, Jy, Jz: five commas are required (the writer ends with ",  ! ...").
          std::size_t c[5];
          std::size_t from = 1;
          for (int k = 0; k < 5; ++k) {
            c[k] = Pos(L, ',', from);
            if (c[k] == 0)
              throw RuntimeError(ErrorNumber::InvalidProcedureCall,
                                 "Invalid procedure call or argument: a coupling line needs "
                                 "five commas");
            from = c[k] + 1;
          }
          int i = CInt(Int(Val(L.substr(0, c[0] - 1))));
          int j = CInt(Int(Val(L.substr(c[0], c[1] - c[0] - 1))));
          double jx = Val(L.substr(c[1], c[2] - c[1] - 1));
          double jy = Val(L.substr(c[2], c[3] - c[2] - 1));
          double jz = Val(L.substr(c[3], c[4] - c[3] - 1));
          mi.J(i, j, 0) = jx;
          mi.J(i, j, 1) = jy;
          mi.J(i, j, 2) = jz;
          names(std::max(i, j), lineNo);
          t.pairs.push_back({i, j, lineNo});
          break;
        }
        case MIBlock::Spin: {
          double v[kFieldParameters] = {};
          ScanVector(L, v, kFieldParameters);
          for (int k = 0; k < kFieldParameters; ++k) mi.Field(spin, k) = v[k];
          t.fieldLine[static_cast<std::size_t>(spin)] = lineNo;
          break;
        }
        case MIBlock::FieldSteps:
          mi.FieldSteps = CLng(MILeadingValue(L));
          t.fieldStepsLine = lineNo;
          break;
        case MIBlock::TimeStep:
          mi.TimeStep = MILeadingValue(L);
          t.timeStepLine = lineNo;
          break;
        case MIBlock::Intermediate:
          mi.IntermediateSteps = CLng(MILeadingValue(L));
          t.intermediateLine = lineNo;
          break;
        case MIBlock::TimeStepPi:
          mi.TimeStep = TimeStepInTwoPi(piHeader, MILeadingValue(L), L);
          mi.TimeStepInPi = 1;
          t.timeStepLine = lineNo;
          break;
        case MIBlock::About:
          mi.Description += " " + (L.empty() ? std::string() : L.substr(1));
          break;
        case MIBlock::None: break;  // comments such as "!Micro instruction "
        }
        break;
      }
    });
  }
  t.line = 0;
  mi.Description = Trim(mi.Description);
  // Norm checking is always off in memory, whatever the file says.
  mi.CheckNorm = false;
  record = std::move(mi);
}

double TimeStepRadians(const MicroInstruction& mi) {
  if (mi.TimeStepInPi != 1) return mi.TimeStep;
  const double radians = (mi.TimeStep + mi.TimeStep) * kPi;
  // Beyond the range of a Double the line reads "Inf": no step can be read back from it.
  return std::isfinite(radians) ? Val(NumText(radians)) : radians;
}

std::string FormatMI(MicroInstruction& mi, int numberOfQubits, double rnd) {
  std::string out;
  auto line = [&out](const std::string& s) { out += s; out += kEOL; };
  auto intText = [](std::int64_t v) { return Trim(Str(v)); };

  line("!Micro instruction ");
  line("HEISENBERG INTERACTION");
  for (int i = 1; i <= numberOfQubits; ++i)
    for (int j = i + 1; j <= numberOfQubits; ++j)
      line(intText(i) + "," + intText(j) + ", " + NumText(mi.J(i, j, 0)) + "," +
           NumText(mi.J(i, j, 1)) + "," + NumText(mi.J(i, j, 2)) + ",  ! Jx, Jy, Jz ");
  line("END");
  for (int q = 1; q <= numberOfQubits; ++q) {
    line("SPIN : " + intText(q) +
         " (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)");
    std::string values;
    for (int k = 0; k < kFieldParameters; ++k) values += NumText(mi.Field(q, k)) + ", ";
    line(values);
    line("END");
  }
  line("NUMBER OF FIELD STEPS");
  line(intText(mi.FieldSteps));
  line("END");
  if (mi.TimeStepInPi != 1) {
    line("TIME STEP");
    line(NumText(mi.TimeStep));
  } else {
    // The header keeps Str's sign blank; the engine reads the second line, in radians.
    line("TIME STEP ; " + Str(mi.TimeStep) + "* 2 * PI");
    line(TwoPiLine(mi.TimeStep));
  }
  line("END");
  line("NUMBER OF INTERMEDIATE TIME STEPS");
  line(intText(mi.IntermediateSteps));
  line("END");
  if (Upper(mi.Name) == "INITIALIZE.MI") {
    bool known = true;
    switch (mi.InitialState) {
    case GroundState: line("INITIAL STATE: GROUND STATE"); break;
    case AllSpinUp: line("INITIAL STATE: SPIN UP"); break;
    case AllSpinDown: line("INITIAL STATE: SPIN DOWN"); break;
    case RandomState:
      line("INITIAL STATE: RANDOM");
      line(NumText(Int(rnd * 278332379) + 1));
      break;
    default: known = false; break;
    }
    if (known) line("END");
  }
  line(mi.CheckNorm ? "CHECK NORM" : "NO CHECK NORM");
  line("!ABOUT");
  if (mi.Description.empty()) mi.Description = "(none)";
  line("!" + mi.Description);
  line("!END");
  return out;
}

std::string DescriptionAsReadBack(const std::string& description) {
  // Only the description matters: no qubits, an MI that is not the initialisation MI.
  auto mi = std::make_unique<MicroInstruction>();
  mi->Description = description;
  const std::string text = FormatMI(*mi, 0, 0.0);
  auto back = std::make_unique<MicroInstruction>();
  try {
    ParseMI(text, *back);
  } catch (const RuntimeError&) {
    return {};
  }
  return back->Description;
}

} // namespace orvex
