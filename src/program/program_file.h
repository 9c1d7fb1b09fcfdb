// Program files (".KVP") and callable-program redirect files (".MP").
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

// The file dialogs' filter of program files.
inline constexpr const char* kProgramFilter = "Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*";

// The rows a program file holds, by the reading rules ("@X.MI" an MI row, "@X.MP" a program
// row, "!BREAKPOINT" a breakpoint, everything else skipped). The "Start" row is not included.
std::vector<ProgramRow> ParseProgram(const std::string& text);
std::vector<ProgramRow> ReadProgramRows(const std::string& path);  // throws the file error

// The bytes the saver writes: "!Quantum program " + name, then one line per row (breakpoint,
// MI or program rows; any other kind, the Start row included, writes nothing); CR LF ends.
std::string FormatProgram(const std::string& programName, const std::vector<ProgramRow>& rows);
void WriteProgramFile(const std::string& path, const std::string& programName,
                      const std::vector<ProgramRow>& rows);

// What a program file looks like: text (no NUL byte) that begins with our header, or whose
// lines, blank ones aside, each begin with "@" (a call), "!" (a breakpoint or comment) or "#"
// (a comment) once leading blanks are passed. A help page, a library or a letter is none; an
// empty file is one.
bool LooksLikeProgram(const std::string& bytes);
// Whether the bytes begin with the header our writer puts on every program file
// ("!Quantum program ", compared without regard to case).
bool WrittenByOrvex(const std::string& bytes);
// ".MP": ReadMPFile sets the slot's Description to "Run: " + the trimmed text after the first
// "@" of the first line (left unchanged without "@"). WriteMPFile writes one line, "@" + the
// Description from its fifth character on, trimmed.
void ReadMPFile(const std::string& path, MicroInstruction& mi);
void WriteMPFile(const std::string& path, const MicroInstruction& mi);
// The program path a callable entry's Description carries after "Run: ", trimmed.
std::string CallTarget(const MicroInstruction& mi);

} // namespace orvex
