// The application directory: where the MI sets, the demo programs and help.htm live. Chosen
// by "--home DIR", else $ORVEX_HOME, else the executable's directory when it is writable,
// else $XDG_DATA_HOME/orvex (~/.local/share/orvex), seeded from the bundled demo content. An
// installed executable (content in ../share/orvex) always takes the per-user directory.
#pragma once

#include <string>
#include <vector>

namespace orvex::platform {

struct AppDirOptions {
  std::string home;                     // from --home, "" when not given
  std::vector<std::string> positional;  // the other arguments (program files), in order
};

// Takes "--home DIR" and "--home=DIR" out of the arguments; the rest stay positional.
AppDirOptions ParseAppDirOptions(const std::vector<std::string>& args);

// The directory of the running executable (/proc/self/exe), ending in "/"; "" when unknown.
std::string ExecutableDirectory();

// Resolves the application directory by the rule above, creating it when needed, and
// returns it with a trailing "/". `exeDir` is where the bundled content lies. Throws the
// run-time's file error when no directory can be made.
std::string ResolveAppDir(const std::string& home, const std::string& exeDir);

// Where the bundled content of the executable in `exeDir` lies: `exeDir` itself when it holds
// MI/ (a build tree), else the installed ../share/orvex/ when that holds MI/; "" when neither.
std::string BundleDirectory(const std::string& exeDir);

// Copies MI/, progs/ and help.htm from `bundleDir` into `appDir` where they are missing.
void SeedAppDir(const std::string& bundleDir, const std::string& appDir);

} // namespace orvex::platform
