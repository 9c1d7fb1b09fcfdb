// The program table and the program editor's row operations.
#include "program/program_table.h"

#include "mi/mi_file.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

using platform::CR;

int FirstFreeSlot(const Workspace& ws) {
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (ws.Program(s).Name.empty()) return s;
  return 0;
}

// The slot other than `except` that holds `name` (compared after lower-casing), or 0.
int SlotHolding(const Workspace& ws, const std::string& name, int except = 0) {
  const std::string wanted = Lower(name);
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (s != except && !ws.Program(s).Name.empty() && Lower(ws.Program(s).Name) == wanted)
      return s;
  return 0;
}

std::string CaptionOf(const std::string& name) { return NameWithoutExtension(FileNameOf(name)); }

std::vector<ProgramRow> StartRowOnly() { return {ProgramRow{"Start", kIconStart}}; }

std::optional<std::string> AskProgramFile(Workspace& ws, const char* title, bool save) {
  platform::FileRequest request;
  request.title = title;
  request.filter = kProgramFilter;
  request.directory = ws.FileDialogDir;
  request.save = save;
  auto chosen = platform::ChooseFile(request);
  if (!chosen || chosen->empty()) return std::nullopt;
  ws.FileDialogDir = DirectoryOf(*chosen);
  return chosen;
}

// The editor's rows of the program file at `path`: "Start", then the file's rows.
std::vector<ProgramRow> EditorRowsOf(const std::string& path) {
  std::vector<ProgramRow> rows = StartRowOnly();
  for (ProgramRow& row : ReadProgramRows(path)) rows.push_back(std::move(row));
  return rows;
}

// Puts a program into a free slot and shows its editor, arranged with the others.
int ShowInSlot(Workspace& ws, ProgramUi& ui, int slot, const std::string& name,
               std::vector<ProgramRow> rows, const std::string& caption,
               const std::string& status) {
  FreeProgramSlot(ws, slot);
  ProgramSlot& program = ws.Program(slot);
  program.Rows = std::move(rows);
  program.Name = name;
  program.Caption = caption;
  program.Status = status;
  program.Visible = true;
  ui.showEditor(slot);
  ui.arrangeWindows();
  ui.programChanged(slot);
  return slot;
}

// Fills a free slot with the program file at `path` (already checked) under `name`; 0 when
// the file is no quantum program (after its message).
int LoadIntoSlot(Workspace& ws, ProgramUi& ui, int slot, const std::string& path,
                 const std::string& name) {
  // Read first: a failure or a refusal changes nothing.
  std::optional<std::vector<ProgramRow>> read = ReadProgramForOpening(path);
  if (!read) return 0;
  std::vector<ProgramRow> rows = StartRowOnly();
  for (ProgramRow& row : *read) rows.push_back(std::move(row));
  return ShowInSlot(ws, ui, slot, name, std::move(rows), CaptionOf(name), "Program ready");
}

// Where the program `name` (relative to AppDir) is written: the existing file or directory in
// whatever letter case it has on disk.
std::string ProgramFilePath(const Workspace& ws, const std::string& name) {
  const std::string full = ws.AppDir + NormalizeSeparators(name);
  if (auto existing = ResolvePath(full)) return *existing;
  std::string dir = ws.AppDir + NormalizeSeparators(DirectoryOf(name));
  if (auto existing = ResolvePath(dir)) dir = *existing;
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir + FileNameOf(name);
}

// Writes the program of `slot`, whose name is settled, to `target`. The directory of a new
// file is created first; when that fails the program becomes unnamed ("New") again, so that
// the next save asks for a name. When the file cannot be written (the error travels on), the
// program keeps `previousName` and its caption: it is not named after a file it never got.
bool WriteNamedProgram(Workspace& ws, ProgramUi& ui, int slot, const std::string& target,
                       const std::string& previousName) {
  ProgramSlot& program = ws.Program(slot);
  const std::string directory = DirectoryOf(target);
  if (!FileExists(target) && !directory.empty() && !DirectoryExists(directory) &&
      !EnsureDirectory(directory)) {
    platform::MsgBox("Failed to create (sub)directory!", platform::Icon::Critical);
    program.Name = "New";
    program.Caption = "New";  // the caption always names the program the slot holds
    ui.programChanged(slot);
    return false;
  }
  if (!ConfirmProgramOverwrite(target)) {  // a file Orvex did not write stays as it is
    program.Name = previousName;
    ui.programChanged(slot);
    return false;
  }
  const std::string previousCaption = program.Caption;
  program.Caption = CaptionOf(program.Name);
  try {
    WriteProgramFile(target, program.Name, program.Rows);
  } catch (...) {
    program.Name = previousName;
    program.Caption = previousCaption;
    ui.programChanged(slot);
    throw;
  }
  program.Changed = false;
  ui.programChanged(slot);
  return true;
}

} // namespace

