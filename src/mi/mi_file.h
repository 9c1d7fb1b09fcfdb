// The MI text file: the reader (a lenient line-by-line keyword state machine), the writer
// (byte-exact, the engine reads the same text) and the two save operations.
#pragma once

#include <string>

#include "workspace/workspace.h"

namespace orvex {

// Reads the MI file at `path` into `mi`. Only Description and TimeStepInPi are cleared first;
// values the file does not mention keep what the record held. CheckNorm is always False
// afterwards. Throws the run-time's file error when the file cannot be read, and its
// string-function (5) or subscript (9) errors for malformed pair lines, as the format says;
// a file rejected so leaves `mi` unchanged.
void ReadMI(const std::string& path, MicroInstruction& mi);
// The same from text already in memory (the name is used only in error descriptions).
void ParseMI(const std::string& text, MicroInstruction& mi);
// As above; `source` (usually the file's path) and the line number are named in the
// description of any error thrown.
void ParseMI(const std::string& text, MicroInstruction& mi, const std::string& source);

// The exact bytes of the MI file for `numberOfQubits` qubits (CR LF line ends). An empty
// Description becomes "(none)" in the record first. `rnd` supplies the random seed of a
// random initial state (uniform in [0, 1)).
std::string FormatMI(MicroInstruction& mi, int numberOfQubits, double rnd);

// Writes MI slot n to MISetPath + Name (safely: temporary file and rename).
void WriteMI(Workspace& ws, int n);

// SaveMI: appends ".mi" to a name without ".", updates the MI list row's text, refuses a name
// that another in-use slot holds (case-sensitive) with "Another Micro instruction has the
// same name." and otherwise writes the file. True when written.
bool SaveMI(Workspace& ws, int n);

// SaveAllMIs: rewrites every in-use slot 1..MICount whose name ends in "MI".
void SaveAllMIs(Workspace& ws);

} // namespace orvex
