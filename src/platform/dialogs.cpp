#include "platform/dialogs.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "workspace/errors.h"

namespace orvex::platform {

// Without windows nobody answers: every chooser is cancelled.
std::optional<int> UserPort::chooseOne(const std::vector<std::string>&, int&) { return std::nullopt; }
std::string UserPort::askText(const std::string&) { return {}; }
std::optional<int> UserPort::chooseNumber(int, int, int) { return std::nullopt; }

Answer FirstButton(Buttons buttons) {
  switch (buttons) {
  case Buttons::YesNo:
  case Buttons::YesNoCancel: return Answer::Yes;
  default: return Answer::OK;
  }
}

// ---- HeadlessPort -----------------------------------------------------------------------

Answer HeadlessPort::message(const std::string& text, Icon icon, Buttons buttons,
                             const std::string& detail) {
  messages.push_back({text, icon, detail});
  if (onMessage) onMessage(messages.back());
  return FirstButton(buttons);
}

std::optional<std::string> HeadlessPort::chooseFile(const FileRequest&) { return std::nullopt; }

void HeadlessPort::progress(const std::string& text, std::optional<double> fraction) {
  if (onProgress) onProgress(text, fraction);
}

bool HeadlessPort::failed() const {
  return std::any_of(messages.begin(), messages.end(),
                     [](const Message& m) { return m.icon == Icon::Critical; });
}

namespace {

std::string Joined(const HeadlessPort::Message& m) {
  std::string line = m.text;
  std::replace(line.begin(), line.end(), CR, '\n');
  if (!m.detail.empty()) line += "\nreason: " + m.detail;
  return line;
}

// The bottom of the stack: a headless port that keeps nothing.
class Nobody : public UserPort {
public:
  Answer message(const std::string&, Icon, Buttons buttons, const std::string&) override {
    return FirstButton(buttons);
  }
  std::optional<std::string> chooseFile(const FileRequest&) override { return std::nullopt; }
};

Nobody nobody;
// The installed ports, bottom first. The accuracy check installs its own from a worker thread
// while the user interface waits, hence the lock.
std::mutex stackLock;
std::vector<UserPort*> stack;

} // namespace

std::vector<std::string> HeadlessPort::errors() const {
  std::vector<std::string> out;
  for (const Message& m : messages)
    if (m.icon == Icon::Critical) out.push_back(Joined(m));
  return out;
}

std::vector<std::string> HeadlessPort::warnings() const {
  std::vector<std::string> out;
  for (const Message& m : messages)
    if (m.icon != Icon::Critical) out.push_back(Joined(m));
  return out;
}

// ---- the stack of ports -----------------------------------------------------------------

void InstallUserPort(UserPort* port) {
  if (!port) return;
  std::lock_guard<std::mutex> lock(stackLock);
  stack.push_back(port);
}

void RemoveUserPort(UserPort* port) {
  std::lock_guard<std::mutex> lock(stackLock);
  const auto it = std::find(stack.rbegin(), stack.rend(), port);
  if (it != stack.rend()) stack.erase(std::next(it).base());
}

UserPort& CurrentUserPort() {
  std::lock_guard<std::mutex> lock(stackLock);
  return stack.empty() ? static_cast<UserPort&>(nobody) : *stack.back();
}

UserPort& PortBelow(const UserPort* port) {
  std::lock_guard<std::mutex> lock(stackLock);
  const auto it = std::find(stack.rbegin(), stack.rend(), port);
  if (it == stack.rend() || std::next(it) == stack.rend()) return nobody;
  return **std::next(it);
}

// ---- entry points -----------------------------------------------------------------------

Answer MsgBox(const std::string& text, Icon icon, Buttons buttons, const std::string& detail) {
  return CurrentUserPort().message(text, icon, buttons, detail);
}

std::optional<std::string> ChooseFile(const FileRequest& request) {
  return CurrentUserPort().chooseFile(request);
}

std::optional<int> ChooseOne(const std::vector<std::string>& items, int& selected) {
  return CurrentUserPort().chooseOne(items, selected);
}

std::string AskText(const std::string& caption) { return CurrentUserPort().askText(caption); }

std::optional<int> ChooseNumber(int current, int minimum, int maximum) {
  return CurrentUserPort().chooseNumber(current, minimum, maximum);
}

void Beep() { CurrentUserPort().beep(); }

void ShowProgress(const std::string& text, std::optional<double> fraction) {
  CurrentUserPort().progress(text, fraction);
}

void KeepResponsive() { CurrentUserPort().keepResponsive(); }

bool CancelRequested() { return CurrentUserPort().cancelRequested(); }

} // namespace orvex::platform

namespace orvex {

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
