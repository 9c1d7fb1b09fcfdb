// Loading and checking of the program tree.
#include "engine/program_tree.h"

#include <algorithm>

#include "engine/numbers.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"

namespace fs = std::filesystem;

namespace orvex::engine {

namespace {

// The whole file, refused past the size limit the workbench's readers keep; false with the
// reason in `why` when it cannot be read.
bool ReadFile(const fs::path& path, std::string& text, std::string& why) {
  try {
    text = ReadFileBytes(path.string());
    return true;
  } catch (const RuntimeError& e) {
    why = e.description();
    return false;
  }
}

bool IsRegularFile(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec);
}

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

bool EndsWithNoCase(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() &&
         Lower(s.substr(s.size() - suffix.size())) == Lower(suffix);
}

fs::path Canonical(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(p, ec);
  return ec ? p.lexically_normal() : c;
}

} // namespace

std::optional<fs::path> ResolveName(const fs::path& dir, const std::string& name) {
  fs::path cur = dir;
  std::string component;
  std::vector<std::string> parts;
  for (char c : name) {
    if (c == '/' || c == '\\') {
      parts.push_back(component);
      component.clear();
    } else {
      component += c;
    }
  }
  parts.push_back(component);
  for (const std::string& raw : parts) {
    const std::string part(Trim(raw));
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      cur = cur.parent_path();
      continue;
    }
    std::error_code ec;
    if (fs::exists(cur / part, ec)) {
      cur /= part;
      continue;
    }
    bool found = false;
    const std::string want = Lower(part);
    for (fs::directory_iterator it(cur, ec), end; !ec && it != end; it.increment(ec)) {
      if (Lower(it->path().filename().string()) == want) {
        cur = it->path();
        found = true;
        break;
      }
    }
    if (!found) return std::nullopt;
  }
  return cur;
}

std::vector<ProgramEntry> ParseProgramLines(const std::string& text) {
  std::vector<ProgramEntry> entries;
  const auto lines = SplitLines(text);
  for (std::size_t n = 0; n < lines.size(); ++n) {
    const std::string& line = lines[n];
    const int lineNo = static_cast<int>(n) + 1;
    if (line.empty()) continue;
    if (line[0] == '!') {
      if (Upper(line) == "!BREAKPOINT") {
        ProgramEntry e;
        e.kind = ProgramEntry::Breakpoint;
        e.line = lineNo;
        entries.push_back(e);
      }
      continue;
    }
    if (line[0] != '@') continue;
    // A comment may follow the entry after "!" or, failing that, "#".
    std::size_t cut = line.find('!');
    if (cut == std::string::npos) cut = line.find('#');
    const bool comment = cut != std::string::npos && cut >= 2;
    std::string text(Trim(comment ? line.substr(1, cut - 1) : line.substr(1)));
    if (text.empty()) continue;
    ProgramEntry e;
    e.line = lineNo;
    e.text = text;
    e.kind = EndsWithNoCase(text, "MI") ? ProgramEntry::Mi : ProgramEntry::Call;
    entries.push_back(e);
  }
  return entries;
}

EngineError ProgramTree::Load(const fs::path& runDir, const std::string& programName) {
  runDir_ = runDir;
  const std::string name(Trim(programName));
  auto path = name.empty() ? std::nullopt : ResolveName(runDir, name);
  if (!path || !IsRegularFile(*path))
    return {code::kProgramMissing, name.empty() ? "(no name)" : name, 0,
            "program file " + name + " does not exist"};
  std::vector<fs::path> stack;
  if (auto e = LoadProgram(*path, name, 1, stack, top_)) return e;
  int n = 0;
  for (const MiFile* mi : misInOrder_) n = std::max(n, mi->maxQubit);
  qubits_ = std::max(n, 1);
  // The ground state is computed densely, for small registers only.
  for (const MiFile* mi : misInOrder_)
    if (mi->initial == InitialState::Ground && qubits_ > kMaxGroundStateQubits)
      return {code::kGroundStateTooLarge, mi->name, mi->initialLine,
              "ground state asked for " + std::to_string(qubits_) +
                  " qubits; it is computed for at most 8"};
  return {};
}

