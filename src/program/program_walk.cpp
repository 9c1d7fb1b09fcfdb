// The walk of a program tree: program lines, name lookup, ".MP" redirects, nesting.
#include "program/program_walk.h"

#include <algorithm>
#include <system_error>

#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex {

namespace {

bool IsRegularFile(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec);
}

bool EndsWithNoCase(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && Upper(s.substr(s.size() - suffix.size())) == Upper(suffix);
}

// The key a program is known by, however it was named: two names of one file are one program.
fs::path Canonical(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(p, ec);
  return ec ? p.lexically_normal() : c;
}

std::string NestingReason() {
  return "programs nested deeper than " + std::to_string(kMaxProgramNesting);
}

} // namespace

std::vector<ProgramWalk::Line> ProgramWalk::WalkLines(const std::string& text) {
  std::vector<Line> lines;
  for (ProgramLine& parsed : ParseProgramLines(text)) {
    Line line;
    static_cast<ProgramLine&>(line) = std::move(parsed);
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<ProgramLine> ParseProgramLines(const std::string& text) {
  std::vector<ProgramLine> lines;
  const std::vector<std::string> all = SplitLines(text);
  for (std::size_t n = 0; n < all.size(); ++n) {
    const std::string& line = all[n];
    const int lineNo = static_cast<int>(n) + 1;
    if (line.empty()) continue;
    if (line[0] == '!') {
      // The whole line, untrimmed, is compared; any other "!" line is a comment.
      if (Upper(line) == "!BREAKPOINT") lines.push_back({ProgramLine::Breakpoint, lineNo, ""});
      continue;
    }
    if (line[0] != '@') continue;
    // A comment may follow the name after "!" or, failing that, "#"; one right after the
    // "@" leaves the whole rest of the line as the name.
    std::size_t cut = line.find('!');
    if (cut == std::string::npos) cut = line.find('#');
    const bool comment = cut != std::string::npos && cut >= 2;
    std::string name = Trim(comment ? line.substr(1, cut - 1) : line.substr(1));
    if (name.empty()) continue;
    const ProgramLine::Kind kind = EndsWithNoCase(name, "MI") ? ProgramLine::Mi : ProgramLine::Call;
    lines.push_back({kind, lineNo, std::move(name)});
  }
  return lines;
}

std::optional<fs::path> ResolveName(const fs::path& dir, const std::string& name) {
  // Each part trimmed, then the workspace's lookup, so that the engine finds the very file
  // the windows show, also where two names differ only in case.
  std::string path, part;
  auto add = [&] {
    part = Trim(part);
    if (!part.empty() && part != ".") path += (path.empty() ? "" : "/") + part;
    part.clear();
  };
  for (char c : name) {
    if (IsSeparator(c))
      add();
    else
      part += c;
  }
  add();
  const std::optional<std::string> found = FindPath(dir.string(), path);
  if (!found) return std::nullopt;
  return fs::path(*found);
}

std::optional<CalledProgram> ResolveCall(const fs::path& runDir, const std::string& text,
                                         std::string& why) {
  const auto file = ResolveName(runDir, text);
  if (!file || !IsRegularFile(*file)) {
    why = "program file " + text + " does not exist";
    return std::nullopt;
  }
  if (!EndsWithNoCase(text, ".MP")) return CalledProgram{*file, text};
  // A redirect: its first line holds "@" and the program's path relative to the application
  // directory, which is the run directory or one of its ancestors.
  std::string bytes;
  try {
    bytes = ReadFileBytes(file->string());
  } catch (const RuntimeError& e) {
    why = "cannot read " + text + ": " + e.description();
    return std::nullopt;
  }
  const std::vector<std::string> lines = SplitLines(bytes);
  const std::string first = lines.empty() ? std::string() : lines[0];
  const std::size_t at = first.find('@');
  if (at == std::string::npos) {
    why = text + " does not name a program (no \"@\" on its first line)";
    return std::nullopt;
  }
  const std::string target = Trim(first.substr(at + 1));
  if (target.empty()) {
    why = text + " names no program file";
    return std::nullopt;
  }
  for (fs::path dir = runDir;; dir = dir.parent_path()) {
    const auto found = ResolveName(dir, target);
    if (found && IsRegularFile(*found)) return CalledProgram{*found, target};
    if (dir == dir.parent_path() || dir.empty()) break;
  }
  why = "program file " + target + " named by " + text + " does not exist";
  return std::nullopt;
}

ProgramWalk::Fault ProgramWalk::Load(const fs::path& runDir, const std::string& programName,
                                     const MiCheck& check) {
  runDir_ = runDir;
  const std::string name = Trim(programName);
  const auto path = name.empty() ? std::nullopt : ResolveName(runDir, name);
  if (!path || !IsRegularFile(*path))
    return {Fault::ProgramMissing, name.empty() ? "(no name)" : name, 0,
            "program file " + name + " does not exist"};
  std::vector<fs::path> stack;
  return Enter(*path, name, 1, stack, check, top_);
}

ProgramWalk::Fault ProgramWalk::LoadText(const fs::path& runDir, const std::string& programName,
                                         const std::string& text, const MiCheck& check) {
  runDir_ = runDir;
  textTop_ = std::make_unique<Program>();
  textTop_->name = Trim(programName);
  const auto path = textTop_->name.empty() ? std::nullopt : ResolveName(runDir, textTop_->name);
  textTop_->path = path ? *path : runDir / textTop_->name;
  textTop_->lines = WalkLines(text);
  // The saved file of the top program is on the stack: a program calling it calls itself.
  std::vector<fs::path> stack{Canonical(textTop_->path)};
  int height = 0;
  if (auto fault = Walk(*textTop_, 1, stack, check, height)) return fault;
  top_ = textTop_.get();
  return {};
}

ProgramWalk::Fault ProgramWalk::Enter(const fs::path& path, const std::string& name, int depth,
                                      std::vector<fs::path>& stack, const MiCheck& check,
                                      const Program*& out) {
  const fs::path key = Canonical(path);
  if (std::find(stack.begin(), stack.end(), key) != stack.end())
    return {Fault::Nesting, name, 0, "program " + name + " calls itself"};
  if (depth > kMaxProgramNesting) return {Fault::Nesting, name, 0, NestingReason()};
  if (auto checked = height_.find(key); checked != height_.end()) {
    // Already checked through another caller: no cycle can pass through it; only the depth
    // below it matters here.
    if (depth + checked->second > kMaxProgramNesting)
      return {Fault::Nesting, name, 0, NestingReason()};
    out = programs_.at(key).get();
    return {};
  }
  auto& slot = programs_[key];
  if (!slot) {
    slot = std::make_unique<Program>();
    slot->name = name;
    slot->path = path;
    std::string text;
    try {
      text = ReadFileBytes(path.string());
    } catch (const RuntimeError& e) {
      return {Fault::ProgramMissing, name, 0,
              "cannot read program file " + name + ": " + e.description()};
    }
    slot->lines = WalkLines(text);
  }
  stack.push_back(key);
  int height = 0;
  if (auto fault = Walk(*slot, depth, stack, check, height)) return fault;
  stack.pop_back();
  height_[key] = height;
  out = slot.get();
  return {};
}

ProgramWalk::Fault ProgramWalk::Walk(Program& program, int depth, std::vector<fs::path>& stack,
                                     const MiCheck& check, int& height) {
  for (Line& line : program.lines) {
    if (line.kind == ProgramLine::Breakpoint) continue;
    if (line.kind == ProgramLine::Mi) {
      const auto file = ResolveName(runDir_, line.text);
      if (!file || !IsRegularFile(*file))
        return {Fault::MiMissing, program.name, line.line,
                "MI file " + line.text + " does not exist"};
      line.file = *file;
      if (check && !check(program, line)) return {Fault::Refused, program.name, line.line, ""};
      continue;
    }
    std::string why;
    const auto called = ResolveCall(runDir_, line.text, why);
    if (!called) return {Fault::ProgramMissing, program.name, line.line, why};
    const Program* callee = nullptr;
    if (auto fault = Enter(called->path, called->name, depth + 1, stack, check, callee)) {
      if (fault.kind == Fault::Nesting && fault.line == 0) {  // the calling line says where
        fault.file = program.name;
        fault.line = line.line;
      }
      return fault;
    }
    line.file = called->path;
    line.program = callee;
    height = std::max(height, 1 + height_.at(Canonical(called->path)));
  }
  return {};
}

} // namespace orvex
