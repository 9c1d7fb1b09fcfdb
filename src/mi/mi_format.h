// The MI text format: the reader (a lenient line-by-line keyword state machine) and the
// byte-exact writer. Pure functions on text and the MicroInstruction record, without dialogs
// or workspace operations, so the simulation engine reads MI files with this very code.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

// What one line is to the reader: the keyword test that matches it (tried in this order on
// the trimmed, upper-case line), or data for the current block.
enum class MILineKind {
  Pairs,          // "HEISENBERG INTERACTION"
  End,            // "END" or "!END"
  Spin,           // begins with "SPIN"
  FieldSteps,     // "NUMBER OF FIELD STEPS"
  TimeStep,       // begins with "TIME STEP", no "PI" in it
  TimeStepPi,     // begins with "TIME STEP" and holds "PI": the step in units of 2 pi
  Intermediate,   // "NUMBER OF INTERMEDIATE TIME STEPS"
  About,          // "!ABOUT"
  InitialState,   // holds "INITIAL STATE"
  CheckNorm,      // holds "CHECK NORM"
  Data,
};
MILineKind ClassifyMILine(const std::string& trimmedUpper);

// The InitialState an "INITIAL STATE" line names (": GROUND STATE", ": SPIN UP",
// ": SPIN DOWN", ": RANDOM", tested in this order), or -1 when it names none.
int InitialStateNamed(const std::string& trimmedUpper);

// The number at the head of a value line (field steps, time step, intermediate steps, a
// random state's seed): it ends at the first ";", else "(", else " ", else "!", else at the
// end of the trimmed line; read by the Val rule (may throw its Overflow error).
double MILeadingValue(const std::string& line);

// The block a data line belongs to.
enum class MIBlock { None, Pairs, Spin, FieldSteps, TimeStep, Intermediate, TimeStepPi, About };

// Where a read found what it stored, for callers that check the values against the lines
// they came from. Line numbers are 1-based; 0 means no such line.
struct MIReadTrace {
  int line = 0;                   // the line being read when the read ended (the failing one)
  MIBlock block = MIBlock::None;  // the block that line was read in
  MILineKind kind = MILineKind::Data;
  int maxQubit = 0;               // largest qubit index a SPIN header or pair line names
  int maxQubitLine = 0;           // the line that names it
  std::array<int, kMaxQubits + 1> fieldLine{};  // last field line of each qubit
  struct PairLine {
    int i = 0, j = 0, line = 0;
  };
  std::vector<PairLine> pairs;    // every pair line, in file order
  int fieldStepsLine = 0, timeStepLine = 0, intermediateLine = 0;
};

// Reads MI text into `mi`. Only Description and TimeStepInPi are cleared first; values the
// text does not mention keep what the record held. CheckNorm is always False afterwards.
// Throws the run-time's string-function (5), subscript (9) or overflow (6) error for a
// malformed line, naming `source` (usually the file's path) and the line; a text rejected so
// leaves `mi` unchanged. `trace`, when given, is filled as the text is read.
void ParseMI(const std::string& text, MicroInstruction& mi);
void ParseMI(const std::string& text, MicroInstruction& mi, const std::string& source,
             MIReadTrace* trace = nullptr);

// The time step in radians: TimeStep, or for a step in units of 2 pi the number the writer
// puts on the value line under the "TIME STEP ; ... * 2 * PI" header (read back as written).
double TimeStepRadians(const MicroInstruction& mi);

// The exact bytes of the MI file for `numberOfQubits` qubits (CR LF line ends). An empty
// Description becomes "(none)" in the record first. `rnd` supplies the random seed of a
// random initial state (uniform in [0, 1)).
std::string FormatMI(MicroInstruction& mi, int numberOfQubits, double rnd);

// The description an MI file written with `description` gives back when read. The writer
// puts it on one "!" line, so a text that reads as a keyword ("END", "ABOUT", anything
// holding "INITIAL STATE" or "CHECK NORM") or spans lines does not come back as it was.
std::string DescriptionAsReadBack(const std::string& description);

} // namespace orvex
