// Changing the number of qubits of the open set: the warning when qubits go, the ground-state
// correction past 8 qubits, qubits.dat and every MI file rewritten.
#pragma once

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

namespace orvex {

inline constexpr int kMinQubits = 2;

// The OK button of the qubit-count window with the new number n (2..32). False when the user
// cancelled the warning (nothing changed).
bool SetQubits(Workspace& ws, MISetUi& ui, int n);
// The MI list's "Set number of qubits": the window, then SetQubits with its choice.
bool ChangeQubitCount(Workspace& ws, MISetUi& ui);

} // namespace orvex
