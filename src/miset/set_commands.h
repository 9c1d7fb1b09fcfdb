// Whole-set commands: the set-name check of the name prompt, creating a set and copying the
// open set into a new directory.
#pragma once

#include <string>

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

namespace orvex {

// The name prompt's check: a name holding any character a set name must not contain is
// refused with "Illegal directory name". True when the name may be used.
bool CheckSetName(const std::string& name);

// NewMISet: asks for a name ("New MI set"), creates the directory (with consent), offers to
// overwrite an existing set and opens it. True when a set was opened.
bool NewMISet(Workspace& ws, MISetUi& ui);
// CopyMISet: asks for a name ("Copy MI set"), copies the open set's ".MI" and ".MP" files and
// a fresh qubits.dat there, and continues in the copy. True when copied.
bool CopyMISet(Workspace& ws);

} // namespace orvex
