// The MI file on disk: reading it, and the save operations around the writer (the text
// format itself is mi_format.h).
#pragma once

#include <string>

#include "mi/mi_format.h"
#include "workspace/workspace.h"

namespace orvex {

// Reads the MI file at `path` (found without regard to letter case) into `mi` by the rules
// of ParseMI. Throws the run-time's file error when the file cannot be read (also "Out of
// memory" (7) for a file over the whole-file limit), and the reader's errors for malformed
// lines; a file rejected so leaves `mi` unchanged.
void ReadMI(const std::string& path, MicroInstruction& mi);

// Writes MI slot n to MISetPath + Name (safely: temporary file and rename).
void WriteMI(Workspace& ws, int n);

// SaveMI: appends ".mi" to a name without ".", updates the MI list row's text, refuses a name
// that another in-use slot holds (case-sensitive) with "Another Micro instruction has the
// same name." and otherwise writes the file. True when written.
bool SaveMI(Workspace& ws, int n);

// SaveAllMIs: rewrites every in-use slot 1..MICount whose name ends in "MI".
void SaveAllMIs(Workspace& ws);

} // namespace orvex
