#include "miset/add_program.h"

#include "mi/initialize.h"
#include "miset/mi_list.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

int AddQuantumProgram(Workspace& ws, MISetUi& ui) {
  platform::FileRequest request;
  request.title = "Add Quantum Program";
  request.filter = kProgramFilter;
  request.directory = ws.FileDialogDir;
  const std::optional<std::string> chosen = platform::ChooseFile(request);
  if (!chosen || chosen->empty()) return 0;

  ws.FileDialogDir = DirectoryOf(*chosen);
  const std::string relative = RelativePath(*chosen, ws.AppDir);

  // A substring test on purpose: a.kvp counts as added when progs/a.kvp is. An entry read
  // from a ".MP" file may name its program with "\"; ours uses "/".
  for (int k = 1; k <= ws.MICount; ++k) {
    const MicroInstruction& mi = ws.MITable(k);
    if (!mi.InUse || Upper(mi.Name.size() >= 2 ? mi.Name.substr(mi.Name.size() - 2) : mi.Name) != "MP")
      continue;
    if (Lower(NormalizeSeparators(mi.Description)).find(relative) != std::string::npos) {
      platform::MsgBox("This program has already been added.", platform::Icon::Information,
                       platform::Buttons::OK);
      return 0;
    }
  }

  // Programs call the entry as "@" + name + ".MP", and a call ends at "!" or "#".
  const std::string entryName = NameWithoutExtension(FileNameOf(relative));
  if (entryName.find_first_of("#!") != std::string::npos) {
    platform::MsgBox("The program " + entryName + " cannot be added." + platform::CR +
                         "Programs call it by its name, and a call ends at # or !." +
                         platform::CR + "Save the program under another name first.",
                     platform::Icon::Critical, platform::Buttons::OK);
    return 0;
  }

  const int n = NewMIRecord(ws);
  MicroInstruction& mi = ws.MITable(n);
  mi.InUse = true;
  mi.IsOpen = false;
  mi.IsNew = false;
  mi.Description = "Run: " + relative;
  mi.Name = entryName + ".MP";
  try {
    WriteMPFile(ws.MISetPath + mi.Name, mi);
  } catch (...) {
    mi.InUse = false;  // no entry without its file
    throw;
  }
  AddMIListRow(ws, n);
  const std::vector<int> moved = RefreshMIList(ws);
  ui.miSlotsMoved(moved);
  return moved[n];
}

} // namespace orvex
