#include "miset/mi_list.h"

#include <algorithm>

#include "workspace/numbers.h"

namespace orvex {

int RowIconFor(const std::string& name) {
  return IsMIName(name) ? kIconMI : kIconCallableProgram;
}

std::string RowKeyFor(int slot) { return "MI" + std::to_string(slot); }

int SlotOfRow(const Workspace& ws, int row) {
  if (row < 1 || row >= static_cast<int>(ws.MIList.Rows.size())) return 0;
  const std::string& key = ws.MIList.Rows[row].Key;
  // The record index is the key from its third character on.
  if (key.size() < 3) return 0;
  return static_cast<int>(Val(key.substr(2)));
}

int RowOfSlot(const Workspace& ws, int slot) {
  const std::string key = RowKeyFor(slot);
  for (std::size_t r = 1; r < ws.MIList.Rows.size(); ++r)
    if (ws.MIList.Rows[r].Key == key) return static_cast<int>(r);
  return -1;
}

void ClearMIList(Workspace& ws) {
  ws.MIList.Rows.clear();
  ws.MIList.Rows.push_back({"", kBreakpointText, kIconBreakpoint});
  ws.MIList.Selected = -1;
}

void AddMIListRow(Workspace& ws, int slot) {
  const MicroInstruction& mi = ws.MITable(slot);
  if (ws.MIList.Rows.empty()) ClearMIList(ws);
  ws.MIList.Rows.push_back({RowKeyFor(slot), NameWithoutExtension(mi.Name), RowIconFor(mi.Name)});
}

std::vector<int> RefreshMIList(Workspace& ws) {
  const int oldCount = ws.MICount;
  const int selectedSlot = SlotOfRow(ws, ws.MIList.Selected);
  const bool breakpointSelected = ws.MIList.Selected == 0;

  // Compact: records in use move down to 1..count, keeping their order.
  std::vector<int> newIndexOf(static_cast<std::size_t>(oldCount) + 1, 0);
  int count = 0;
  for (int k = 1; k <= oldCount; ++k) {
    if (!ws.MITable(k).InUse) continue;
    ++count;
    if (count != k) {
      ws.MITable(count) = std::move(ws.MITable(k));
      ws.MITable(k) = MicroInstruction{};
    }
    newIndexOf[k] = count;
  }
  ws.MICount = static_cast<std::int16_t>(count);

  // Order by upper-case name; a stable sort keeps table order among equal names.
  std::vector<int> order(count);
  for (int k = 1; k <= count; ++k) order[k - 1] = k;
  std::vector<std::string> keys(count + 1);
  for (int k = 1; k <= count; ++k) keys[k] = Upper(ws.MITable(k).Name);
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return keys[a] < keys[b]; });

  ClearMIList(ws);
  for (int k : order) AddMIListRow(ws, k);

  if (breakpointSelected) ws.MIList.Selected = 0;
  else if (selectedSlot > 0 && selectedSlot <= oldCount && newIndexOf[selectedSlot] > 0)
    ws.MIList.Selected = RowOfSlot(ws, newIndexOf[selectedSlot]);
  ws.NotifyMIListChanged();
  return newIndexOf;
}

void ClickMIListRow(Workspace& ws, int row) {
  if (row < 0 || row >= static_cast<int>(ws.MIList.Rows.size())) return;
  ws.MIList.Selected = row;
  if (row == 0) {
    ws.MIList.Status = kBreakpointText;
  } else {
    const int slot = SlotOfRow(ws, row);
    ws.MIList.Status = slot > 0 ? ws.MITable(slot).Description : std::string();
  }
  ws.NotifyMIListChanged();
}

} // namespace orvex
