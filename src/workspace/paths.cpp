// Path helpers. Stored paths may use "\" or "/"; lookups of existing entries ignore letter
// case (the first match in directory order wins); writes go through a temporary file.
#include "workspace/paths.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
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
  return ReadFileBytes(ResolvePath(path).value_or(path), path);
}

namespace {

// Temporaries of a safe write are named "." + target name + kTempMark + six characters, so
// that a set's opening can tell ours, left behind by a crash, from anyone else's files.
constexpr const char* kTempMark = ".orvex-";
constexpr std::size_t kTempRandom = 6;

WriteFaultHook& FaultHook() {
  static WriteFaultHook hook;
  return hook;
}

// Flushes a directory's entries (a rename inside it) to the disk; best effort, since some
// file systems refuse fsync on a directory.
void SyncDirectory(const std::string& dir) {
  int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

struct WriteTarget {
  std::string target;  // the file that gets the bytes (a link's file for a link)
  std::string dir;     // its directory, "" or ending in "/"
  mode_t mode = 0644;
};

WriteTarget ResolveWriteTarget(const std::string& path) {
  const std::string normalized = NormalizeSeparators(path);
  const std::string name = FileNameOf(normalized);
  std::string dir = DirectoryOf(normalized);
  if (name.empty()) ThrowFileError(path, EISDIR);
  if (!dir.empty()) {
    std::optional<std::string> resolved = ResolvePath(dir);
    if (resolved) dir = Join(*resolved, "");
  }
  // Replace an existing file spelt in another case rather than adding a second one.
  WriteTarget t;
  t.target = Join(dir, name);
  t.dir = dir;
  if (std::optional<std::string> existing = FindEntry(dir, name)) {
    t.target = Join(dir, *existing);
    struct stat st {};
    if (::stat(t.target.c_str(), &st) == 0) {
      if (S_ISDIR(st.st_mode)) ThrowFileError(path, EISDIR);
      t.mode = st.st_mode & 07777;
      // A read-only file is not silently replaced.
      if (::access(t.target.c_str(), W_OK) != 0 && errno != ENOENT) ThrowFileError(path, errno);
      // A link to a file (an MI shared between sets, say) is written through: the file it
      // names gets the new bytes and the link stays a link.
      struct stat link {};
      if (::lstat(t.target.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        if (char* real = ::realpath(t.target.c_str(), nullptr)) {
          t.target = real;
          std::free(real);
          t.dir = DirectoryOf(t.target);
        }
      }
    }
  }
  return t;
}

// Writes `bytes` into a new temporary beside `t.target` and flushes it to the disk; returns
// the temporary's path. On failure nothing is left behind and the file error is thrown.
std::string WriteTemporary(const std::string& path, const WriteTarget& t, const std::string& bytes,
                           bool sync = true) {
  std::string temp = Join(t.dir, "." + FileNameOf(t.target) + kTempMark + std::string(kTempRandom, 'X'));
  int fd = ::mkstemp(temp.data());
  if (fd < 0) ThrowFileError(path, errno);
  int err = FaultHook() ? FaultHook()(t.target) : 0;
  const char* p = bytes.data();
  std::size_t left = err == 0 ? bytes.size() : 0;
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
  if (err == 0 && ::fchmod(fd, t.mode) != 0) err = errno;
  // The bytes reach the disk before the rename can make them the file's content.
  if (err == 0 && sync && ::fsync(fd) != 0) err = errno;
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err != 0) {
    ::unlink(temp.c_str());
    ThrowFileError(path, err);
  }
  return temp;
}

} // namespace

void SetWriteFaultHook(WriteFaultHook hook) { FaultHook() = std::move(hook); }

StagedWrites::~StagedWrites() {
  for (const Pending& p : pending_) ::unlink(p.temp.c_str());
}

void StagedWrites::Stage(const std::string& path, const std::string& bytes) {
  const WriteTarget t = ResolveWriteTarget(path);
  for (const Pending& p : pending_)
    if (p.target == t.target) ThrowFileError(path, EEXIST);  // one file staged twice
  const std::string temp = WriteTemporary(path, t, bytes);
  pending_.push_back({temp, t.target, t.dir, path});
}

void StagedWrites::Commit() {
  std::vector<std::string> dirs;
  while (!pending_.empty()) {
    const Pending p = pending_.front();
    if (::rename(p.temp.c_str(), p.target.c_str()) != 0) {
      const int err = errno;
      ThrowFileError(p.path, err);  // the rest stay staged and go with the group
    }
    pending_.erase(pending_.begin());
    if (std::find(dirs.begin(), dirs.end(), p.dir) == dirs.end()) dirs.push_back(p.dir);
  }
  for (const std::string& dir : dirs) SyncDirectory(dir);
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  StagedWrites write;
  write.Stage(path, bytes);
  write.Commit();
}

bool IsOwnTemporary(const std::string& name) {
  const std::size_t mark = std::char_traits<char>::length(kTempMark);
  if (name.size() < 2 + mark + kTempRandom || name[0] != '.') return false;
  const std::size_t at = name.size() - kTempRandom - mark;
  if (name.compare(at, mark, kTempMark) != 0) return false;
  for (std::size_t i = at + mark; i < name.size(); ++i)
    if (!std::isalnum(static_cast<unsigned char>(name[i]))) return false;
  return true;
}

int RemoveStaleTemporaries(const std::string& dir, int minimumAgeSeconds) {
  std::optional<std::string> resolved = ResolvePath(dir);
  if (!resolved) return 0;
  DIR* d = ::opendir(resolved->c_str());
  if (!d) return 0;
  std::vector<std::string> stale;
  const std::time_t now = std::time(nullptr);
  while (dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (!IsOwnTemporary(name)) continue;
    const std::string full = Join(*resolved, name);
    struct stat st {};
    // A temporary still young may be another instance's write in progress.
    if (::lstat(full.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        now - st.st_mtime >= minimumAgeSeconds)
      stale.push_back(full);
  }
  ::closedir(d);
  int removed = 0;
  for (const std::string& f : stale)
    if (::unlink(f.c_str()) == 0) ++removed;
  return removed;
}

void CopyWholeFile(const std::string& from, const std::string& to) {
  WriteWholeFile(to, ReadWholeFile(from));
}

void WriteScratchFile(const std::string& path, const std::string& bytes) {
  const WriteTarget t = ResolveWriteTarget(path);
  const std::string temp = WriteTemporary(path, t, bytes, false);
  if (::rename(temp.c_str(), t.target.c_str()) != 0) {
    const int err = errno;
    ::unlink(temp.c_str());
    ThrowFileError(path, err);
  }
}

void CopyScratchFile(const std::string& from, const std::string& to) {
  WriteScratchFile(to, ReadWholeFile(from));
}

} // namespace orvex
