// The run-time errors' usual descriptions, and the mapping of system errors onto them.
#include "workspace/errors.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace orvex {

void ThrowSubscriptOutOfRange() {
  throw RuntimeError(ErrorNumber::SubscriptOutOfRange, "Subscript out of range");
}

void ThrowSubscriptOutOfRange(const std::string& detail) {
  throw RuntimeError(ErrorNumber::SubscriptOutOfRange, "Subscript out of range: " + detail);
}

void ThrowOverflow() { throw RuntimeError(ErrorNumber::Overflow, "Overflow"); }

namespace {

// True when the directory part of `path` exists, so a missing entry is the file itself.
bool ParentExists(const std::string& path) {
  std::string::size_type cut = path.find_last_of("/\\");
  if (cut == std::string::npos) return true;
  std::string parent = cut == 0 ? std::string("/") : path.substr(0, cut);
  struct stat st {};
  return ::stat(parent.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

} // namespace

void ThrowFileError(const std::string& path, int err) {
  ErrorNumber number = ErrorNumber::DeviceIOError;
  const char* what = "Device I/O error";
  switch (err) {
  case ENOENT:
    if (ParentExists(path)) {
      number = ErrorNumber::FileNotFound;
      what = "File not found";
    } else {
      number = ErrorNumber::PathNotFound;
      what = "Path not found";
    }
    break;
  case ENOTDIR:
    number = ErrorNumber::PathNotFound;
    what = "Path not found";
    break;
  case EACCES:
  case EROFS:
  case EPERM:
    number = ErrorNumber::PermissionDenied;
    what = "Permission denied";
    break;
  case ENOSPC:
  case EDQUOT:
    number = ErrorNumber::DiskFull;
    what = "Disk full";
    break;
  case EISDIR:
    number = ErrorNumber::PathFileAccessError;
    what = "Path/File access error";
    break;
  default:
    break;
  }
  std::string description = std::string(what) + ": " + path;
  if (err != 0) description += " (" + std::string(std::strerror(err)) + ")";
  throw RuntimeError(number, description);
}

} // namespace orvex
