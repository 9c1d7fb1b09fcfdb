// Threading policies for the state-vector kernels: ParallelFor, a worker pool of the size it
// is given, and SequentialFor, the calling thread alone, both running the same fixed list of
// tasks.
#pragma once

#include <cstdint>
#include <memory>

namespace orvex::engine {

// The thread count a front end passes when nobody chose one: ORVEX_THREADS when it holds a
// positive number (at most 1024), else the number of cores. Read anew at every call; the
// engine's own code never calls it, it is handed a count.
unsigned DefaultThreadCount();

class WorkerPool;

// Every kernel splits its work into `count` tasks whose boundaries depend only on the state
// size, never on the number of threads; partial sums are combined in task order, so every
// policy and every thread count gives bit-identical results.
class ParallelFor {
public:
  // `threads` threads in all, the calling thread included (0 counts as 1). One thread starts
  // no worker. Copies share the pool; one Run at a time per pool.
  explicit ParallelFor(unsigned threads);

  template <class F>
  void Run(std::uint64_t count, const F& fn) const {
    if (count == 0) return;
    if (count == 1 || !pool_) {
      for (std::uint64_t i = 0; i < count; ++i) fn(i);
      return;
    }
    RunOnPool(count, [](void* ctx, std::uint64_t i) { (*static_cast<const F*>(ctx))(i); },
              const_cast<void*>(static_cast<const void*>(&fn)));
  }
  unsigned Threads() const { return threads_; }

private:
  void RunOnPool(std::uint64_t count, void (*fn)(void*, std::uint64_t), void* ctx) const;

  std::shared_ptr<WorkerPool> pool_;  // null with one thread
  unsigned threads_ = 1;
};

class SequentialFor {
public:
  template <class F>
  void Run(std::uint64_t count, const F& fn) const {
    for (std::uint64_t i = 0; i < count; ++i) fn(i);
  }
};

} // namespace orvex::engine
