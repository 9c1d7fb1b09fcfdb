// qubits.dat: the number of qubits of a set, one line written as " 2 " CR LF.
#pragma once

#include "workspace/workspace.h"

namespace orvex {

// Reads MISetPath + "qubits.dat" into NumberOfQubits; when missing, NumberOfQubits := 2 and
// the file is written at once. The first integer of the file counts, blanks skipped. An empty
// file throws the run-time's "Input past end of file" (62), a first item that is not a number
// "Type mismatch" (13), a number outside 1..32 "Subscript out of range" (9); the descriptions
// name the file. NumberOfQubits is unchanged on error.
void ReadQubitsFile(Workspace& ws);
void WriteQubitsFile(const Workspace& ws);
// The path WriteQubitsFile writes (an existing qubits.dat in whatever case it has) and the
// bytes it writes for `numberOfQubits`, for writers that land it together with other files.
std::string QubitsFilePath(const Workspace& ws);
std::string QubitsFileBytes(int numberOfQubits);

// The container of all sets: AppDir + the existing "MI" directory in whatever case it has on
// disk, else AppDir + "MI/". Ends in "/".
std::string MISetContainer(const Workspace& ws);

} // namespace orvex
