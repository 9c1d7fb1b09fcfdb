// Shared test fixtures: a fresh temporary application directory per test, and a dialog
// recorder that answers message boxes and file dialogs from a script.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dialogs.h"

namespace orvex::test {

// A fresh, empty directory under the system's temporary directory, removed afterwards.
class TempDir {
public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  // The directory, ending in "/".
  const std::string& path() const { return path_; }
  // Writes `bytes` to path() + relative (creating parent directories).
  std::string write(const std::string& relative, const std::string& bytes) const;
  std::string read(const std::string& relative) const;
  bool exists(const std::string& relative) const;

private:
  std::string path_;
};

// One recorded dialog.
struct RecordedDialog {
  std::string text;  // message text, or the file dialog's title
  platform::Icon icon = platform::Icon::None;
  platform::Buttons buttons = platform::Buttons::OK;
  bool isFileDialog = false;
  platform::FileRequest request;
  std::string detail;  // the message box's detail text
};

// Answers from a script, in order; a message with no scripted answer left is answered with
// its first button and recorded as unexpected (the test fails), a file dialog with cancel.
class ScriptedDialogs : public platform::DialogHandler {
public:
  ScriptedDialogs();   // installs itself
  ~ScriptedDialogs();  // restores the previous handler

  void answer(platform::Answer a) { answers_.push_back(a); }
  void file(std::optional<std::string> path) { files_.push_back(std::move(path)); }
  // Do not fail the test for messages answered without a script.
  void allowUnscripted() { strict_ = false; }

  platform::Answer message(const std::string& text, platform::Icon icon,
                           platform::Buttons buttons, const std::string& detail) override;
  std::optional<std::string> chooseFile(const platform::FileRequest& request) override;
  void beep() override { ++beeps; }

  std::vector<RecordedDialog> shown;  // every message and file dialog, in order
  int beeps = 0;
  // Texts of the message boxes shown, in order.
  std::vector<std::string> messages() const;
  bool scriptUsedUp() const { return answers_.empty() && files_.empty(); }

private:
  platform::DialogHandler* previous_;
  std::deque<platform::Answer> answers_;
  std::deque<std::optional<std::string>> files_;
  bool strict_ = true;
};

} // namespace orvex::test