std::optional<std::vector<ProgramRow>> ReadProgramForOpening(const std::string& path) {
  const std::string bytes = ReadWholeFile(path);
  if (!LooksLikeProgram(bytes)) {
    platform::MsgBox("The file " + FileNameOf(NormalizeSeparators(path)) +
                         " is not a quantum program." + platform::CR +
                         "A quantum program holds only lines that begin with @, ! or #; "
                         "the file was not opened.",
                     platform::Icon::Exclamation, platform::Buttons::OK);
    return std::nullopt;
  }
  return ParseProgram(bytes);
}

bool ConfirmProgramOverwrite(const std::string& path) {
  const std::optional<std::string> existing = ResolvePath(path);
  if (!existing || !FileExists(*existing)) return true;
  std::string bytes;
  try {
    bytes = ReadWholeFile(*existing);
  } catch (const RuntimeError& e) {
    // A file we cannot read is not taken for ours; too large a file is certainly not.
    if (e.code() != ErrorNumber::OutOfMemory) return true;  // the write reports it
    bytes = "?";
  }
  if (bytes.empty() || WrittenByOrvex(bytes)) return true;
  return platform::MsgBox("The file " + FileNameOf(*existing) + " was not written by Orvex." +
                              platform::CR + "Replace it with this program?",
                          platform::Icon::Exclamation,
                          platform::Buttons::YesNo) == platform::Answer::Yes;
}

int NewProgram(Workspace& ws, ProgramUi& ui) {
  const int slot = FirstFreeSlot(ws);
  if (slot == 0) {
    platform::MsgBox("No more programs can be loaded", platform::Icon::Information);
    return 0;
  }
  return ShowInSlot(ws, ui, slot, "New", StartRowOnly(), "New", "New program");
}

int OpenProgram(Workspace& ws, ProgramUi& ui, const std::optional<std::string>& path) {
  std::optional<std::string> chosen = path;
  if (!chosen || chosen->empty()) {
    chosen = AskProgramFile(ws, "Open quantum program", false);
    if (!chosen) return 0;
  }
  const std::string name = RelativePath(*chosen, ws.AppDir);
  if (SlotHolding(ws, name)) {
    platform::MsgBox("This program has already been opened.", platform::Icon::Information);
    return 0;
  }
  const int slot = FirstFreeSlot(ws);
  if (slot == 0) {
    platform::MsgBox("No more programs can be loaded", platform::Icon::Information);
    return 0;
  }
  return LoadIntoSlot(ws, ui, slot, *chosen, name);
}

void ReadProgramFile(Workspace& ws, const std::string& path, int slot) {
  ws.Program(slot).Rows = EditorRowsOf(path);
}

bool SaveProgram(Workspace& ws, ProgramUi& ui, int slot, bool ask) {
  ProgramSlot& program = ws.Program(slot);
  const std::string previousName = program.Name;
  std::optional<std::string> chosen;
  if (Lower(program.Name) == "new" || ask) {
    chosen = AskProgramFile(ws, "Save program as", true);
    if (!chosen) return false;
    const std::string name = RelativePath(*chosen, ws.AppDir);
    if (SlotHolding(ws, name, slot)) {
      platform::MsgBox("Unable to save " + name + CR +
                           "This file is opened by Orvex, choose another name.",
                       platform::Icon::Critical);
      return false;
    }
    program.Name = name;
  }
  // The stored name is lower case; a file chosen in the dialog keeps the case it was given.
  return WriteNamedProgram(ws, ui, slot, chosen ? *chosen : ProgramFilePath(ws, program.Name),
                           previousName);
}

bool SaveProgramAs(Workspace& ws, ProgramUi& ui, int slot) {
  ws.Program(slot);  // range check before the dialog
  auto chosen = AskProgramFile(ws, "Save program as", true);
  if (!chosen) return false;
  const std::string name = RelativePath(*chosen, ws.AppDir);
  if (SlotHolding(ws, name, slot)) {
    platform::MsgBox("Cannot save to an open program", platform::Icon::Critical);
    return false;
  }
  const std::string previousName = ws.Program(slot).Name;
  ws.Program(slot).Name = name;
  return WriteNamedProgram(ws, ui, slot, *chosen, previousName);
}

void SaveAllPrograms(Workspace& ws, ProgramUi& ui) {
  SaveAllMIs(ws);
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (!ws.Program(s).Name.empty() && ws.Program(s).Visible) SaveProgram(ws, ui, s, false);
}

int OpenCallableProgram(Workspace& ws, ProgramUi& ui, const std::string& relativePath) {
  const auto path = ResolvePath(ws.AppDir + NormalizeSeparators(relativePath));
  if (!path || !FileExists(*path)) {
    platform::MsgBox("Program file " + std::string(1, CR) + relativePath + CR +
                         "could not be found.",
                     platform::Icon::Exclamation);
    return 0;
  }
  const std::string name = RelativePath(*path, ws.AppDir);
  if (SlotHolding(ws, name) || SlotHolding(ws, relativePath)) {
    platform::MsgBox("This program has already been opened.", platform::Icon::Information);
    return 0;
  }
  const int slot = FirstFreeSlot(ws);
  if (slot == 0) {
    platform::MsgBox(
        "Too many programs are currently open, close one or more programs and try again.",
        platform::Icon::Information);
    return 0;
  }
  return LoadIntoSlot(ws, ui, slot, *path, name);
}

