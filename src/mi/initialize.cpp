// The initialisation MI: created when a set lacks one, and moved off the ground state when
// the register grows past what the ground-state computation handles.
#include "mi/initialize.h"

#include "mi/mi_file.h"
#include "platform/dialogs.h"
#include "workspace/paths.h"

namespace orvex {

int NewMIRecord(Workspace& ws) {
  int slot = 0;
  for (int k = 1; k <= ws.MICount; ++k) {
    if (!ws.MITable(k).InUse) {
      slot = k;
      break;
    }
  }
  if (slot == 0) {
    if (ws.MICount >= kMaxMIs)
      ThrowSubscriptOutOfRange("the MI set already holds 500 micro instructions and programs");
    slot = ws.MICount + 1;
    ws.MICount = static_cast<std::int16_t>(slot);
  }
  // All data is zeroed, not only that of the open set's qubits: a reused slot must not
  // carry couplings of a larger register.
  ws.MITable(slot).ClearData();
  return slot;
}

int EnsureInitializeMI(Workspace& ws) {
  for (int k = 1; k <= ws.MICount; ++k)
    if (IsInitializeMI(ws.MITable(k).Name)) return 0;
  const int slot = NewMIRecord(ws);
  MicroInstruction& mi = ws.MITable(slot);
  mi.ClearData();
  mi.InUse = true;
  // The slot may be one whose MI was deleted while open in an editor: it must not pass for
  // open, or the list would only beep at it.
  mi.IsOpen = false;
  mi.IsNew = false;
  mi.Name = "Initialize.mi";
  mi.Description = "All qubits |0>";
  mi.CheckNorm = false;
  mi.InitialState = AllSpinUp;
  mi.TimeStepInPi = 0;
  ws.MIList.Rows.push_back({"MI" + std::to_string(slot), NameWithoutExtension(mi.Name), kIconMI});
  ws.NotifyMIListChanged();
  // A file of that name that is not in the table is one the reader rejected (the user was
  // told); it stays as it is until the user saves the new record over it.
  if (!FileExists(ws.MISetPath + mi.Name)) WriteMI(ws, slot);
  return slot;
}

bool FixGroundStateMI(Workspace& ws) {
  for (int k = 1; k <= ws.MICount; ++k) {
    MicroInstruction& mi = ws.MITable(k);
    if (mi.InUse && IsInitializeMI(mi.Name) && mi.InitialState == GroundState) {
      platform::MsgBox("Ground state changed  xxxx", platform::Icon::Information,
                       platform::Buttons::OK);
      mi.InitialState = AllSpinUp;
      return true;
    }
  }
  return false;
}

} // namespace orvex
