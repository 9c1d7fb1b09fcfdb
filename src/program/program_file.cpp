// Program files (".KVP": a header, then "@name.MI", "@name.MP" and "!BREAKPOINT" lines)
// and the one-line ".MP" files that make a program callable from an MI set.
#include "program/program_file.h"

#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

const char* const kEOL = "\r\n";

// 1-based position of `c` in `s`, 0 when absent.
long Pos(const std::string& s, char c) {
  std::string::size_type p = s.find(c);
  return p == std::string::npos ? 0 : static_cast<long>(p) + 1;
}

} // namespace

std::vector<ProgramRow> ParseProgram(const std::string& text) {
  std::vector<ProgramRow> rows;
  for (const std::string& line : SplitLines(text)) {
    if (line.empty()) continue;
    if (line[0] == '!') {
      // The whole line, untrimmed, is compared; any other "!" line is a comment.
      if (Upper(line) == "!BREAKPOINT") rows.push_back({"Breakpoint", kIconBreakpoint});
      continue;
    }
    if (line[0] != '@') continue;
    // A comment after "!" (or, without one, after "#") ends the entry.
    long p = Pos(line, '!') - 2;
    if (p < 0) p = Pos(line, '#') - 2;
    const std::string entry =
        p > 0 ? Trim(line.substr(1, static_cast<std::size_t>(p))) : Trim(line.substr(1));
    const bool isMI = entry.size() >= 2 && Upper(entry.substr(entry.size() - 2)) == "MI";
    rows.push_back({NameWithoutExtension(entry), isMI ? kIconMI : kIconProgramRow});
  }
  return rows;
}

std::vector<ProgramRow> ReadProgramRows(const std::string& path) {
  return ParseProgram(ReadWholeFile(path));
}

std::string FormatProgram(const std::string& programName, const std::vector<ProgramRow>& rows) {
  std::string out = "!Quantum program " + programName + kEOL;
  for (const ProgramRow& row : rows) {
    switch (row.Icon) {
    case kIconBreakpoint: out += std::string("!BREAKPOINT") + kEOL; break;
    case kIconMI: out += "@" + row.Text + ".MI" + kEOL; break;
    case kIconProgramRow: out += "@" + row.Text + ".MP" + kEOL; break;
    default: break;
    }
  }
  return out;
}

void WriteProgramFile(const std::string& path, const std::string& programName,
                      const std::vector<ProgramRow>& rows) {
  WriteWholeFile(path, FormatProgram(programName, rows));
}

bool LooksLikeProgram(const std::string& bytes) {
  if (bytes.find('\0') != std::string::npos) return false;
  if (WrittenByOrvex(bytes)) return true;  // our header: stray lines are only skipped
  for (const std::string& line : SplitLines(bytes)) {
    const std::string t = Trim(line);
    if (!t.empty() && t[0] != '@' && t[0] != '!' && t[0] != '#') return false;
  }
  return true;
}

bool WrittenByOrvex(const std::string& bytes) {
  static const std::string header = "!QUANTUM PROGRAM ";
  return bytes.size() >= header.size() && Upper(bytes.substr(0, header.size())) == header;
}

void ReadMPFile(const std::string& path, MicroInstruction& mi) {
  const std::vector<std::string> lines = SplitLines(ReadWholeFile(path));
  if (lines.empty()) return;
  const std::string& first = lines[0];
  std::string::size_type at = first.find('@');
  if (at == std::string::npos) return;
  mi.Description = "Run: " + Trim(first.substr(at + 1));
}

std::string CallTarget(const MicroInstruction& mi) {
  return mi.Description.size() > 4 ? Trim(mi.Description.substr(4)) : std::string();
}

void WriteMPFile(const std::string& path, const MicroInstruction& mi) {
  WriteWholeFile(path, "@" + CallTarget(mi) + kEOL);
}

} // namespace orvex
