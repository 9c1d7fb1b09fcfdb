// Loading the engine library with dlopen, once per path.
#include "run/engine_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <mutex>

#include "platform/appdir.h"
#include "workspace/errors.h"

#ifndef ORVEX_ENGINE_INSTALL_PATH
#define ORVEX_ENGINE_INSTALL_PATH "../lib/orvex/libkv3.so"
#endif

namespace orvex {

namespace {

// Where the running program lies, "./" (the working directory) when that is unknown.
std::string ExecutableDirectory() {
  const std::string dir = platform::ExecutableDirectory();
  return dir.empty() ? "./" : dir;
}

[[noreturn]] void ThrowLoadError(const std::string& path, const std::string& reason) {
  throw RuntimeError(static_cast<ErrorNumber>(kErrorLoadingLibrary),
                     "Error in loading DLL " + path + ": " + reason);
}

} // namespace

std::string EngineLibrary::DefaultPath() {
  if (const char* env = std::getenv("ORVEX_ENGINE"); env && *env) {
    std::string path = env;
    // A relative path means the directory the program was started in; the run controller has
    // changed the current directory into the run directory by the time the engine is loaded.
    if (path[0] != '/' && path.find('/') != std::string::npos) {
      if (const char* pwd = std::getenv("PWD"); pwd && *pwd == '/') path = std::string(pwd) + "/" + path;
    }
    return path;
  }
  // A build tree keeps the engine beside the executable; an installed copy in its own
  // library directory, reached from bin/ by the install's relative path.
  const std::string beside = ExecutableDirectory() + "libkv3.so";
  const std::string installed = ExecutableDirectory() + ORVEX_ENGINE_INSTALL_PATH;
  if (::access(beside.c_str(), F_OK) != 0 && ::access(installed.c_str(), F_OK) == 0) return installed;
  return beside;
}

namespace {

struct Loaded {
  Kv3Entry entry = nullptr;
  EngineExtras extras;
};

const Loaded& LoadLibrary(const std::string& path) {
  // The handles are never closed: the engine keeps its run context between calls.
  static std::mutex mutex;
  static std::map<std::string, Loaded> loaded;
  std::lock_guard<std::mutex> lock(mutex);
  if (auto it = loaded.find(path); it != loaded.end()) return it->second;

  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = dlerror();
    ThrowLoadError(path, reason ? reason : "cannot be loaded");
  }
  dlerror();
  void* symbol = dlsym(handle, "kv3dll");
  if (!symbol) {
    const char* reason = dlerror();
    std::string text = reason ? reason : "no entry kv3dll";
    dlclose(handle);
    ThrowLoadError(path, text);
  }
  Loaded entries;
  entries.entry = reinterpret_cast<Kv3Entry>(symbol);
  entries.extras.record = reinterpret_cast<Kv3Record>(dlsym(handle, "kv3record"));
  entries.extras.trace = reinterpret_cast<Kv3Trace>(dlsym(handle, "kv3trace"));
  entries.extras.state = reinterpret_cast<Kv3State>(dlsym(handle, "kv3state"));
  dlerror();
  return loaded.emplace(path, entries).first->second;
}

} // namespace

Kv3Entry EngineLibrary::Load(const std::string& path) { return LoadLibrary(path).entry; }

EngineExtras EngineLibrary::Extras(const std::string& path) { return LoadLibrary(path).extras; }

} // namespace orvex
