// The program table: new, open, save, save as and save all of quantum programs, opening a
// callable program from the MI list, closing a program, and the program editor's row
// operations. Qt-free: each slot's content is ws.Program(slot) (Rows[0] is the "Start" row,
// Caption, Status, Changed, Visible); the editor window renders it and calls these operations.
// Every message goes through platform::MsgBox, every file dialog through platform::ChooseFile.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "program/program_file.h"
#include "program/program_ui.h"
#include "workspace/workspace.h"

namespace orvex {

// An empty program "New" in the first free slot, shown and arranged. Returns the slot, or 0
// after "No more programs can be loaded".
int NewProgram(Workspace& ws, ProgramUi& ui);

// Opens a program file (asking with "Open quantum program" when `path` is empty) into the
// first free slot: caption = file name without extension, status "Program ready". Returns
// the slot, or 0 when cancelled or refused ("This program has already been opened.", names
// compared after lower-casing; "No more programs can be loaded"). File errors are thrown.
int OpenProgram(Workspace& ws, ProgramUi& ui, const std::optional<std::string>& path = {});

// Rows := "Start" followed by the rows the file holds. Throws the file error.
void ReadProgramFile(Workspace& ws, const std::string& path, int slot);

// Saves the program of `slot`; asks for a name ("Save program as") when it is unnamed or
// `ask` is set, refusing a name another slot holds ("Unable to save " name CR "This file is
// opened by Orvex, choose another name."). A new file's directory is created with the user's
// consent ("Failed to create (sub)directory!" otherwise; the program becomes "New" again, its
// caption too).
// True when the file was written; the Changed flag is cleared then.
bool SaveProgram(Workspace& ws, ProgramUi& ui, int slot, bool ask = false);

// The menu's "Save program as": asks for a name; a file that is open as another program is
// refused with "Cannot save to an open program". The program then carries the new name; a
// new directory that cannot be made leaves it "New", as SaveProgram does. True when written.
bool SaveProgramAs(Workspace& ws, ProgramUi& ui, int slot);

// Saves every MI of the set, then every program in use whose editor is visible, in slot order.
void SaveAllPrograms(Workspace& ws, ProgramUi& ui);

// Double-click on a callable-program row of the MI list: opens the program file
// `relativePath` (relative to AppDir). Refusals: "Program file " CR name CR "could not be
// found.", "This program has already been opened.", "Too many programs are currently open,
// close one or more programs and try again.". Returns the slot, or 0.
int OpenCallableProgram(Workspace& ws, ProgramUi& ui, const std::string& relativePath);

// Closing an editor: refused while the program runs ("Cannot close when program is still
// running"); with unsaved changes asks "Changes have been made in " name "." CR "Save before
// closing?" (Cancel clears ws.Closing). True when the slot was freed. When the user chose Yes
// but the save did not complete, the slot stays open (nothing is lost) and Closing is cleared.
bool CloseProgram(Workspace& ws, ProgramUi& ui, int slot);
// Frees a slot without questions. CloseProgram of a free slot asks nothing and returns true.
void FreeProgramSlot(Workspace& ws, int slot);

// The questions of the main window's close: ws.Closing is set; then for every slot 1..10 with
// unsaved changes the question of CloseProgram is asked (Yes saves, No goes on, Cancel stops
// at once: Closing cleared, false returned, the programs not yet asked about stay open and
// unsaved). True when the user went through every question; the slots stay as they are, for
// the windows that close next. QueryClosePrograms (run/run_controller.h) resets a run first.
bool AskToSavePrograms(Workspace& ws, ProgramUi& ui);

// --- program editor rows (0-based row indices; row 0 is "Start") ---------------------------

// Removes row `row` (Delete, Ctrl+D, "Remove MI" while not running); row 0 and rows out of
// range are never removed. Marks the program changed. True when removed.
bool RemoveRow(Workspace& ws, int slot, int row);
// Keys in the editor's list: Delete (46) or Ctrl+D (68) removes `selectedRow`, Ctrl+S (83)
// saves. While any program runs every key only beeps. Does nothing for slot 0 or less.
// True when the key was one of these (or beeped).
inline constexpr int kKeyDelete = 46, kKeyD = 68, kKeyS = 83;
bool EditorKey(Workspace& ws, ProgramUi& ui, int slot, int keyCode, bool ctrl, int selectedRow);
// "Clear program": every row after the "Start" row removed; no question; the program is marked
// changed. Does nothing while a program runs or when there is nothing to remove.
void ClearProgram(Workspace& ws, int slot);
// A drop of an MI list entry on row `targetRow` (-1: no row under the cursor, append at the
// end): a row is inserted directly below it. The breakpoint entry (empty key or breakpoint
// icon) gives "Breakpoint"; a callable program (icon 19) a program row; else an MI row.
// Ignored while a program runs; a list of 1000 rows gets "Too many Micro Instructions.".
// Sets status "Program ready" and Changed. True when inserted.
bool DropMIListEntry(Workspace& ws, int slot, int targetRow, const MIListRow& entry);
// A row dragged within the editor onto row `targetRow` moves to directly below it (a drop
// with no row under the cursor moves it to the end). Row 0 does not move. Ignored while a
// program runs. Marks changed. True when moved.
bool MoveRow(Workspace& ws, int slot, int row, int targetRow);

// The program file at `path` read for opening: its rows, or nullopt after the message
// "The file " name " is not a quantum program." when it does not look like one (nothing is
// opened then). Throws the file error.
std::optional<std::vector<ProgramRow>> ReadProgramForOpening(const std::string& path);
// Before a program is saved over `path`: true when there is no such file, when it is empty
// or ours, or when the user agrees to replace a file Orvex did not write (Yes/No question).
bool ConfirmProgramOverwrite(const std::string& path);

} // namespace orvex
