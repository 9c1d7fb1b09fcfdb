// Path helpers. Stored paths may use "\" or "/"; lookups of existing entries ignore letter
// case (the first match in directory order wins); writes go through a temporary file.
#include "workspace/paths.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/dialogs.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"

namespace orvex {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

std::string FileNameOf(const std::string& path) {
  std::string::size_type cut = path.find_last_of("\\/");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

std::string DirectoryOf(const std::string& path) {
  std::string::size_type cut = path.find_last_of("\\/");
  return cut == std::string::npos ? std::string() : path.substr(0, cut + 1);
}

std::string NormalizeSeparators(const std::string& path) {
  std::string s = path;
  for (char& c : s)
    if (c == '\\') c = '/';
  return s;
}

std::string RelativePath(const std::string& target, const std::string& base) {
  const std::string t = NormalizeSeparators(Lower(target));
  const std::string b = NormalizeSeparators(Lower(base));
  std::string prefix;
  // Walk the base's separators from the end; each one that is not a common head costs "../".
  for (std::size_t i = b.size(); i > 0; --i) {
    if (b[i - 1] != '/') continue;
    if (t.size() >= i && t.compare(0, i, b, 0, i) == 0) return prefix + t.substr(i);
    prefix += "../";
  }
  return t;
}

namespace {

std::string Join(const std::string& dir, const std::string& name) {
  if (dir.empty()) return name;
  if (dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

std::vector<std::string> Components(const std::string& path) {
  std::vector<std::string> parts;
  std::string current;
  for (char c : path) {
    if (IsSeparator(c)) {
      if (!current.empty()) parts.push_back(current);
      current.clear();
    } else {
      current += c;
    }
  }
  if (!current.empty()) parts.push_back(current);
  return parts;
}

// The entry of `dir` ("" = the current directory) whose name equals `name` without regard
// to case, as it is spelt on disk; the first in directory order wins.
// ASCII letters compared without regard to case; other bytes must be equal.
bool SameIgnoringCase(const char* a, const std::string& b) {
  std::size_t i = 0;
  for (; a[i] != '\0'; ++i) {
    if (i >= b.size()) return false;
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return i == b.size();
}

std::optional<std::string> FindEntry(const std::string& dir, const std::string& name) {
  if (name == "." || name == "..") return name;
  DIR* d = ::opendir(dir.empty() ? "." : dir.c_str());
  if (!d) {
    // An unlistable directory may still let us reach an entry spelt exactly.
    struct stat st {};
    if (::stat(Join(dir, name).c_str(), &st) == 0) return name;
    return std::nullopt;
  }
  std::optional<std::string> found;
  while (dirent* e = ::readdir(d)) {
    if (SameIgnoringCase(e->d_name, name)) {
      found = std::string(e->d_name);
      break;
    }
  }
  ::closedir(d);
  return found;
}

bool StatIs(const std::string& path, mode_t type) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && (st.st_mode & S_IFMT) == type;
}

} // namespace

std::optional<std::string> FindPath(const std::string& dir, const std::string& name) {
  std::string current = NormalizeSeparators(dir);
  for (const std::string& part : Components(name)) {
    std::optional<std::string> entry = FindEntry(current, part);
    if (!entry) return std::nullopt;
    current = Join(current, *entry);
  }
  return current;
}

std::optional<std::string> ResolvePath(const std::string& path) {
  if (path.empty()) return std::nullopt;
  const std::string p = NormalizeSeparators(path);
  if (p[0] == '/') return FindPath("/", p.substr(1));
  return FindPath("", p);
}

bool FileExists(const std::string& path) {
  std::optional<std::string> p = ResolvePath(path);
  return p && StatIs(*p, S_IFREG);
}

bool DirectoryExists(const std::string& path) {
  std::optional<std::string> p = ResolvePath(path);
  return p && StatIs(*p, S_IFDIR);
}

bool EnsureDirectory(const std::string& path) {
  try {
    const std::string p = NormalizeSeparators(path);
    std::string current = !p.empty() && p[0] == '/' ? "/" : "";
    bool first = true;
    for (const std::string& part : Components(p)) {
      // A drive head ("c:") is taken as existing.
      if (first && part.size() == 2 && part[1] == ':') {
        current = Join(current, part);
        first = false;
        continue;
      }
      first = false;
      std::optional<std::string> entry = FindEntry(current, part);
      if (entry && StatIs(Join(current, *entry), S_IFDIR)) {
        current = Join(current, *entry);
        continue;
      }
      if (platform::MsgBox("Create (sub)directory?", platform::Icon::Information,
                           platform::Buttons::YesNo) != platform::Answer::Yes)
        return false;
      std::string created = Join(current, part);
      if (::mkdir(created.c_str(), 0777) != 0 && !(errno == EEXIST && StatIs(created, S_IFDIR)))
        return false;
      current = created;
    }
    return true;
  } catch (...) {
    return false;
  }
}

namespace {

std::vector<std::string> ListEntries(const std::string& dir, mode_t type, const std::string& ext) {
  std::vector<std::string> names;
  std::optional<std::string> resolved = dir.empty() ? std::optional<std::string>("") : ResolvePath(dir);
  if (!resolved) return names;
  DIR* d = ::opendir(resolved->empty() ? "." : resolved->c_str());
  if (!d) return names;
  const std::string upperExt = Upper(ext);
  while (dirent* e = ::readdir(d)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    if (!upperExt.empty() &&
        (name.size() <= upperExt.size() ||
         Upper(name.substr(name.size() - upperExt.size())) != upperExt))
      continue;
    if (!StatIs(Join(*resolved, name), type)) continue;
    names.push_back(name);
  }
  ::closedir(d);
  return names;
}

} // namespace

std::vector<std::string> ListFiles(const std::string& dir, const std::string& ext) {
  return ListEntries(dir, S_IFREG, ext);
}

std::vector<std::string> ListDirectories(const std::string& dir) {
  return ListEntries(dir, S_IFDIR, "");
}

std::string ReadWholeFile(const std::string& path) {
  const std::string actual = ResolvePath(path).value_or(path);
  std::FILE* f = std::fopen(actual.c_str(), "rb");
  if (!f) ThrowFileError(path, errno);
  auto tooLarge = [&path, f]() {
    std::fclose(f);
    throw RuntimeError(ErrorNumber::OutOfMemory,
                       "Out of memory: " + path + " is larger than " +
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
  if (err != 0) ThrowFileError(path, err);
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

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  const std::string normalized = NormalizeSeparators(path);
  const std::string name = FileNameOf(normalized);
  std::string dir = DirectoryOf(normalized);
  if (name.empty()) ThrowFileError(path, EISDIR);
  if (!dir.empty()) {
    std::optional<std::string> resolved = ResolvePath(dir);
    if (resolved) dir = Join(*resolved, "");
  }
  // Replace an existing file spelt in another case rather than adding a second one.
  std::string target = Join(dir, name);
  mode_t mode = 0644;
  if (std::optional<std::string> existing = FindEntry(dir, name)) {
    target = Join(dir, *existing);
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0) {
      if (S_ISDIR(st.st_mode)) ThrowFileError(path, EISDIR);
      mode = st.st_mode & 07777;
      // A read-only file is not silently replaced.
      if (::access(target.c_str(), W_OK) != 0 && errno != ENOENT) ThrowFileError(path, errno);
      // A link to a file (an MI shared between sets, say) is written through: the file it
      // names gets the new bytes and the link stays a link.
      struct stat link {};
      if (::lstat(target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        if (char* real = ::realpath(target.c_str(), nullptr)) {
          target = real;
          std::free(real);
          dir = DirectoryOf(target);
        }
      }
    }
  }
  std::string temp = Join(dir, "." + FileNameOf(target) + ".XXXXXX");
  int fd = ::mkstemp(temp.data());
  if (fd < 0) ThrowFileError(path, errno);
  int err = 0;
  const char* p = bytes.data();
  std::size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      err = errno;
      break;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  if (err == 0 && ::fchmod(fd, mode) != 0) err = errno;
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err == 0 && ::rename(temp.c_str(), target.c_str()) != 0) err = errno;
  if (err != 0) {
    ::unlink(temp.c_str());
    ThrowFileError(path, err);
  }
}

void CopyWholeFile(const std::string& from, const std::string& to) {
  WriteWholeFile(to, ReadWholeFile(from));
}

} // namespace orvex
