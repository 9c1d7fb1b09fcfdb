// The application directory: --home, ORVEX_HOME, the executable's directory, and the
// per-user directory seeded from the bundled content.
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/appdir.h"
#include "support/test_support.h"

namespace orvex::test {
namespace {

using platform::ParseAppDirOptions;
using platform::ResolveAppDir;

// Sets an environment variable for one scope.
class EnvVar {
public:
  EnvVar(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) setenv(name, value, 1);
    else unsetenv(name);
  }
  ~EnvVar() {
    if (old_) setenv(name_, old_->c_str(), 1);
    else unsetenv(name_);
  }

private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(AppDir, HomeOptionIsTakenOutOfTheArguments) {
  auto o = ParseAppDirOptions({"a.kvp", "--home", "/x/y", "b.kvp"});
  EXPECT_EQ(o.home, "/x/y");
  EXPECT_EQ(o.positional, (std::vector<std::string>{"a.kvp", "b.kvp"}));
  EXPECT_EQ(ParseAppDirOptions({"--home=/z"}).home, "/z");
  EXPECT_EQ(ParseAppDirOptions({"--home"}).positional, std::vector<std::string>{"--home"});
}

TEST(AppDir, HomeThenEnvironmentThenExecutableDirectory) {
  TempDir home, env, exe;
  EnvVar var("ORVEX_HOME", env.path().c_str());
  EXPECT_EQ(ResolveAppDir(home.path() + "sub", exe.path()), home.path() + "sub/");
  EXPECT_TRUE(std::filesystem::is_directory(home.path() + "sub"));
  EXPECT_EQ(ResolveAppDir("", exe.path()), env.path());
  EnvVar none("ORVEX_HOME", nullptr);
  EXPECT_EQ(ResolveAppDir("", exe.path()), exe.path());
  EXPECT_FALSE(platform::ExecutableDirectory().empty());
  EXPECT_EQ(platform::ExecutableDirectory().back(), '/');
}

TEST(AppDir, UnusableExecutableDirectoryFallsBackToTheUserDataDirectory) {
  TempDir data;
  EnvVar none("ORVEX_HOME", nullptr);
  EnvVar xdg("XDG_DATA_HOME", data.path().c_str());
  EXPECT_EQ(ResolveAppDir("", "/nonexistent/orvex/bin/"), data.path() + "orvex/");
}

TEST(AppDir, SeedingCopiesTheBundledContentOnlyWhereMissing) {
  TempDir bundle, target;
  bundle.write("MI/ideal2/qubits.dat", " 2 \r\n");
  bundle.write("progs/demo.kvp", "!Quantum program demo\r\n");
  bundle.write("help.htm", "<html></html>");
  target.write("progs/mine.kvp", "mine");
  platform::SeedAppDir(bundle.path(), target.path());
  EXPECT_EQ(target.read("MI/ideal2/qubits.dat"), " 2 \r\n");
  EXPECT_EQ(target.read("help.htm"), "<html></html>");
  EXPECT_TRUE(target.exists("progs/mine.kvp"));
  EXPECT_FALSE(target.exists("progs/demo.kvp"));  // an existing progs/ is the user's
}

} // namespace
} // namespace orvex::test
