// The fixture of the command-line tests: a fresh home holding copies of the demo sets and
// programs, and orvex-cli run as a process of its own with both outputs captured.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace orvex::test {

struct CliResult {
  int status = -1;
  std::string out, err;
};

class CliHomeTest : public ::testing::Test {
protected:
  void SetUp() override {
    namespace fs = std::filesystem;
    const char* cli = std::getenv("ORVEX_CLI");
    ASSERT_TRUE(cli && *cli) << "ORVEX_CLI is not set";
    cli_ = cli;
    home = dir.path() + "home/";
    fs::create_directories(home);
    for (const char* sub : {"MI", "progs"})
      fs::copy(fs::path(ORVEX_BIN_DIR) / sub, fs::path(home) / sub, fs::copy_options::recursive);
  }

  // Runs orvex-cli with `args` (already quoted where needed); `prefix` goes in front (an
  // environment assignment, or "cd DIR &&").
  CliResult Cli(const std::string& args, const std::string& prefix = "") {
    CliResult r;
    const std::string out = dir.path() + "out.txt", err = dir.path() + "err.txt";
    const std::string command =
        prefix + " '" + cli_ + "' " + args + " >'" + out + "' 2>'" + err + "'";
    const int raw = std::system(command.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = dir.read("out.txt");
    r.err = dir.read("err.txt");
    return r;
  }

  TempDir dir;
  std::string home;

private:
  std::string cli_;
};

} // namespace orvex::test
