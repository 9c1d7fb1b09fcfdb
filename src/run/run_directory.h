// The run directory: the program file's directory, laid out for the engine before a run.
#pragma once

#include <string>

#include "workspace/workspace.h"

namespace orvex {

// AppDir + DirectoryOf(the slot's program name), resolved without regard to letter case when
// it exists; ends in "/".
std::string RunDirectoryOf(const Workspace& ws, int slot);

// True, after a critical message, when the slot's run directory is the directory of an MI set
// other than the open one (it holds a qubits.dat): preparing it would delete that set's MIs.
bool RefuseAnotherSetsDirectory(const Workspace& ws, int slot);

// Prepares the run directory of `slot` and makes it the current directory:
//   0. an MI the program calls (directly or through callable programs) whose file is in the
//      set but not in the table, because the reader refused it, refuses the run: the
//      run-time error of the reader, its description naming the file and the reason, is
//      thrown before anything is deleted or copied;
//   1. StepTable cleared;
//   2. every "*.MI", then every "*.MP" file there deleted (any letter case; errors ignored);
//   3. for every in-use MI slot 1..MICount: an MI is copied from the set directory under the
//      same name, a callable-program entry becomes a one-line redirect "@" + CallTarget + CR LF;
//   4. chdir into it.
// When the run directory is the set directory itself, steps 2 and 3 leave the set's own files
// alone (deleting them would lose the set). Throws the run-time's file error when a copy or
// write fails or the directory cannot be entered. Returns the run directory.
std::string PrepareRunDirectory(Workspace& ws, int slot);

// Deletes the "*.MI" and "*.MP" copies in the slot's run directory ("&Update MI"); errors are
// ignored. Does nothing when the run directory is the set directory or another set's.
void ClearRunDirectory(const Workspace& ws, int slot);

} // namespace orvex
