// Opening an MI set: closing the open MI editors, the set chooser, reading qubits.dat, every
// ".MI" file and every ".MP" entry into the MI table, and rebuilding the MI list.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

namespace orvex {

// True (after the running-program message) when a quantum program runs or is halted; the
// set commands refuse then.
bool RefuseWhileProgramRuns(const Workspace& ws);

// Asks whether to save the MIs open in editors and closes them through the editors'
// store-and-close. False when the user cancelled or an editor would not close.
bool CloseAllMIEditors(Workspace& ws, MISetUi& ui);

// The set directories the chooser lists: the directories of the MI container, "." and ".."
// left out, in name order without regard to case.
std::vector<std::string> ListMISets(const Workspace& ws);
// The chooser's rule: a chosen row becomes MISetPath; Cancel (nullopt) keeps the open set,
// or takes the row `selected` (the first row when none is) while no set is open yet. Returns
// false when nothing was set.
bool ApplySetChoice(Workspace& ws, const std::vector<std::string>& names,
                    std::optional<int> choice, int selected);

// The set name: the last component of MISetPath.
std::string SetNameOf(const std::string& miSetPath);

// Empties the MI table and the list (breakpoint row only).
void ClearMITable(Workspace& ws);
// Loads every ".MI" file of MISetPath into the next slots, with their rows. Throws the
// subscript error once 500 records are in use (the slots loaded so far stay).
void LoadMIFiles(Workspace& ws);
// Loads every ".MP" entry; an entry whose program file is missing is reported and dropped.
void LoadCallablePrograms(Workspace& ws);

// The files of the set at MISetPath into an empty MI table: stale temporaries removed,
// qubits.dat, every ".MI" file and ".MP" entry, and an INITIALIZE MI made when there is none.
// The workbench's opening and the command line's and scripts' runs all read a set this way.
// Throws the subscript error once 500 records are in use (the slots loaded so far stay).
void LoadSetFiles(Workspace& ws);

// OpenMISet: the whole opening sequence; afterwards a set is open (at start-up always).
void OpenMISet(Workspace& ws, MISetUi& ui);

} // namespace orvex
