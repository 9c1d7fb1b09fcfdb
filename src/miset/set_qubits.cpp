#include "miset/set_qubits.h"

#include <utility>
#include <vector>

#include "mi/initialize.h"
#include "mi/mi_file.h"
#include "miset/qubits_file.h"
#include "platform/dialogs.h"
#include "workspace/paths.h"

namespace orvex {

using platform::Answer;
using platform::Buttons;
using platform::CR;
using platform::Icon;

namespace {

// The data of qubits above n is dropped from memory as well as from the files, so that a
// later increase starts those qubits from zero rather than from data the user was told is gone.
void DropQubitsAbove(Workspace& ws, int n) {
  for (int k = 1; k <= ws.MICount; ++k) {
    MicroInstruction& mi = ws.MITable(k);
    if (!mi.InUse) continue;
    for (int q = n + 1; q <= kMaxQubits; ++q)
      for (int p = 0; p < kFieldParameters; ++p) mi.Field(q, p) = 0;
    for (int i = 1; i <= kMaxQubits; ++i)
      for (int j = n + 1; j <= kMaxQubits; ++j)
        for (int c = 0; c < 3; ++c) {
          mi.J(i, j, c) = 0;
          mi.J(j, i, c) = 0;
        }
  }
}

} // namespace

namespace {

// Every MI file of the set for the new number and then qubits.dat, landed together: each file
// is staged first, so a failure (a full disk) leaves every file of the set as it was, and
// qubits.dat is renamed into place last, after the MIs it describes.
void RewriteSetFiles(Workspace& ws) {
  StagedWrites writes;
  for (int k = 1; k <= ws.MICount; ++k) {
    MicroInstruction& mi = ws.MITable(k);
    if (mi.InUse && IsMIName(mi.Name))
      writes.Stage(ws.MISetPath + mi.Name, FormatMI(mi, ws.NumberOfQubits, ws.Rnd()));
  }
  writes.Stage(QubitsFilePath(ws), QubitsFileBytes(ws.NumberOfQubits));
  writes.Commit();
}

} // namespace

bool SetQubits(Workspace& ws, MISetUi& ui, int n) {
  if (n < kMinQubits || n > kMaxQubits) ThrowSubscriptOutOfRange();
  const int c = ws.NumberOfQubits;
  if (n < c) {
    std::string first;
    if (n == c - 1)
      first = "Micro-instruction data for qubit " + std::to_string(c) + " will be removed permanently.";
    else
      first = "Micro-instruction data for qubits " + std::to_string(n + 1) + " - " +
              std::to_string(c) + " will be removed permanently.";
    const std::string text = first + CR + "Consider copying this MI Set to another location first." +
                             CR + "Press OK to update the current MI set.";
    if (platform::MsgBox(text, Icon::Information, Buttons::OKCancel) != Answer::OK) return false;
  }
  // What the change touches in memory, to put back when the files cannot be written.
  std::vector<std::pair<int, MicroInstruction>> before;
  for (int k = 1; k <= ws.MICount; ++k)
    if (ws.MITable(k).InUse) before.emplace_back(k, ws.MITable(k));
  try {
    ws.NumberOfQubits = static_cast<std::int16_t>(n);
    if (n < c)
      DropQubitsAbove(ws, n);
    else if (n > kMaxGroundStateQubits)
      FixGroundStateMI(ws);
    RewriteSetFiles(ws);
  } catch (...) {
    ws.NumberOfQubits = static_cast<std::int16_t>(c);
    for (auto& [k, mi] : before) ws.MITable(k) = std::move(mi);
    throw;
  }
  ui.unloadQubitWindow();
  return true;
}

bool ChangeQubitCount(Workspace& ws, MISetUi& ui) {
  const std::optional<int> n = platform::ChooseNumber(ws.NumberOfQubits, 2, kMaxQubits);
  return n && SetQubits(ws, ui, *n);
}

} // namespace orvex
