// The MI list's commands on single MIs: new, copy, delete, open (double click) and save all.
#pragma once

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

namespace orvex {

// NewMI: a record "New.MI" with description "(none)" and default values, its row appended
// and selected, opened in an MI editor. Returns the slot.
int NewMI(Workspace& ws, MISetUi& ui);
// CopyMI: a copy "Copy_of_" + name of the selected MI, opened in an editor; the list is
// refreshed. Returns the new slot, 0 when nothing was copied.
int CopyMI(Workspace& ws, MISetUi& ui);
// DeleteMI: after "Are you sure ?", the selected MI's file and record go; INITIALIZE and the
// breakpoint row are left alone. True when deleted.
bool DeleteMI(Workspace& ws, MISetUi& ui);
// A double click on `row`: an MI opens in an MI editor (a beep when it is open already), a
// callable program opens as a quantum program.
void OpenMIListEntry(Workspace& ws, MISetUi& ui, int row);
// "Save MI set": every MI of the set is rewritten.
void SaveMISet(Workspace& ws);

// The first free open-MI-editor slot (1..10), 0 when all are taken.
int FreeMIEditorSlot(Workspace& ws);

} // namespace orvex
