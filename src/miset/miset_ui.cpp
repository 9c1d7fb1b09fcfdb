#include "miset/miset_ui.h"

#include <new>

#include "platform/dialogs.h"
#include "workspace/errors.h"

namespace orvex {

// Without windows there is no editor to keep open, no editor to show and nobody to answer.
bool MISetUi::closeMIEditor(int, bool) { return true; }
bool MISetUi::openMIEditor(int, int) { return false; }
std::optional<int> MISetUi::chooseSet(const std::vector<std::string>&, int&) { return std::nullopt; }
std::string MISetUi::askSetName(const std::string&) { return {}; }
std::optional<int> MISetUi::chooseQubitCount(int) { return std::nullopt; }
void MISetUi::openCallableProgram(const std::string&) {}
void MISetUi::miSlotsMoved(const std::vector<int>&) {}

void ReportRuntimeError(const RuntimeError& error) {
  platform::MsgBox(error.description() + ", errorcode: " + std::to_string(error.number()),
                   platform::Icon::Critical, platform::Buttons::OK);
}

bool RunCommand(const std::function<void()>& command) {
  try {
    command();
    return true;
  } catch (const RuntimeError& e) {
    ReportRuntimeError(e);
  } catch (const std::bad_alloc&) {
    platform::MsgBox("Out of memory, errorcode: 7", platform::Icon::Critical);
  } catch (const std::exception& e) {
    platform::MsgBox(e.what(), platform::Icon::Critical);
  }
  return false;
}

} // namespace orvex
