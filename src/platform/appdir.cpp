#include "platform/appdir.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "workspace/errors.h"

namespace fs = std::filesystem;

namespace orvex::platform {
namespace {

std::string WithSlash(std::string dir) {
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir;
}

bool Writable(const std::string& dir) { return ::access(dir.c_str(), W_OK | X_OK) == 0; }

std::string MakeDirectory(const std::string& dir) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (ec || !fs::is_directory(dir)) ThrowFileError(dir, ec ? ec.value() : ENOTDIR);
  return WithSlash(fs::absolute(dir).lexically_normal().string());
}

} // namespace

AppDirOptions ParseAppDirOptions(const std::vector<std::string>& args) {
  AppDirOptions o;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--home" && i + 1 < args.size()) o.home = args[++i];
    else if (a.rfind("--home=", 0) == 0) o.home = a.substr(7);
    else o.positional.push_back(a);
  }
  return o;
}

std::string ExecutableDirectory() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return WithSlash(exe.parent_path().string());
}

std::string BundleDirectory(const std::string& exeDir) {
  if (exeDir.empty()) return {};
  std::error_code ec;
  if (fs::is_directory(fs::path(exeDir) / "MI", ec)) return WithSlash(exeDir);
  const fs::path installed = fs::path(exeDir) / ".." / "share" / "orvex";
  if (fs::is_directory(installed / "MI", ec)) return WithSlash(installed.lexically_normal().string());
  return {};
}

void SeedAppDir(const std::string& bundleDir, const std::string& appDir) {
  if (bundleDir.empty()) return;
  const fs::path from(bundleDir), to(appDir);
  for (const char* dir : {"MI", "progs"}) {
    std::error_code ec;
    if (fs::is_directory(from / dir) && !fs::exists(to / dir))
      fs::copy(from / dir, to / dir, fs::copy_options::recursive, ec);
  }
  // The help page and the picture it shows.
  for (const char* file : {"help.htm", "spin3_chevron.png"}) {
    std::error_code ec;
    if (fs::is_regular_file(from / file) && !fs::exists(to / file))
      fs::copy_file(from / file, to / file, ec);
  }
}

std::string ResolveAppDir(const std::string& home, const std::string& exeDir) {
  if (!home.empty()) return MakeDirectory(home);
  if (const char* env = std::getenv("ORVEX_HOME"); env && *env) return MakeDirectory(env);
  // An installed copy keeps its content in ../share/orvex, never beside the executable: even
  // when bin/ happens to be writable (a root user, a prefix of one's own) the user's files go
  // to the per-user directory.
  const std::string bundle = BundleDirectory(exeDir);
  const bool installed = !bundle.empty() && bundle != WithSlash(exeDir);
  if (!exeDir.empty() && !installed && Writable(exeDir)) return WithSlash(exeDir);

  std::string data;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) data = xdg;
  else if (const char* userHome = std::getenv("HOME"); userHome && *userHome)
    data = std::string(userHome) + "/.local/share";
  else data = "/tmp";
  const std::string dir = MakeDirectory(data + "/orvex");
  SeedAppDir(bundle, dir);
  return dir;
}

} // namespace orvex::platform
