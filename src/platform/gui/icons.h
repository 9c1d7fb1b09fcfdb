// The workbench's images: the row icons of the MI list and the program editors (by their
// numbers: 1 MI, 2 breakpoint, 12 start, 14 program row, 19 callable program) and the tool
// bar commands. Drawn with QPainter, so they look the same everywhere, offscreen included.
#pragma once

#include <QIcon>

namespace orvex {

QIcon OrvexIcon(int number);

// The tool bar commands.
enum class ToolIcon {
  NewProgram, OpenProgram, SaveAll, NewMISet,                      // main tool bar
  OpenMISet, SaveMISet, CopyMISet, SetQubits, NewMI, CopyMI, SortMI, DeleteMI, AddProgram,  // MI list
  Start, Step, Back, Reset, Save, RemoveRow, ClearProgram,         // program editors
};
QIcon OrvexToolIcon(ToolIcon which);

} // namespace orvex
