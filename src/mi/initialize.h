// The initialisation MI: created when a set lacks it, corrected when the register grows past
// what the ground-state computation allows.
#pragma once

#include "workspace/workspace.h"

namespace orvex {

// Takes the next free slot for a new MI (the first slot 1..MICount not in use, else MICount
// + 1, raising MICount) and zeroes its data (all couplings and fields, the steps, the time
// step, the initial state and CheckNorm; name, description and flags are the caller's).
// Throws the subscript error when the table is full. Returns the slot.
int NewMIRecord(Workspace& ws);

// Creates "Initialize.mi" (all qubits |0>) when no slot 1..MICount is named INITIALIZE (in any
// case, any extension); adds its row to the MI list and writes the file, unless a file of that
// name (any case) is there already, which the reader must have rejected. Returns the slot
// created, or 0 when one existed.
int EnsureInitializeMI(Workspace& ws);

// For the first initialisation MI whose InitialState is the ground state: shows "Ground state
// changed  xxxx" (information) and sets it to all qubits |0>. Returns true when changed.
bool FixGroundStateMI(Workspace& ws);

} // namespace orvex
