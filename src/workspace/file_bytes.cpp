// Whole-file reads with the shared size limit, and the line splitter.
#include "workspace/file_bytes.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "workspace/errors.h"

namespace orvex {

std::string ReadFileBytes(const std::string& path, const std::string& shownName) {
  const std::string& name = shownName.empty() ? path : shownName;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) ThrowFileError(name, errno);
  auto tooLarge = [&name, f]() {
    std::fclose(f);
    throw RuntimeError(ErrorNumber::OutOfMemory,
                       "Out of memory: " + name + " is larger than " +
                           std::to_string(kMaxWholeFileBytes >> 20) + " MB");
  };
  // The size is known up front for a regular file; a device or pipe is cut off as it is read.
  struct stat st {};
  if (::fstat(::fileno(f), &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<std::uintmax_t>(st.st_size) > kMaxWholeFileBytes)
    tooLarge();
  std::string bytes;
  char buf[65536];
  std::size_t got;
  while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) {
    if (bytes.size() + got > kMaxWholeFileBytes) tooLarge();
    bytes.append(buf, got);
  }
  int err = std::ferror(f) ? errno : 0;
  std::fclose(f);
  if (err != 0) ThrowFileError(name, err);
  return bytes;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::string current;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '\r' || c == '\n') {
      lines.push_back(current);
      current.clear();
      if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
    } else {
      current += c;
    }
  }
  if (!current.empty()) lines.push_back(current);
  return lines;
}

} // namespace orvex
