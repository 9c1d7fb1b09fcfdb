// The MI list model (ws.MIList): the breakpoint row, one row per MI table record keyed
// "MI" + slot, the sort-and-compact refresh and the row click. The window only renders it.
#pragma once

#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

inline constexpr const char* kBreakpointText = "Breakpoint";

// Icon of a record's row: 1 when the name's last two characters are "MI", else 19.
int RowIconFor(const std::string& name);
// Key "MI" + slot.
std::string RowKeyFor(int slot);
// The slot a row stands for; 0 for the breakpoint row or a row index out of range.
int SlotOfRow(const Workspace& ws, int row);
// The row index (0-based) of slot's row, -1 when not listed.
int RowOfSlot(const Workspace& ws, int slot);

// Clears the list to its breakpoint row (no notification).
void ClearMIList(Workspace& ws);
// Appends the row of slot (key, name without extension, icon by name).
void AddMIListRow(Workspace& ws, int slot);

// RefreshMIList: compacts the MI table (records not in use dropped, the others keep their
// order at slots 1..MICount), then rebuilds the list under the breakpoint row in upper-case
// name order (equal names keep table order). The selected record stays selected. Returns
// newIndexOf[old slot] = new slot (0 when dropped; index 0 unused).
std::vector<int> RefreshMIList(Workspace& ws);

// A click on row `row`: selects it and shows "Breakpoint" or the record's description in the
// status bar.
void ClickMIListRow(Workspace& ws, int row);

} // namespace orvex