EngineError ProgramTree::ResolveCall(const ProgramFile& caller, const ProgramEntry& entry,
                                     fs::path& target, std::string& targetName) {
  auto where = [&](std::string reason) {
    return EngineError{code::kProgramMissing, caller.name, entry.line, std::move(reason)};
  };
  auto file = ResolveName(runDir_, entry.text);
  if (!file || !IsRegularFile(*file))
    return where("program file " + entry.text + " does not exist");
  if (!EndsWithNoCase(entry.text, ".MP")) {
    target = *file;
    targetName = entry.text;
    return {};
  }
  // A redirect: its first line holds "@" and the program's path relative to the
  // application directory, which is the run directory or one of its ancestors.
  std::string text, why;
  if (!ReadFile(*file, text, why)) return where("cannot read " + entry.text + ": " + why);
  const auto lines = SplitLines(text);
  const std::string first = lines.empty() ? std::string() : lines[0];
  const std::size_t at = first.find('@');
  if (at == std::string::npos)
    return where(entry.text + " does not name a program (no \"@\" on its first line)");
  targetName = std::string(Trim(first.substr(at + 1)));
  if (targetName.empty()) return where(entry.text + " names no program file");
  for (fs::path dir = runDir_;; dir = dir.parent_path()) {
    auto found = ResolveName(dir, targetName);
    if (found && IsRegularFile(*found)) {
      target = *found;
      return {};
    }
    if (dir == dir.parent_path() || dir.empty()) break;
  }
  return where("program file " + targetName + " named by " + entry.text + " does not exist");
}

EngineError ProgramTree::LoadProgram(const fs::path& path, const std::string& name, int depth,
                                     std::vector<fs::path>& stack, const ProgramFile*& out) {
  const fs::path key = Canonical(path);
  if (std::find(stack.begin(), stack.end(), key) != stack.end())
    return {code::kNesting, name, 0, "program " + name + " calls itself"};
  if (depth > kMaxNesting)
    return {code::kNesting, name, 0,
            "programs nested deeper than " + std::to_string(kMaxNesting)};
  auto checked = height_.find(key);
  if (checked != height_.end()) {
    // Already checked through another caller: no cycle can pass through it; only the depth
    // below it matters here.
    if (depth + checked->second > kMaxNesting)
      return {code::kNesting, name, 0,
              "programs nested deeper than " + std::to_string(kMaxNesting)};
    out = programs_.at(key).get();
    return {};
  }
  auto& slot = programs_[key];
  if (!slot) {
    slot = std::make_unique<ProgramFile>();
    slot->name = name;
    slot->path = path;
    std::string text, why;
    if (!ReadFile(path, text, why))
      return {code::kProgramMissing, name, 0, "cannot read program file " + name + ": " + why};
    slot->entries = ParseProgramLines(text);
  }
  ProgramFile& program = *slot;
  stack.push_back(key);
  int height = 0;
  for (ProgramEntry& entry : program.entries) {
    if (entry.kind == ProgramEntry::Breakpoint) continue;
    if (entry.kind == ProgramEntry::Mi) {
      auto file = ResolveName(runDir_, entry.text);
      if (!file || !IsRegularFile(*file))
        return {code::kMiMissing, program.name, entry.line,
                "MI file " + entry.text + " does not exist"};
      const fs::path miKey = Canonical(*file);
      auto& mi = mis_[miKey];
      if (!mi) {
        mi = std::make_unique<MiFile>();
        if (auto e = LoadMi(entry.text, file->string(), *mi)) {
          mi.reset();
          mis_.erase(miKey);
          if (e.code == code::kMiMissing) {  // the calling line says where it was named
            e.file = program.name;
            e.line = entry.line;
          }
          return e;
        }
        misInOrder_.push_back(mi.get());
      }
      entry.mi = mi.get();
      continue;
    }
    fs::path target;
    std::string targetName;
    if (auto e = ResolveCall(program, entry, target, targetName)) return e;
    const ProgramFile* callee = nullptr;
    if (auto e = LoadProgram(target, targetName, depth + 1, stack, callee)) {
      if (e.code == code::kNesting && e.line == 0) {
        e.file = program.name;
        e.line = entry.line;
      }
      return e;
    }
    entry.program = callee;
    height = std::max(height, 1 + height_.at(Canonical(target)));
  }
  stack.pop_back();
  height_[key] = height;
  out = &program;
  return {};
}

} // namespace orvex::engine
