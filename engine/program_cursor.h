// The position of a run in its program tree: the frames of the programs being walked, the MI
// being evolved and its next sub-step, the program time and the progress through the whole
// program.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/mi_file.h"
#include "engine/program_tree.h"

namespace orvex::engine {

class ProgramCursor {
public:
  enum class Item { Mi, Breakpoint, End };

  ProgramCursor() = default;
  // At the start of `top`, with its sub-steps counted through every nested program.
  explicit ProgramCursor(const ProgramFile* top);

  // Moves to the next MI call or breakpoint, descending into called programs and leaving
  // finished ones; an MI call is returned in `mi` (it is not begun).
  Item Next(const MiFile*& mi);
  // Whether an MI is still to be evolved: the one begun, or one further on.
  bool AnythingLeft() const;

  // Makes `mi` the MI being evolved, from its first sub-step, at the current time.
  void Begin(const MiFile* mi);
  // The MI is done (or has no main steps): none is being evolved.
  void Finish() { mi_ = nullptr; }
  const MiFile* Mi() const { return mi_; }
  std::int64_t MainStep() const { return k_; }
  std::int64_t SubStep() const { return l_; }
  // Sub-steps per main step of the MI being evolved.
  std::int64_t SubStepsPerMain() const;
  bool MiDone() const { return mi_ && k_ == mi_->fieldSteps; }

  // Records `count` further sub-steps done (never past the end of the main step); true when
  // they complete it.
  bool Advance(std::int64_t count);
  // Program time after the last sub-step done.
  double Time() const { return time_; }

  void End() { ended_ = true; }
  // Thousandths (0...1000) of the program's sub-steps done; 1000 only once it has ended.
  std::int32_t Thousandths() const;

private:
  struct Frame {
    const ProgramFile* program;
    std::size_t next;
  };
  static Item Step(std::vector<Frame>& stack, const MiFile*& mi);

  std::vector<Frame> stack_;
  const MiFile* mi_ = nullptr;
  std::int64_t k_ = 0, l_ = 0;
  double miStart_ = 0, time_ = 0;
  double totalSubSteps_ = 0, doneSubSteps_ = 0;
  bool ended_ = false;
};

} // namespace orvex::engine
