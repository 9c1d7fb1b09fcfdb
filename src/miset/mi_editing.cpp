#include "miset/mi_editing.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <memory>

#include "mi/expression.h"
#include "mi/mi_file.h"
#include "miset/mi_list.h"
#include "platform/dialogs.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

using platform::Buttons;
using platform::CR;
using platform::Icon;

std::optional<double> ParseNumberCell(const std::string& text) {
  const std::string t = Trim(text);
  if (t.empty()) return std::nullopt;
  std::size_t consumed = 0;
  double v = 0;
  try {
    v = Val(t, consumed);
  } catch (const RuntimeError&) {
    return std::nullopt;  // beyond the range of a Double (1E400): refused like any non-number
  }
  if (consumed == t.size()) {
    if (!std::isfinite(v)) return std::nullopt;
    return v;
  }
  // Not one plain number: the cell may hold arithmetic ("pi/2", "1e-3*5"), stored as its value.
  return EvaluateExpression(t);
}

std::optional<std::int32_t> ParseCountCell(const std::string& text) {
  const std::optional<double> v = ParseNumberCell(text);
  if (!v || *v != std::floor(*v) || *v < -2147483648.0 || *v > 2147483647.0) return std::nullopt;
  return static_cast<std::int32_t>(*v);
}

void ReportNotANumber(const std::string& where, const std::string& text) {
  platform::MsgBox("The value \"" + text + "\" of " + where + " is not a number." + CR +
                       "Correct it and try again.",
                   Icon::Critical, Buttons::OK);
}

void ReportNotAWholeNumber(const std::string& where, const std::string& text) {
  platform::MsgBox("The value \"" + text + "\" of " + where + " is not a whole number." + CR +
                       "Correct it and try again.",
                   Icon::Critical, Buttons::OK);
}

std::string EditableName(const std::string& recordName) { return NameWithoutExtension(recordName); }

std::string RecordNameFor(const std::string& shownName, const std::string& recordName) {
  const std::string name = Trim(shownName);
  if (name.size() > 3 && Upper(name.substr(name.size() - 3)) == ".MI") return name;
  const std::size_t dot = recordName.rfind('.');
  const std::string ext = dot == std::string::npos ? ".MI" : recordName.substr(dot);
  return name + (IsMIName(ext) ? ext : ".MI");
}

bool CheckMIName(const std::string& shownName) {
  const std::string name = Trim(shownName);
  if (name.empty()) {
    platform::MsgBox("The micro instruction needs a name.", Icon::Critical, Buttons::OK);
    return false;
  }
  // A program calls an MI as "@" + name + ".MI", and its reader ends a call at the first
  // "!" or "#" (a comment follows): such a name would come back cut.
  if (name.find_first_of("#!") != std::string::npos) {
    platform::MsgBox("The name " + name + " cannot be used for a micro instruction." + CR +
                         "Programs call an MI by its name, and a call ends at # or !.",
                     Icon::Critical, Buttons::OK);
    return false;
  }
  for (unsigned char ch : name) {
    if (ch < 32 || ch == 127 || std::string("/\\:*?\"<>|").find(static_cast<char>(ch)) != std::string::npos) {
      platform::MsgBox(std::string("The name ") + name + " cannot be used for a file." + CR +
                           "A name must not contain any of / \\ : * ? \" < > | or control characters.",
                       Icon::Critical, Buttons::OK);
      return false;
    }
  }
  return true;
}

bool CheckMIDescription(const std::string& description) {
  const std::string wanted = description.empty() ? std::string("(none)") : description;
  const std::string back = DescriptionAsReadBack(description);
  if (back == wanted) return true;
  platform::MsgBox("The description cannot be saved as it stands:" + std::string(1, CR) +
                       "the MI file would give it back as \"" + back + "\"." + CR +
                       "A description is one line that is not END or ABOUT and holds neither "
                       "INITIAL STATE nor CHECK NORM; change it and try again.",
                   Icon::Critical, Buttons::OK);
  return false;
}

std::vector<std::pair<int, int>> QubitPairs(int qubits) {
  std::vector<std::pair<int, int>> pairs;
  for (int i = 1; i <= qubits; ++i)
    for (int j = i + 1; j <= qubits; ++j) pairs.emplace_back(i, j);
  return pairs;
}

// A step in units of 2π is read back from the file's value line divided by 2π, and the
// printing of that line to 15 digits leaves noise in the last digit (.25 reads back as
// .250000000000001). The editor shows the user's figure: the value to 14 digits.
namespace {
double UserTimeStepFigure(double value) {
  char buf[40];
  auto printed = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 14);
  double figure = value;
  std::from_chars(buf, printed.ptr, figure, std::chars_format::general);
  return figure;
}
} // namespace

