// Threading policies for the state-vector kernels: a persistent worker pool behind
// ParallelFor, and SequentialFor, both running the same fixed list of tasks.
#pragma once

#include <cstdint>
#include <utility>

namespace orvex::engine {

// Number of threads the engine uses: ORVEX_THREADS when set to a positive number, else the
// number of cores.
unsigned EngineThreadCount();

namespace detail {
// Runs fn(ctx, i) for i in [0, count) on the shared pool (the calling thread takes part).
void RunOnPool(std::uint64_t count, void (*fn)(void*, std::uint64_t), void* ctx);
} // namespace detail

// Every kernel splits its work into `count` tasks whose boundaries depend only on the state
// size, never on the number of threads; partial sums are combined in task order, so both
// policies give bit-identical results.
class ParallelFor {
public:
  template <class F>
  void Run(std::uint64_t count, const F& fn) const {
    if (count == 0) return;
    if (count == 1) {
      fn(std::uint64_t{0});
      return;
    }
    detail::RunOnPool(
        count, [](void* ctx, std::uint64_t i) { (*static_cast<const F*>(ctx))(i); },
        const_cast<void*>(static_cast<const void*>(&fn)));
  }
  unsigned Threads() const { return EngineThreadCount(); }
};

class SequentialFor {
public:
  template <class F>
  void Run(std::uint64_t count, const F& fn) const {
    for (std::uint64_t i = 0; i < count; ++i) fn(i);
  }
  unsigned Threads() const { return 1; }
};

} // namespace orvex::engine
