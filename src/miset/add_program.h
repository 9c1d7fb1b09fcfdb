// Making a saved quantum program callable from the open set: its ".MP" entry and list row.
#pragma once

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

namespace orvex {

// AddQuantumProgram: the file dialog "Add Quantum Program", the already-added check, the
// record, the ".MP" file and the refreshed list. Returns the new slot, 0 when nothing added.
int AddQuantumProgram(Workspace& ws, MISetUi& ui);

} // namespace orvex
