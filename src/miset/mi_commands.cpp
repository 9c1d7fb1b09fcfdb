#include "miset/mi_commands.h"

#include "mi/initialize.h"
#include "mi/mi_file.h"
#include "miset/mi_list.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

#include <cstdio>

namespace orvex {

using platform::Answer;
using platform::Buttons;
using platform::CR;
using platform::Icon;

int FreeMIEditorSlot(Workspace& ws) {
  for (int s = 1; s <= kMaxMIEditors; ++s)
    if (!ws.MIEditorOpen(s)) return s;
  return 0;
}

int NewMI(Workspace& ws, MISetUi& ui) {
  const int n = NewMIRecord(ws);
  MicroInstruction& mi = ws.MITable(n);
  mi.InUse = true;
  mi.IsOpen = false;
  mi.IsNew = true;
  mi.Name = "New.MI";
  mi.Description = "(none)";
  mi.IntermediateSteps = 0;
  mi.FieldSteps = 0;
  mi.TimeStep = 0;
  mi.TimeStepInPi = 0;
  mi.InitialState = AllSpinUp;
  mi.CheckNorm = false;
  ws.MIList.Rows.push_back({RowKeyFor(n), "New", kIconMI});
  ws.MIList.Selected = static_cast<int>(ws.MIList.Rows.size()) - 1;
  ws.NotifyMIListChanged();
  OpenMIListEntry(ws, ui, ws.MIList.Selected);
  return n;
}

int CopyMI(Workspace& ws, MISetUi& ui) {
  const int row = ws.MIList.Selected;
  const int from = SlotOfRow(ws, row);
  if (from <= 0) return 0;
  if (!IsMIName(ws.MITable(from).Name)) {
    platform::MsgBox("Cannot copy a Quantum Program!", Icon::Exclamation, Buttons::OK);
    return 0;
  }
  const std::string rowText = ws.MIList.Rows[row].Text;
  const int n = NewMIRecord(ws);
  MicroInstruction& copy = ws.MITable(n);
  copy = ws.MITable(from);
  copy.InUse = true;
  copy.IsOpen = false;  // the copy is not open anywhere yet, whatever the original is
  copy.Name = "Copy_of_" + copy.Name;
  ws.MIList.Rows.push_back({RowKeyFor(n), "Copy_of_" + rowText, kIconMI});
  ws.MIList.Selected = static_cast<int>(ws.MIList.Rows.size()) - 1;
  ws.NotifyMIListChanged();
  OpenMIListEntry(ws, ui, ws.MIList.Selected);
  const std::vector<int> moved = RefreshMIList(ws);
  ui.miSlotsMoved(moved);
  return moved[n];
}

bool DeleteMI(Workspace& ws, MISetUi& ui) {
  const int row = ws.MIList.Selected;
  const int n = SlotOfRow(ws, row);
  if (n <= 0) return false;
  if (Upper(ws.MIList.Rows[row].Text) == "INITIALIZE") return false;  // always kept
  if (platform::MsgBox(std::string("This will delete the current MI.") + CR + "Are you sure ?",
                       Icon::Information, Buttons::YesNo) != Answer::Yes)
    return false;
  MicroInstruction& mi = ws.MITable(n);
  if (auto file = FindPath(ws.MISetPath, mi.Name)) {
    if (std::remove(file->c_str()) != 0) ThrowFileError(*file, errno);
  }
  ws.MIList.Rows.erase(ws.MIList.Rows.begin() + row);
  ws.MIList.Selected = -1;
  ws.MIList.Status.clear();  // it showed the deleted MI's description
  const bool wasOpen = mi.IsOpen;
  mi.ClearData();
  mi.InUse = false;
  mi.IsOpen = wasOpen;  // the editor showing it learns of the deletion below and closes
  ui.miSlotsMoved(RefreshMIList(ws));
  return true;
}

void OpenMIListEntry(Workspace& ws, MISetUi& ui, int row) {
  const int n = SlotOfRow(ws, row);
  if (n <= 0) return;
  MicroInstruction& mi = ws.MITable(n);
  if (!IsMIName(mi.Name)) {
    ui.openCallableProgram(CallTarget(mi));
    return;
  }
  if (mi.IsOpen) {
    platform::Beep();
    return;
  }
  const int slot = FreeMIEditorSlot(ws);
  if (slot == 0) {
    platform::MsgBox(std::string("Too many micro instructions are open in editors,") + CR +
                         "close one or more and try again.",
                     Icon::Critical, Buttons::OK);
    return;
  }
  if (ui.openMIEditor(n, slot)) {
    mi.IsOpen = true;
    ws.MIEditorOpen(slot) = true;
  }
}

void SaveMISet(Workspace& ws) { SaveAllMIs(ws); }

} // namespace orvex
