// Loading and checking of the program tree: the program walk finds the programs and MI files,
// the engine reads and checks each MI as the walk reaches it.
#include "engine/program_tree.h"

#include <algorithm>
#include <system_error>

#include "program/program_walk.h"

namespace fs = std::filesystem;

namespace orvex::engine {

namespace {

fs::path Canonical(const fs::path& p) {
  std::error_code ec;
  fs::path c = fs::weakly_canonical(p, ec);
  return ec ? p.lexically_normal() : c;
}

int CodeOf(ProgramWalk::Fault::Kind kind) {
  switch (kind) {
    case ProgramWalk::Fault::MiMissing: return code::kMiMissing;
    case ProgramWalk::Fault::Nesting: return code::kNesting;
    default: return code::kProgramMissing;
  }
}

ProgramEntry::Kind KindOf(ProgramLine::Kind kind) {
  switch (kind) {
    case ProgramLine::Mi: return ProgramEntry::Mi;
    case ProgramLine::Call: return ProgramEntry::Call;
    default: return ProgramEntry::Breakpoint;
  }
}

} // namespace

EngineError ProgramTree::Load(const fs::path& runDir, const std::string& programName) {
  // Each MI file is read and checked once, when the walk first reaches it; the first fault
  // stops the walk.
  EngineError miFault;
  auto checkMi = [&](const ProgramWalk::Program& program, const ProgramWalk::Line& line) {
    const fs::path key = Canonical(line.file);
    if (mis_.count(key)) return true;
    auto mi = std::make_unique<MiFile>();
    if (auto e = LoadMi(line.text, line.file.string(), *mi)) {
      if (e.code == code::kMiMissing) {  // the calling line says where it was named
        e.file = program.name;
        e.line = line.line;
      }
      miFault = e;
      return false;
    }
    misInOrder_.push_back(mi.get());
    mis_.emplace(key, std::move(mi));
    return true;
  };
  ProgramWalk walk;
  if (auto fault = walk.Load(runDir, programName, checkMi)) {
    if (fault.kind == ProgramWalk::Fault::Refused) return miFault;
    return {CodeOf(fault.kind), fault.file, fault.line, fault.reason};
  }

  // The engine's own tree: one ProgramFile per program walked, calls and MIs linked.
  std::map<const ProgramWalk::Program*, ProgramFile*> made;
  auto make = [&](auto& self, const ProgramWalk::Program* p) -> ProgramFile* {
    if (auto it = made.find(p); it != made.end()) return it->second;
    ProgramFile* file = programs_.emplace_back(std::make_unique<ProgramFile>()).get();
    made[p] = file;
    file->name = p->name;
    file->path = p->path;
    for (const ProgramWalk::Line& line : p->lines) {
      ProgramEntry e;
      e.kind = KindOf(line.kind);
      e.line = line.line;
      e.text = line.text;
      if (line.kind == ProgramLine::Mi) e.mi = mis_.at(Canonical(line.file)).get();
      if (line.kind == ProgramLine::Call) e.program = self(self, line.program);
      file->entries.push_back(std::move(e));
    }
    return file;
  };
  top_ = make(make, walk.Top());

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

} // namespace orvex::engine
