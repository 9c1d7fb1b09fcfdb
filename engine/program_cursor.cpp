// Walking the program tree of a run, one MI call or breakpoint at a time.
#include "engine/program_cursor.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace orvex::engine {

namespace {

double SubStepsOf(const ProgramFile* program, std::map<const ProgramFile*, double>& memo) {
  if (auto it = memo.find(program); it != memo.end()) return it->second;
  double total = 0;
  for (const ProgramEntry& e : program->entries) {
    if (e.kind == ProgramEntry::Mi)
      total += static_cast<double>(e.mi->fieldSteps) *
               static_cast<double>(std::max<std::int64_t>(1, e.mi->intermediateSteps));
    else if (e.kind == ProgramEntry::Call)
      total += SubStepsOf(e.program, memo);
  }
  memo[program] = total;
  return total;
}

} // namespace

ProgramCursor::ProgramCursor(const ProgramFile* top) {
  std::map<const ProgramFile*, double> memo;
  totalSubSteps_ = SubStepsOf(top, memo);
  stack_.push_back({top, 0});
}

ProgramCursor::Item ProgramCursor::Step(std::vector<Frame>& stack, const MiFile*& mi) {
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next >= f.program->entries.size()) {
      stack.pop_back();
      continue;
    }
    const ProgramEntry& e = f.program->entries[f.next++];
    if (e.kind == ProgramEntry::Breakpoint) return Item::Breakpoint;
    if (e.kind == ProgramEntry::Mi) {
      mi = e.mi;
      return Item::Mi;
    }
    stack.push_back({e.program, 0});
  }
  return Item::End;
}

ProgramCursor::Item ProgramCursor::Next(const MiFile*& mi) { return Step(stack_, mi); }

bool ProgramCursor::AnythingLeft() const {
  if (mi_) return true;
  auto copy = stack_;
  const MiFile* mi = nullptr;
  for (;;) {
    const Item it = Step(copy, mi);
    if (it == Item::Mi) return true;
    if (it == Item::End) return false;
  }
}

void ProgramCursor::Begin(const MiFile* mi) {
  mi_ = mi;
  k_ = l_ = 0;
  miStart_ = time_;
}

std::int64_t ProgramCursor::SubStepsPerMain() const {
  return mi_ ? std::max<std::int64_t>(1, mi_->intermediateSteps) : 1;
}

bool ProgramCursor::Advance(std::int64_t count) {
  const std::int64_t n = SubStepsPerMain();
  const double tau = mi_->timeStep, delta = tau / static_cast<double>(n);
  l_ += count;
  doneSubSteps_ += static_cast<double>(count);
  if (l_ == n) {
    l_ = 0;
    ++k_;
    time_ = miStart_ + static_cast<double>(k_) * tau;
    return true;
  }
  time_ = miStart_ + static_cast<double>(k_) * tau + static_cast<double>(l_) * delta;
  return false;
}

std::int32_t ProgramCursor::Thousandths() const {
  if (ended_) return 1000;
  if (totalSubSteps_ <= 0) return 0;
  const double share = std::floor(1000.0 * doneSubSteps_ / totalSubSteps_);
  return static_cast<std::int32_t>(std::clamp(share, 0.0, 999.0));
}

} // namespace orvex::engine
