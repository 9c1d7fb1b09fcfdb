// The MI file: a lenient keyword state machine for reading, and a byte-exact writer whose
// text the simulation engine reads as it stands.
#include "mi/mi_file.h"

#include <cmath>
#include <utility>

#include "platform/dialogs.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

const char* const kEOL = "\r\n";

// What the data lines of the file mean at the moment.
enum State {
  kNone = 0, kPairs = 1, kSpin = 2, kFieldSteps = 3, kTimeStep = 4, kIntermediate = 5,
  kTimeStepPi = 6, kAbout = 7,
};

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

// Mid(text, start, length) with the run-time's checks: a negative length is an invalid
// procedure call; a start beyond the text gives "".
std::string Mid(const std::string& text, long start, long length, const std::string& where) {
  if (start < 1 || length < 0)
    throw RuntimeError(ErrorNumber::InvalidProcedureCall,
                       "Invalid procedure call or argument" + where);
  if (static_cast<std::size_t>(start) > text.size()) return {};
  return text.substr(static_cast<std::size_t>(start - 1), static_cast<std::size_t>(length));
}

// The number at the head of a data line: it ends at the first ";", else "(", else " ",
// else "!", else at the end of the trimmed line.
double LeadingValue(const std::string& line) {
  const std::string s = Trim(line);
  std::size_t p = Pos(s, ';');
  if (p == 0) p = Pos(s, '(');
  if (p == 0) p = Pos(s, ' ');
  if (p == 0) p = Pos(s, '!');
  if (p == 0) p = s.size();
  return Val(std::string_view(s).substr(0, p));
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

void ParseMI(const std::string& text, MicroInstruction& mi) { ParseMI(text, mi, ""); }

void ParseMI(const std::string& text, MicroInstruction& record, const std::string& source) {
  // Read into a copy: a file rejected half-way leaves the record as it was.
  MicroInstruction mi = record;
  mi.Description.clear();
  mi.TimeStepInPi = 0;
  int state = kNone;
  int spin = 0;
  const std::vector<std::string> lines = SplitLines(text);
  for (std::size_t n = 0; n < lines.size(); ++n) {
    const std::string& L = lines[n];
    const std::string U = Trim(Upper(L));
    AtLine(source, n + 1, [&] {
      if (U == "HEISENBERG INTERACTION") {
        state = kPairs;
      } else if (U == "END" || U == "!END") {
        state = kNone;
      } else if (U.compare(0, 4, "SPIN") == 0) {
        state = kSpin;
        // The index sits between ":" and "("; the character before "(" is dropped, and
        // without "(" the last two characters of the line are.
        long p1 = static_cast<long>(Pos(L, ':'));
        long p2 = static_cast<long>(Pos(L, '('));
        if (p2 == 0) p2 = static_cast<long>(L.size());
        spin = CInt(Int(Val(Mid(L, p1 + 1, p2 - p1 - 2, ""))));
      } else if (U == "NUMBER OF FIELD STEPS") {
        state = kFieldSteps;
      } else if (U.compare(0, 9, "TIME STEP") == 0) {
        state = Contains(U, "PI") ? kTimeStepPi : kTimeStep;
      } else if (U == "NUMBER OF INTERMEDIATE TIME STEPS") {
        state = kIntermediate;
      } else if (U == "!ABOUT") {
        state = kAbout;
      } else if (Contains(U, "INITIAL STATE")) {
        if (Contains(U, ": GROUND STATE")) mi.InitialState = GroundState;
        else if (Contains(U, ": SPIN UP")) mi.InitialState = AllSpinUp;
        else if (Contains(U, ": SPIN DOWN")) mi.InitialState = AllSpinDown;
        else if (Contains(U, ": RANDOM")) mi.InitialState = RandomState;
      } else if (Contains(U, "CHECK NORM")) {
        mi.CheckNorm = !Contains(U, "NO CHECK NORM");
      } else {
        switch (state) {
        case kPairs: {
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
          break;
        }
        case kSpin: {
          double v[kFieldParameters] = {};
          ScanVector(L, v, kFieldParameters);
          for (int k = 0; k < kFieldParameters; ++k) mi.Field(spin, k) = v[k];
          break;
        }
        case kFieldSteps: mi.FieldSteps = CLng(LeadingValue(L)); break;
        case kTimeStep: mi.TimeStep = LeadingValue(L); break;
        case kIntermediate: mi.IntermediateSteps = CLng(LeadingValue(L)); break;
        case kTimeStepPi:
          mi.TimeStep = LeadingValue(L) / 6.28318530717958;
          mi.TimeStepInPi = 1;
          break;
        case kAbout: mi.Description += " " + (L.empty() ? std::string() : L.substr(1)); break;
        default: break;
        }
      }
    });
  }
  mi.Description = Trim(mi.Description);
  // Norm checking is always off in memory, whatever the file says.
  mi.CheckNorm = false;
  record = std::move(mi);
}

void ReadMI(const std::string& path, MicroInstruction& mi) {
  ParseMI(ReadWholeFile(path), mi, path);
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
    line(NumText((mi.TimeStep + mi.TimeStep) * 3.14159265358979));
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

void WriteMI(Workspace& ws, int n) {
  MicroInstruction& mi = ws.MITable(n);
  const std::string path = ws.MISetPath + mi.Name;
  WriteWholeFile(path, FormatMI(mi, ws.NumberOfQubits, ws.Rnd()));
}

bool SaveMI(Workspace& ws, int n) {
  MicroInstruction& mi = ws.MITable(n);
  if (mi.Name.find('.') == std::string::npos) mi.Name += ".mi";
  const std::string key = "MI" + std::to_string(n);
  for (MIListRow& row : ws.MIList.Rows) {
    if (row.Key == key) {
      row.Text = NameWithoutExtension(mi.Name);
      ws.NotifyMIListChanged();
      break;
    }
  }
  // The comparison is case-sensitive on purpose: A.MI and a.mi pass.
  for (int k = 1; k <= kMaxMIs; ++k) {
    const MicroInstruction& other = ws.MITable(k);
    if (k != n && other.InUse && other.Name == mi.Name) {
      platform::MsgBox("Another Micro instruction has the same name.",
                       platform::Icon::Exclamation, platform::Buttons::OK);
      return false;
    }
  }
  WriteMI(ws, n);
  return true;
}

void SaveAllMIs(Workspace& ws) {
  for (int k = 1; k <= ws.MICount; ++k) {
    const MicroInstruction& mi = ws.MITable(k);
    if (mi.InUse && IsMIName(mi.Name)) WriteMI(ws, k);
  }
}

} // namespace orvex
