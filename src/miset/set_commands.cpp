#include "miset/set_commands.h"

#include <cstdio>
#include <filesystem>

#include "mi/initialize.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/qubits_file.h"
#include "platform/dialogs.h"
#include "workspace/paths.h"

namespace orvex {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

bool CheckSetName(const std::string& name) {
  // Tested in this order; "/" twice, as the list has always had it. The three non-ASCII
  // characters are looked for in their UTF-8 form, the form names typed in the windows have.
  static const char* const kIllegal[] = {
      "\\", ":", ".", "/", "*", "?", ">", "<", "$", "'", ";", "\xC2\xA3", "[", "{", "}",
      "#", "@", "\xC2\xAC", "\xC2\xA6", "`", "/"};
  for (const char* c : kIllegal) {
    if (name.find(c) != std::string::npos) {
      platform::MsgBox("Illegal directory name", Icon::Critical, Buttons::OK);
      return false;
    }
  }
  return true;
}

namespace {

// The name from the prompt; "" when cancelled or refused.
std::string AskName(const std::string& caption) {
  std::string name = platform::AskText(caption);
  if (name.empty() || !CheckSetName(name)) return {};
  return name;
}

} // namespace

bool NewMISet(Workspace& ws, MISetUi& ui) {
  if (RefuseWhileProgramRuns(ws)) return false;
  const std::string name = AskName("New MI set");
  if (name.empty()) return false;
  const std::string path = MISetContainer(ws) + name + "/";
  if (!EnsureDirectory(path)) return false;
  const std::string dir = ResolvePath(path).value_or(path);
  const std::string setPath = dir.back() == '/' ? dir : dir + "/";

  const std::vector<std::string> existing = ListFiles(setPath, ".mi");
  bool overwrite = false;
  if (!existing.empty()) {
    const Answer a = platform::MsgBox("MI Set " + name + " already exists, overwrite?",
                                      Icon::Information, Buttons::YesNoCancel);
    if (a == Answer::Cancel) return false;
    overwrite = a == Answer::Yes;
  }
  // The MIs open in editors belong to the set being left.
  if (!CloseAllMIEditors(ws, ui)) return false;
  ui.unloadQubitWindow();

  if (overwrite) {
    for (const std::string& f : existing) std::remove((setPath + f).c_str());
    if (auto q = FindPath(setPath, "qubits.dat")) std::remove(q->c_str());
  }
  ws.MISetPath = setPath;
  ws.MIList.Caption = "Set: " + SetNameOf(setPath);

  // The old set's MIs go before anything can fail, so that none of them is ever saved into
  // the new directory.
  ClearMITable(ws);
  RemoveStaleTemporaries(setPath);
  ReadQubitsFile(ws);
  try {
    LoadMIFiles(ws);
    EnsureInitializeMI(ws);
  } catch (...) {
    RefreshMIList(ws);
    throw;
  }
  RefreshMIList(ws);
  ws.MIList.Status.clear();
  ws.NotifyMIListChanged();
  return true;
}

bool CopyMISet(Workspace& ws) {
  if (RefuseWhileProgramRuns(ws)) return false;
  const std::string name = AskName("Copy MI set");
  if (name.empty()) return false;
  const std::string path = MISetContainer(ws) + name + "/";
  const bool existed = DirectoryExists(path);
  if (!EnsureDirectory(path)) return false;
  const std::string dir = ResolvePath(path).value_or(path);
  const std::string target = dir.back() == '/' ? dir : dir + "/";

  // The source set is only read: its qubits.dat is written straight into the copy. Every
  // file lands together, so a copy that fails half-way leaves nothing of itself behind.
  try {
    StagedWrites writes;
    for (const char* ext : {".MI", ".MP"})
      for (const std::string& f : ListFiles(ws.MISetPath, ext))
        writes.Stage(target + f, ReadWholeFile(ws.MISetPath + f));
    writes.Stage(target + "qubits.dat", QubitsFileBytes(ws.NumberOfQubits));
    writes.Commit();
  } catch (...) {
    if (!existed) {
      std::error_code ec;
      std::filesystem::remove(target, ec);  // only while empty: never someone else's files
    }
    throw;
  }

  ws.MISetPath = target;
  ws.MIList.Caption = "Set: " + SetNameOf(target);
  ws.NotifyMIListChanged();
  return true;
}

} // namespace orvex
