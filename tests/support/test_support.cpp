#include "support/test_support.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

namespace orvex::test {

TempDir::TempDir() {
  std::random_device rd;
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path p = fs::temp_directory_path() / ("orvex-test-" + std::to_string(rd()));
    std::error_code ec;
    if (fs::create_directory(p, ec)) {
      path_ = p.string() + "/";
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary directory");
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  for (auto& e : fs::recursive_directory_iterator(path_, ec))
    fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

std::string TempDir::write(const std::string& relative, const std::string& bytes) const {
  fs::path p = fs::path(path_) / relative;
  fs::create_directories(p.parent_path());
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out << bytes;
  return p.string();
}

std::string TempDir::read(const std::string& relative) const {
  std::ifstream in(fs::path(path_) / relative, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool TempDir::exists(const std::string& relative) const {
  return fs::exists(fs::path(path_) / relative);
}

ScriptedDialogs::ScriptedDialogs() { platform::InstallUserPort(this); }

ScriptedDialogs::~ScriptedDialogs() { platform::RemoveUserPort(this); }

platform::Answer ScriptedDialogs::message(const std::string& text, platform::Icon icon,
                                          platform::Buttons buttons, const std::string& detail) {
  shown.push_back({text, icon, buttons, false, {}, detail});
  if (!answers_.empty()) {
    auto a = answers_.front();
    answers_.pop_front();
    return a;
  }
  if (strict_) ADD_FAILURE() << "unscripted message box: " << text;
  return platform::FirstButton(buttons);
}

std::optional<std::string> ScriptedDialogs::chooseFile(const platform::FileRequest& request) {
  shown.push_back({request.title, platform::Icon::None, platform::Buttons::OK, true, request, {}});
  if (files_.empty()) {
    if (strict_) ADD_FAILURE() << "unscripted file dialog: " << request.title;
    return std::nullopt;
  }
  auto f = files_.front();
  files_.pop_front();
  return f;
}

std::optional<int> ScriptedDialogs::chooseOne(const std::vector<std::string>& items, int& selected) {
  questions.push_back({RecordedQuestion::List, items, selected, {}});
  if (choices_.empty()) return platform::PortBelow(this).chooseOne(items, selected);
  const Choice c = choices_.front();
  choices_.pop_front();
  if (c.selectOnClose) selected = *c.selectOnClose;
  return c.row;
}

std::string ScriptedDialogs::askText(const std::string& caption) {
  questions.push_back({RecordedQuestion::Text, {}, -1, caption});
  if (texts_.empty()) return platform::PortBelow(this).askText(caption);
  std::string t = texts_.front();
  texts_.pop_front();
  return t;
}

std::optional<int> ScriptedDialogs::chooseNumber(int current, int minimum, int maximum) {
  questions.push_back({RecordedQuestion::Number, {}, current, {}});
  if (numbers_.empty()) return platform::PortBelow(this).chooseNumber(current, minimum, maximum);
  const std::optional<int> n = numbers_.front();
  numbers_.pop_front();
  return n;
}

void ScriptedDialogs::progress(const std::string& text, std::optional<double> fraction) {
  {
    std::lock_guard<std::mutex> lock(progressLock_);
    progress_.push_back({text, fraction});
  }
  platform::PortBelow(this).progress(text, fraction);
}

void ScriptedDialogs::keepResponsive() {
  ++keepResponsiveCalls;
  if (onKeepResponsive) onKeepResponsive();
  platform::PortBelow(this).keepResponsive();
}

bool ScriptedDialogs::cancelRequested() {
  return cancel || platform::PortBelow(this).cancelRequested();
}

std::vector<RecordedProgress> ScriptedDialogs::progressReports() const {
  std::lock_guard<std::mutex> lock(progressLock_);
  return progress_;
}

std::vector<std::string> ScriptedDialogs::statuses() const {
  std::vector<std::string> out;
  for (const RecordedProgress& p : progressReports()) out.push_back(p.text);
  return out;
}

std::string ScriptedDialogs::status() const {
  const auto all = progressReports();
  return all.empty() ? "" : all.back().text;
}

std::vector<std::string> ScriptedDialogs::captions() const {
  std::vector<std::string> out;
  for (const RecordedQuestion& q : questions)
    if (q.kind == RecordedQuestion::Text) out.push_back(q.caption);
  return out;
}

std::vector<std::string> ScriptedDialogs::offered() const {
  for (auto q = questions.rbegin(); q != questions.rend(); ++q)
    if (q->kind == RecordedQuestion::List) return q->items;
  return {};
}

int ScriptedDialogs::count(RecordedQuestion::Kind kind) const {
  int n = 0;
  for (const RecordedQuestion& q : questions) n += q.kind == kind;
  return n;
}

std::vector<std::string> ScriptedDialogs::messages() const {
  std::vector<std::string> out;
  for (auto& d : shown)
    if (!d.isFileDialog) out.push_back(d.text);
  return out;
}

} // namespace orvex::test
