#include "miset/open_miset.h"

#include <algorithm>
#include <filesystem>

#include "mi/initialize.h"
#include "mi/mi_file.h"
#include "miset/mi_list.h"
#include "miset/qubits_file.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

using platform::Answer;
using platform::Buttons;
using platform::CR;
using platform::Icon;

bool RefuseWhileProgramRuns(const Workspace& ws) {
  if (ws.RunningProgram <= 0) return false;
  platform::MsgBox(std::string("A Quantum Program is currently running,") + CR +
                       "stop the Quantum Program and try again",
                   Icon::Critical, Buttons::OK);
  return true;
}

bool CloseAllMIEditors(Workspace& ws, MISetUi& ui) {
  int open = 0;
  for (int s = 1; s <= kMaxMIEditors; ++s)
    if (ws.MIEditorOpen(s)) ++open;
  if (open == 0) return true;

  std::string question;
  if (open == 1)
    question = "There is still 1 MI open.\r\nDo you want to save it before opening another MI-set?";
  else
    question = "There are still " + std::to_string(open) +
               " MIs open.\r\nDo you want to save them before opening another MI-set?";
  const Answer a = platform::MsgBox(question, Icon::Information, Buttons::YesNoCancel);
  if (a == Answer::Cancel) return false;

  for (int s = 1; s <= kMaxMIEditors; ++s) {
    if (!ws.MIEditorOpen(s)) continue;
    if (!ui.closeMIEditor(s, a == Answer::Yes)) return false;
  }
  return true;
}

std::vector<std::string> ListMISets(const Workspace& ws) {
  std::vector<std::string> names;
  for (const std::string& n : ListDirectories(MISetContainer(ws)))
    if (n != "." && n != "..") names.push_back(n);
  // Directory order is arbitrary on most file systems; the chooser lists the sets by name
  // without regard to case, and its first row is the one preselected at start-up.
  std::stable_sort(names.begin(), names.end(),
                   [](const std::string& a, const std::string& b) { return Upper(a) < Upper(b); });
  return names;
}

bool ApplySetChoice(Workspace& ws, const std::vector<std::string>& names,
                    std::optional<int> choice, int selected) {
  int row = -1;
  if (choice) row = *choice;
  // A set must be open after start-up: the row selected then, or the first when none is.
  else if (ws.MISetPath.empty()) row = selected >= 0 ? selected : 0;
  if (row < 0 || row >= static_cast<int>(names.size())) return false;
  ws.MISetPath = MISetContainer(ws) + names[row] + "/";
  return true;
}

std::string SetNameOf(const std::string& miSetPath) {
  std::string p = miSetPath;
  while (!p.empty() && IsSeparator(p.back())) p.pop_back();
  return FileNameOf(p);
}

void ClearMITable(Workspace& ws) {
  for (int k = 1; k <= kMaxMIs; ++k) ws.MITable(k).InUse = false;
  ws.MICount = 0;
  ClearMIList(ws);
}

namespace {

// The next record of the table; the subscript error when all 500 are taken.
int AppendRecord(Workspace& ws, const std::string& name) {
  if (ws.MICount >= kMaxMIs)
    ThrowSubscriptOutOfRange("the MI set holds more than 500 micro instructions and programs; "
                             "only the first 500 were loaded");
  ++ws.MICount;
  MicroInstruction& mi = ws.MITable(ws.MICount);
  mi = MicroInstruction{};
  mi.InUse = true;
  mi.Name = FileNameOf(name);
  return ws.MICount;
}

// With no set directory at all the chooser would offer nothing; start the user off with one.
void EnsureSomeSet(Workspace& ws) {
  if (!ListMISets(ws).empty()) return;
  std::error_code ec;
  std::filesystem::create_directories(MISetContainer(ws) + "Default", ec);
  if (ec) {
    ThrowFileError(MISetContainer(ws) + "Default", ec.value());
  }
  platform::MsgBox(std::string("No micro instruction set was found.") + CR +
                       "The empty set Default was created.",
                   Icon::Information, Buttons::OK);
}

} // namespace

void LoadMIFiles(Workspace& ws) {
  for (const std::string& name : ListFiles(ws.MISetPath, ".MI")) {
    const int n = AppendRecord(ws, name);
    try {
      ReadMI(ws.MISetPath + ws.MITable(n).Name, ws.MITable(n));
    } catch (const RuntimeError& e) {
      // A file the reader rejects is reported and left out; the other files still load.
      platform::MsgBox("The micro instruction file " + name + " could not be read." + CR +
                           e.description() + ", errorcode: " + std::to_string(e.number()),
                       Icon::Exclamation, Buttons::OK);
      ws.MITable(n).InUse = false;
      --ws.MICount;
      continue;
    }
    AddMIListRow(ws, n);
  }
}

void LoadCallablePrograms(Workspace& ws) {
  // Collected first: the existence checks below list directories too.
  const std::vector<std::string> names = ListFiles(ws.MISetPath, ".MP");
  if (names.size() > 301)
    ThrowSubscriptOutOfRange("the MI set holds more than 301 callable programs; none of them "
                             "was loaded");
  for (const std::string& name : names) {
    const int n = AppendRecord(ws, name);
    MicroInstruction& mi = ws.MITable(n);
    ReadMPFile(ws.MISetPath + mi.Name, mi);
    const std::string program = CallTarget(mi);
    if (program.empty() || !FileExists(ws.AppDir + program)) {
      platform::MsgBox(std::string("Program file ") + CR + program + CR + "could not be found." +
                           CR + "Micro program " + mi.Name + " not loaded.",
                       Icon::Exclamation, Buttons::OK);
      mi.InUse = false;
      --ws.MICount;
      continue;
    }
    AddMIListRow(ws, n);
  }
}

void LoadSetFiles(Workspace& ws) {
  // Temporaries of writes that a crash or a kill interrupted go; the files they were for
  // still hold their last complete content.
  RemoveStaleTemporaries(ws.MISetPath);
  ReadQubitsFile(ws);
  LoadMIFiles(ws);
  LoadCallablePrograms(ws);
  EnsureInitializeMI(ws);
}

void OpenMISet(Workspace& ws, MISetUi& ui) {
  if (RefuseWhileProgramRuns(ws)) return;
  if (!CloseAllMIEditors(ws, ui)) return;
  ui.unloadQubitWindow();

  ClearMITable(ws);
  ws.NotifyMIListChanged();

  if (ws.MISetPath.empty()) EnsureSomeSet(ws);
  const std::vector<std::string> names = ListMISets(ws);
  int selected = names.empty() ? -1 : 0;
  const std::optional<int> choice = platform::ChooseOne(names, selected);
  ApplySetChoice(ws, names, choice, selected);
  ui.arrangeWindows();
  if (ws.MISetPath.empty()) return;  // nothing to open (no set directory could be made)

  if (!IsSeparator(ws.MISetPath.back())) ws.MISetPath += "/";
  ws.MIList.Caption = "Set: " + SetNameOf(ws.MISetPath);

  try {
    LoadSetFiles(ws);
  } catch (...) {
    // A full table leaves the records loaded so far; show them before the error is reported.
    ui.miSlotsMoved(RefreshMIList(ws));
    throw;
  }
  RefreshMIList(ws);
  ws.MIList.Status.clear();
  ws.NotifyMIListChanged();
}

} // namespace orvex
