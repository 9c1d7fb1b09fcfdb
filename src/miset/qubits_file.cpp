// qubits.dat: one number, written the way a numeric print writes it (" 2 " CR LF).
#include "miset/qubits_file.h"

#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

const char* const kQubitsFile = "qubits.dat";

} // namespace

void ReadQubitsFile(Workspace& ws) {
  std::optional<std::string> path = FindPath(ws.MISetPath, kQubitsFile);
  if (!path || !FileExists(*path)) {
    ws.NumberOfQubits = 2;
    WriteQubitsFile(ws);
    return;
  }
  const std::string text = ReadWholeFile(*path);
  // The first item, blanks and line ends skipped; it ends at a blank, comma or line end.
  std::size_t i = 0;
  auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (i < text.size() && isSpace(text[i])) ++i;
  if (i >= text.size())
    throw RuntimeError(ErrorNumber::InputPastEndOfFile, "Input past end of file: " + *path);
  std::size_t end = i;
  while (end < text.size() && !isSpace(text[end]) && text[end] != ',') ++end;
  std::size_t consumed = 0;
  double value = Val(std::string_view(text).substr(i, end - i), consumed);
  if (consumed == 0)
    throw RuntimeError(ErrorNumber::TypeMismatch,
                       "Type mismatch: " + *path + " does not start with a number");
  std::int16_t n = 0;
  try {
    n = CInt(value);
  } catch (const RuntimeError&) {
    throw RuntimeError(ErrorNumber::Overflow, "Overflow: the number of qubits in " + *path);
  }
  if (n < 1 || n > kMaxQubits)
    throw RuntimeError(ErrorNumber::SubscriptOutOfRange,
                       "Subscript out of range: " + *path + " gives " + std::to_string(n) +
                           " qubits (1 to 32 allowed)");
  ws.NumberOfQubits = n;
}

std::string QubitsFilePath(const Workspace& ws) {
  if (std::optional<std::string> existing = FindPath(ws.MISetPath, kQubitsFile)) return *existing;
  return ws.MISetPath + kQubitsFile;
}

std::string QubitsFileBytes(int numberOfQubits) {
  return Str(static_cast<std::int64_t>(numberOfQubits)) + " \r\n";
}

void WriteQubitsFile(const Workspace& ws) {
  WriteWholeFile(QubitsFilePath(ws), QubitsFileBytes(ws.NumberOfQubits));
}

std::string MISetContainer(const Workspace& ws) {
  for (const std::string& dir : ListDirectories(ws.AppDir))
    if (Upper(dir) == "MI") return ws.AppDir + dir + "/";
  return ws.AppDir + "MI/";
}

} // namespace orvex
