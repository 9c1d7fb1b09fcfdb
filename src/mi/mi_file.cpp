// Reading an MI file from disk and the save operations around the writer.
#include "mi/mi_file.h"

#include "platform/dialogs.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

void ReadMI(const std::string& path, MicroInstruction& mi) {
  ParseMI(ReadWholeFile(path), mi, path);
}

void WriteMI(Workspace& ws, int n) {
  MicroInstruction& mi = ws.MITable(n);
  const std::string path = ws.MISetPath + mi.Name;
  WriteWholeFile(path, FormatMI(mi, ws.NumberOfQubits, ws.Rnd()));
}

bool SaveMI(Workspace& ws, int n) {
  MicroInstruction& mi = ws.MITable(n);
  if (mi.Name.find('.') == std::string::npos) mi.Name += ".mi";
  const std::string key = "MI" + std::to_string(n);
  for (MIListRow& row : ws.MIList.Rows) {
    if (row.Key == key) {
      row.Text = NameWithoutExtension(mi.Name);
      ws.NotifyMIListChanged();
      break;
    }
  }
  // The comparison is case-sensitive on purpose: A.MI and a.mi pass.
  for (int k = 1; k <= kMaxMIs; ++k) {
    const MicroInstruction& other = ws.MITable(k);
    if (k != n && other.InUse && other.Name == mi.Name) {
      platform::MsgBox("Another Micro instruction has the same name.",
                       platform::Icon::Exclamation, platform::Buttons::OK);
      return false;
    }
  }
  WriteMI(ws, n);
  return true;
}

void SaveAllMIs(Workspace& ws) {
  for (int k = 1; k <= ws.MICount; ++k) {
    const MicroInstruction& mi = ws.MITable(k);
    if (mi.InUse && IsMIName(mi.Name)) WriteMI(ws, k);
  }
}

} // namespace orvex