MIEdit LoadMIEdit(const Workspace& ws, int n, int qubits) {
  const MicroInstruction& mi = ws.MITable(n);
  MIEdit e;
  if (qubits <= 0) qubits = ws.NumberOfQubits;
  e.Qubits = qubits;
  e.Name = EditableName(mi.Name);
  e.Description = mi.Description;
  e.TimeStepInPi = mi.TimeStepInPi == 1;
  e.TimeStep = e.TimeStepInPi ? UserTimeStepFigure(mi.TimeStep) : mi.TimeStep;
  e.FieldSteps = mi.FieldSteps;
  e.IntermediateSteps = mi.IntermediateSteps;
  e.CheckNorm = mi.CheckNorm;
  e.InitialState = mi.InitialState;
  e.Field.resize(qubits);
  for (int q = 1; q <= qubits; ++q)
    for (int c = 0; c < kFieldParameters; ++c)
      e.Field[q - 1][c] = mi.Field(q, Workspace::FieldColumnMap[c]);
  for (auto [i, j] : QubitPairs(qubits))
    e.J.push_back({mi.J(i, j, 0), mi.J(i, j, 1), mi.J(i, j, 2)});
  return e;
}

namespace {

// After an MI was saved under a new name, its file under the old name goes, unless another MI
// of the set still has that name (then the file is that MI's). A name that differs only in
// letter case names the same file, which the save has replaced already.
void RemoveRenamedMIFile(const Workspace& ws, int n, const std::string& previousName) {
  if (previousName.empty() || Upper(previousName) == Upper(ws.MITable(n).Name)) return;
  for (int k = 1; k <= ws.MICount; ++k)
    if (k != n && ws.MITable(k).InUse && Upper(ws.MITable(k).Name) == Upper(previousName)) return;
  if (auto old = FindPath(ws.MISetPath, previousName)) {
    std::error_code ec;
    std::filesystem::remove(*old, ec);  // a file that cannot be removed only stays behind
  }
}

void RestoreRecord(Workspace& ws, int n, const MicroInstruction& before) {
  ws.MITable(n) = before;
  const int row = RowOfSlot(ws, n);
  if (row >= 0) {
    ws.MIList.Rows[row].Text = NameWithoutExtension(before.Name);
    ws.NotifyMIListChanged();
  }
}

} // namespace

bool StoreMIEdit(Workspace& ws, int n, const MIEdit& edit) {
  if (!CheckMIName(edit.Name)) return false;
  const std::string description = Trim(edit.Description);
  if (!CheckMIDescription(description)) return false;
  MicroInstruction& mi = ws.MITable(n);
  const std::string name = RecordNameFor(edit.Name, mi.Name);
  if (IsInitializeMI(name) && edit.InitialState == GroundState &&
      ws.NumberOfQubits > kMaxGroundStateQubits) {
    platform::MsgBox("The ground state can be computed for " + std::to_string(kMaxGroundStateQubits) +
                         " qubits or fewer only." + CR + "Choose another initial state.",
                     Icon::Critical, Buttons::OK);
    return false;
  }
  const MicroInstruction before = mi;
  const std::string previousName = mi.Name;
  mi.Name = name;
  mi.Description = description;
  mi.TimeStep = edit.TimeStep;
  mi.TimeStepInPi = edit.TimeStepInPi ? 1 : 0;
  mi.FieldSteps = edit.FieldSteps;
  mi.IntermediateSteps = edit.IntermediateSteps;
  mi.CheckNorm = edit.CheckNorm;
  if (edit.InitialState >= GroundState && edit.InitialState <= RandomState)
    mi.InitialState = edit.InitialState;
  const int shown = edit.Qubits > 0 ? edit.Qubits : static_cast<int>(edit.Field.size());
  const int qubits = std::min<int>({ws.NumberOfQubits, shown, static_cast<int>(edit.Field.size())});
  for (int q = 1; q <= qubits; ++q)
    for (int c = 0; c < kFieldParameters; ++c)
      mi.Field(q, Workspace::FieldColumnMap[c]) = edit.Field[q - 1][c];
  // The rows of the coupling grid are the pairs of the number the editor shows.
  const auto pairs = QubitPairs(shown);
  for (std::size_t p = 0; p < pairs.size() && p < edit.J.size(); ++p) {
    if (pairs[p].second > ws.NumberOfQubits) continue;
    for (int c = 0; c < 3; ++c) mi.J(pairs[p].first, pairs[p].second, c) = edit.J[p][c];
  }
  // A refused or failed save leaves the record (and its list row) as it was, so that nothing
  // else, "Save MI set" above all, writes the refused name; the editor keeps the edits.
  bool saved = false;
  try {
    saved = SaveMI(ws, n);
  } catch (...) {
    RestoreRecord(ws, n, before);
    throw;
  }
  if (!saved) {
    RestoreRecord(ws, n, before);
    return false;
  }
  RemoveRenamedMIFile(ws, n, previousName);
  return true;
}

void ReleaseMIEditor(Workspace& ws, int editorSlot, int n) {
  if (editorSlot >= 1 && editorSlot <= kMaxMIEditors) ws.MIEditorOpen(editorSlot) = false;
  if (n >= 1 && n <= kMaxMIs) ws.MITable(n).IsOpen = false;
}

} // namespace orvex
