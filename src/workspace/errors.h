// Run-time errors: failures that are not the program's own checked refusals (a full table,
// an index out of range, a file that cannot be read or written). Each carries a description
// and a number in the style of a classic BASIC run-time, so the user sees a familiar pair.
#pragma once

#include <stdexcept>
#include <string>

namespace orvex {

enum class ErrorNumber : int {
  Overflow = 6,
  SubscriptOutOfRange = 9,
  TypeMismatch = 13,
  InvalidProcedureCall = 5,
  OutOfMemory = 7,
  FileNotFound = 53,
  DiskFull = 61,
  InputPastEndOfFile = 62,
  PermissionDenied = 70,
  PathNotFound = 76,
  PathFileAccessError = 75,
  DeviceIOError = 57,
};

class RuntimeError : public std::runtime_error {
public:
  RuntimeError(ErrorNumber number, const std::string& description)
      : std::runtime_error(description), number_(number) {}

  int number() const { return static_cast<int>(number_); }
  ErrorNumber code() const { return number_; }
  std::string description() const { return what(); }

private:
  ErrorNumber number_;
};

// The usual descriptions, so every thrower says the same thing for the same number.
[[noreturn]] void ThrowSubscriptOutOfRange();
// The same error with what overflowed, for a full table the user can do something about.
[[noreturn]] void ThrowSubscriptOutOfRange(const std::string& detail);
[[noreturn]] void ThrowOverflow();
// A file error for `path`, chosen from errno (ENOENT: File not found / Path not found,
// EACCES/EROFS/EPERM: Permission denied, ENOSPC: Disk full, else Device I/O error).
// The description names the file and the system's reason.
[[noreturn]] void ThrowFileError(const std::string& path, int err);

} // namespace orvex
