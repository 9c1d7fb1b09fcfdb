// Shared test fixtures: a fresh temporary application directory per test, and a user port
// that answers questions from a script and records what the operations told the user.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
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

// One recorded question of a chooser, a text prompt or a number window.
struct RecordedQuestion {
  enum Kind { List, Text, Number } kind = List;
  std::vector<std::string> items;  // List: the rows offered
  int selected = -1;               // List: the row preselected; Number: the number offered
  std::string caption;             // Text: the prompt's caption
};

// One progress report.
struct RecordedProgress {
  std::string text;
  std::optional<double> fraction;
};

// The user port of the tests. Message boxes and file dialogs are answered from a script, in
// order; a message with no scripted answer left is answered with its first button and
// recorded as unexpected (the test fails), a file dialog with cancel. Choosers, text prompts
// and number windows are answered from their own script; unscripted, they go on to the port
// below (the workbench's windows in window tests, nobody — a cancel — otherwise). Progress
// reports are recorded and passed on, and so are the calls to keep the user interface
// responsive.
class ScriptedDialogs : public platform::UserPort {
public:
  ScriptedDialogs();   // installs itself
  ~ScriptedDialogs();  // removes itself

  void answer(platform::Answer a) { answers_.push_back(a); }
  void file(std::optional<std::string> path) { files_.push_back(std::move(path)); }
  // The next chooser: the row chosen (nullopt: Cancel), and the row left selected on closing
  // (nullopt: the preselected row stays).
  void choose(std::optional<int> row, std::optional<int> selectOnClose = std::nullopt) {
    choices_.push_back({row, selectOnClose});
  }
  void text(std::string answer) { texts_.push_back(std::move(answer)); }
  void number(std::optional<int> n) { numbers_.push_back(n); }
  // Do not fail the test for messages answered without a script.
  void allowUnscripted() { strict_ = false; }

  platform::Answer message(const std::string& text, platform::Icon icon,
                           platform::Buttons buttons, const std::string& detail) override;
  std::optional<std::string> chooseFile(const platform::FileRequest& request) override;
  std::optional<int> chooseOne(const std::vector<std::string>& items, int& selected) override;
  std::string askText(const std::string& caption) override;
  std::optional<int> chooseNumber(int current, int minimum, int maximum) override;
  void beep() override { ++beeps; }
  void progress(const std::string& text, std::optional<double> fraction) override;
  void keepResponsive() override;
  bool cancelRequested() override;

  std::vector<RecordedDialog> shown;  // every message and file dialog, in order
  std::vector<RecordedQuestion> questions;  // every chooser, prompt and number window
  int beeps = 0;
  // Texts of the message boxes shown, in order.
  std::vector<std::string> messages() const;
  // The captions of the text prompts, in order; the rows the last chooser offered.
  std::vector<std::string> captions() const;
  std::vector<std::string> offered() const;
  int count(RecordedQuestion::Kind kind) const;
  bool scriptUsedUp() const {
    return answers_.empty() && files_.empty() && choices_.empty() && texts_.empty() &&
           numbers_.empty();
  }

  // Every progress report, in order (a worker thread may add to them), and the status line
  // as last shown ("" before any).
  std::vector<RecordedProgress> progressReports() const;
  std::vector<std::string> statuses() const;
  std::string status() const;
  int keepResponsiveCalls = 0;
  // Runs on every call to keep the user interface responsive (an event the user sends
  // meanwhile, say).
  std::function<void()> onKeepResponsive;
  // The user asks to stop the long operation under way.
  bool cancel = false;

private:
  struct Choice {
    std::optional<int> row, selectOnClose;
  };
  std::deque<platform::Answer> answers_;
  std::deque<std::optional<std::string>> files_;
  std::deque<Choice> choices_;
  std::deque<std::string> texts_;
  std::deque<std::optional<int>> numbers_;
  bool strict_ = true;
  mutable std::mutex progressLock_;
  std::vector<RecordedProgress> progress_;
};

} // namespace orvex::test
