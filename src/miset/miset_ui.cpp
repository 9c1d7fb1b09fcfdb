#include "miset/miset_ui.h"

namespace orvex {

// Without windows there is no editor to keep open and no editor to show.
bool MISetUi::closeMIEditor(int, bool) { return true; }
bool MISetUi::openMIEditor(int, int) { return false; }
void MISetUi::openCallableProgram(const std::string&) {}
void MISetUi::miSlotsMoved(const std::vector<int>&) {}

} // namespace orvex