namespace {

// "Changes have been made in ..." for a changed program: Yes saves, No goes on. False (and
// Closing cleared) on Cancel or on a save that did not complete, so nothing is lost.
bool AskToSaveChanges(Workspace& ws, ProgramUi& ui, int slot) {
  const ProgramSlot& program = ws.Program(slot);
  if (program.Name.empty() || !program.Changed) return true;
  const platform::Answer answer = platform::MsgBox(
      "Changes have been made in " + FileNameOf(program.Name) + "." + CR + "Save before closing?",
      platform::Icon::Exclamation, platform::Buttons::YesNoCancel);
  if (answer == platform::Answer::Cancel ||
      (answer == platform::Answer::Yes && !SaveProgram(ws, ui, slot, false))) {
    ws.Closing = false;
    return false;
  }
  return true;
}

} // namespace

bool CloseProgram(Workspace& ws, ProgramUi& ui, int slot) {
  if (ws.RunningProgram == slot) {
    platform::MsgBox("Cannot close when program is still running", platform::Icon::Critical);
    return false;
  }
  if (!AskToSaveChanges(ws, ui, slot)) return false;
  FreeProgramSlot(ws, slot);
  return true;
}

bool AskToSavePrograms(Workspace& ws, ProgramUi& ui) {
  ws.Closing = true;
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (!AskToSaveChanges(ws, ui, s)) return false;
  return true;
}

void FreeProgramSlot(Workspace& ws, int slot) {
  ws.Program(slot) = ProgramSlot{};
  ws.ProgramQubits(slot) = 0;
  ws.CurrentStep(slot) = -1;
  ws.EngineEntry[slot - 1] = -1;
}

bool RemoveRow(Workspace& ws, int slot, int row) {
  ProgramSlot& program = ws.Program(slot);
  if (row < 1 || row >= static_cast<int>(program.Rows.size())) return false;
  program.Changed = true;
  program.Rows.erase(program.Rows.begin() + row);
  return true;
}

bool EditorKey(Workspace& ws, ProgramUi& ui, int slot, int keyCode, bool ctrl, int selectedRow) {
  if (slot <= 0) return false;
  if (ws.RunningProgram != -1) {
    platform::Beep();
    return true;
  }
  if (keyCode == kKeyDelete || (ctrl && keyCode == kKeyD)) {
    if (RemoveRow(ws, slot, selectedRow)) ui.programChanged(slot);
    return true;
  }
  if (ctrl && keyCode == kKeyS) {
    SaveProgram(ws, ui, slot, false);
    return true;
  }
  return false;
}

void ClearProgram(Workspace& ws, int slot) {
  ProgramSlot& program = ws.Program(slot);
  if (ws.RunningProgram != -1) return;
  // The "Start" row stays: rows dropped afterwards go below it, where they can be moved and
  // removed (the first row never can).
  const bool startRow = !program.Rows.empty() && program.Rows.front().Icon == kIconStart;
  const std::size_t keep = startRow ? 1 : 0;
  if (program.Rows.size() <= keep) return;
  while (program.Rows.size() > keep) program.Rows.erase(program.Rows.begin() + keep);
  // An edit like any other: the next Start saves the empty program, closing asks first.
  program.Changed = true;
}

bool DropMIListEntry(Workspace& ws, int slot, int targetRow, const MIListRow& entry) {
  ProgramSlot& program = ws.Program(slot);
  if (ws.RunningProgram != -1) return false;
  const int size = static_cast<int>(program.Rows.size());
  if (size >= kMaxRows) {
    platform::MsgBox("Too many Micro Instructions.", platform::Icon::Information);
    return false;
  }
  ProgramRow row;
  if (entry.Key.empty() || entry.Icon == kIconBreakpoint) {
    row = {"Breakpoint", kIconBreakpoint};
  } else if (entry.Icon == kIconCallableProgram) {
    row = {entry.Text, kIconProgramRow};
  } else {
    row = {entry.Text, kIconMI};
  }
  const int position = (targetRow < 0 || targetRow >= size) ? size : targetRow + 1;
  program.Rows.insert(program.Rows.begin() + position, row);
  program.Status = "Program ready";
  program.Changed = true;
  return true;
}

bool MoveRow(Workspace& ws, int slot, int row, int targetRow) {
  ProgramSlot& program = ws.Program(slot);
  if (ws.RunningProgram != -1) return false;
  const int size = static_cast<int>(program.Rows.size());
  if (row < 1 || row >= size) return false;
  const int position = (targetRow < 0 || targetRow >= size) ? size : targetRow + 1;
  const ProgramRow moved = program.Rows[row];
  program.Rows.insert(program.Rows.begin() + position, moved);
  program.Rows.erase(program.Rows.begin() + (position <= row ? row + 1 : row));
  program.Status = "Program ready";
  program.Changed = true;
  return true;
}

} // namespace orvex
