// Paths and files: taking paths apart, relative program paths, creating directories with the
// user's consent, case-insensitive lookups (names match without regard to letter case, the
// first in directory order wins), and whole-file reading and safe writing.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "workspace/file_bytes.h"

namespace orvex {

// Both "\" and "/" separate directories in every stored path we read.
bool IsSeparator(char c);

// The part after the last separator (the whole text when it has none).
std::string FileNameOf(const std::string& path);
// The part up to and including the last separator ("" when it has none).
std::string DirectoryOf(const std::string& path);
// `target` relative to the directory `base` (ending in a separator), both lower-cased:
// walk base's separators from the end, emitting "../" per step, until a common head is found;
// with none, the whole lower-cased target. Separators of the result are "/".
std::string RelativePath(const std::string& target, const std::string& base);
// Makes sure every directory on `path` exists, asking "Create (sub)directory?" (Yes/No,
// information icon) before creating each missing one. False when the user says No or a
// creation fails. Never throws; the process's current directory is left as it was.
bool EnsureDirectory(const std::string& path);

// Turns "\" into "/".
std::string NormalizeSeparators(const std::string& path);

// Looks up an existing entry `name` inside directory `dir` without regard to case and returns
// its full path; nullopt when there is none. `name` may hold separators; each component is
// matched in turn.
std::optional<std::string> FindPath(const std::string& dir, const std::string& name);
// Resolves a path whose components may differ in case from what is on disk; returns the path
// as it exists, or nullopt.
std::optional<std::string> ResolvePath(const std::string& path);
bool FileExists(const std::string& path);       // a regular file, case-insensitive lookup
bool DirectoryExists(const std::string& path);  // a directory, case-insensitive lookup

// Names (not paths) of the regular files in `dir` whose extension matches `ext` (".MI")
// without regard to case, in directory order; an unreadable or missing directory gives none.
std::vector<std::string> ListFiles(const std::string& dir, const std::string& ext);
// Names of the subdirectories of `dir` (without "." and ".."), in directory order.
std::vector<std::string> ListDirectories(const std::string& dir);

// The whole file (found without regard to case) as bytes; throws the run-time's file error
// when it cannot be read, and "Out of memory" (7) when it holds more than kMaxWholeFileBytes
// (ReadFileBytes, file_bytes.h, which also has SplitLines).
std::string ReadWholeFile(const std::string& path);
// Writes `bytes` to `path` through a temporary file in the same directory and a rename, so a
// failure never leaves a half-written file behind; the temporary is flushed to the disk
// before the rename and the directory after it, so a crash leaves the old file or the new
// one. Throws the run-time's file error.
void WriteWholeFile(const std::string& path, const std::string& bytes);

// Several safe writes that land together: Stage writes each file's durable temporary beside
// it (throwing the file error, with every target still as it was); Commit renames them all
// into place. Whatever was staged but not committed is removed when the group goes, so a
// failure half-way through staging changes no file.
class StagedWrites {
public:
  StagedWrites() = default;
  StagedWrites(const StagedWrites&) = delete;
  StagedWrites& operator=(const StagedWrites&) = delete;
  ~StagedWrites();
  void Stage(const std::string& path, const std::string& bytes);
  void Commit();

private:
  struct Pending {
    std::string temp, target, dir, path;
  };
  std::vector<Pending> pending_;
};

// True for a name of our own temporaries (".NAME.orvex-" and six letters or digits).
bool IsOwnTemporary(const std::string& name);
// Removes the temporaries of ours in `dir` at least `minimumAgeSeconds` old (left behind by
// a crash or a kill; a younger one may be a write in progress). Returns how many went.
int RemoveStaleTemporaries(const std::string& dir, int minimumAgeSeconds = 60);

// For tests: while set, every safe write asks the hook with its target path; a non-zero
// errno (ENOSPC, EROFS, ...) makes that write fail as the disk would, leaving the target as
// it was. An empty hook restores normal writing.
using WriteFaultHook = std::function<int(const std::string& target)>;
void SetWriteFaultHook(WriteFaultHook hook);
// Copies a file (replacing the target) the same safe way.
void CopyWholeFile(const std::string& from, const std::string& to);
// The same whole-file replacement for files made anew before every use (the run directory's
// copies of a set's files): no half-written file, but no wait for the disk either.
void WriteScratchFile(const std::string& path, const std::string& bytes);
void CopyScratchFile(const std::string& from, const std::string& to);

} // namespace orvex
