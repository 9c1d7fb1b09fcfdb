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

ScriptedDialogs::ScriptedDialogs() : previous_(platform::CurrentDialogHandler()) {
  platform::SetDialogHandler(this);
}

ScriptedDialogs::~ScriptedDialogs() { platform::SetDialogHandler(previous_); }

platform::Answer ScriptedDialogs::message(const std::string& text, platform::Icon icon,
                                          platform::Buttons buttons, const std::string& detail) {
  shown.push_back({text, icon, buttons, false, {}, detail});
  if (!answers_.empty()) {
    auto a = answers_.front();
    answers_.pop_front();
    return a;
  }
  if (strict_) ADD_FAILURE() << "unscripted message box: " << text;
  switch (buttons) {
  case platform::Buttons::YesNo:
  case platform::Buttons::YesNoCancel: return platform::Answer::Yes;
  default: return platform::Answer::OK;
  }
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

std::vector<std::string> ScriptedDialogs::messages() const {
  std::vector<std::string> out;
  for (auto& d : shown)
    if (!d.isFileDialog) out.push_back(d.text);
  return out;
}

} // namespace orvex::test
