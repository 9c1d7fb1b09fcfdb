// The walk of a program through the programs it calls, as a run takes it: which lines of a
// program file call MIs and programs or halt, how a name is found in a directory, where a
// call leads through its ".MP" redirect, and the tree of programs a run reaches with the
// nesting and recursion checks. The engine loads its program tree with this walk and the
// workbench places the marks of a halted run with it, so the two cannot disagree about what
// a program does.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvex {

// How deep programs may call one another: the top program is at depth 1.
inline constexpr int kMaxProgramNesting = 16;

// One line of a program file that a run acts on.
struct ProgramLine {
  enum Kind { Mi, Call, Breakpoint } kind = Mi;
  int line = 0;      // 1-based line of the file
  std::string text;  // the name as written after "@", trimmed ("" for a breakpoint)
};

// The lines of a program file's text that call or halt, by the program file reading rules:
// "!BREAKPOINT" (the whole line, compared in upper case) is a breakpoint; an "@" line calls
// the name after it (up to a comment after "!" or, failing that, "#"; trimmed), an MI when
// the name ends in "MI" and otherwise a program; a line of "@" alone calls nothing; every
// other line is skipped.
std::vector<ProgramLine> ParseProgramLines(const std::string& text);

// Finds `name` below `dir` as FindPath does: "\" and "/" both separate components; each
// component, trimmed, is matched without regard to letter case (of two names that differ only
// in case, the first in directory order); empty and "." components are skipped and ".." goes
// up. nullopt when a component is not there.
std::optional<std::filesystem::path> ResolveName(const std::filesystem::path& dir,
                                                 const std::string& name);

// Where a call of `text` leads, for a run in `runDir`: a name ending in ".MP" is a redirect
// in `runDir` whose first line holds "@" and a program path, found in `runDir` or else in the
// nearest of its ancestors that has it; any other name is the program file itself. On
// failure `why` holds the reason and nullopt is returned.
struct CalledProgram {
  std::filesystem::path path;  // the program file
  std::string name;            // the program as named by the redirect (or the call)
};
std::optional<CalledProgram> ResolveCall(const std::filesystem::path& runDir,
                                         const std::string& text, std::string& why);

// The program tree of a run in `runDir`: every program reached from the top one, each read
// once, with its MI files and called programs resolved, checked before anything runs.
class ProgramWalk {
public:
  struct Program;
  struct Line : ProgramLine {
    std::filesystem::path file;        // Mi: the MI file; Call: the program file
    const Program* program = nullptr;  // Call: the program called
  };
  struct Program {
    std::string name;  // as named by the caller (or the top program's name)
    std::filesystem::path path;
    std::vector<Line> lines;
  };

  // Why a walk stopped: the file and line (0 for the file as a whole) and the reason.
  struct Fault {
    enum Kind {
      None,
      ProgramMissing,  // the top program, a redirect or the program it names is missing or
                       // unreadable
      MiMissing,       // an MI line names no file
      Nesting,         // deeper than kMaxProgramNesting, or a program that calls itself
      Refused,         // the MI check said no
    } kind = None;
    std::string file;
    int line = 0;
    std::string reason;
    explicit operator bool() const { return kind != None; }
  };

  // Asked once for every MI line of every program when that program is first checked, in
  // the order of the walk, with the line's MI file resolved; false stops the walk (Refused).
  using MiCheck = std::function<bool(const Program& program, const Line& line)>;

  // Walks from the program file `name` (trimmed) in `runDir`.
  Fault Load(const std::filesystem::path& runDir, const std::string& name,
             const MiCheck& check = {});
  // Walks from a top program given as its text (what would be saved as `name`).
  Fault LoadText(const std::filesystem::path& runDir, const std::string& name,
                 const std::string& text, const MiCheck& check = {});

  const Program* Top() const { return top_; }
  const std::filesystem::path& RunDir() const { return runDir_; }

private:
  static std::vector<Line> WalkLines(const std::string& text);
  // Checks the lines of `program` at `depth`; `height` is how deep its calls nest below it.
  Fault Walk(Program& program, int depth, std::vector<std::filesystem::path>& stack,
             const MiCheck& check, int& height);
  Fault Enter(const std::filesystem::path& path, const std::string& name, int depth,
              std::vector<std::filesystem::path>& stack, const MiCheck& check,
              const Program*& out);

  std::filesystem::path runDir_;
  std::map<std::filesystem::path, std::unique_ptr<Program>> programs_;
  std::map<std::filesystem::path, int> height_;  // programs fully checked: nesting below them
  std::unique_ptr<Program> textTop_;
  const Program* top_ = nullptr;
};

} // namespace orvex
