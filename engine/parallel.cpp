// The worker pool behind ParallelFor: workers sleep on a condition variable and pull task
// indices from one atomic counter while a job is posted.
#include "engine/parallel.h"

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace orvex::engine {

unsigned DefaultThreadCount() {
  if (const char* env = std::getenv("ORVEX_THREADS")) {
    char* end = nullptr;
    long v = std::strtol(env, &end, 10);
    if (end != env && v > 0) return static_cast<unsigned>(v > 1024 ? 1024 : v);
  }
  unsigned hw = std::thread::hardware_concurrency();
  return hw == 0 ? 1u : hw;
}

class WorkerPool {
public:
  explicit WorkerPool(unsigned threads) {
    for (unsigned i = 1; i < threads; ++i) workers_.emplace_back([this] { Work(); });
  }
  ~WorkerPool() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    for (auto& t : workers_) t.join();
  }

  void Run(std::uint64_t count, void (*fn)(void*, std::uint64_t), void* ctx) {
    // One job at a time: kernels are called from one thread (the caller of the engine).
    std::lock_guard<std::mutex> jobLock(jobMutex_);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      fn_ = fn;
      ctx_ = ctx;
      count_ = count;
      next_.store(0, std::memory_order_relaxed);
      busy_ = static_cast<unsigned>(workers_.size());
      ++generation_;
    }
    wake_.notify_all();
    Drain();
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return busy_ == 0; });
  }

private:
  void Drain() {
    for (;;) {
      std::uint64_t i = next_.fetch_add(1, std::memory_order_relaxed);
      if (i >= count_) return;
      fn_(ctx_, i);
    }
  }

  void Work() {
    std::uint64_t seen = 0;
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [&] { return stop_ || generation_ != seen; });
        if (stop_) return;
        seen = generation_;
      }
      Drain();
      std::lock_guard<std::mutex> lock(mutex_);
      if (--busy_ == 0) done_.notify_one();
    }
  }

  std::vector<std::thread> workers_;
  std::mutex jobMutex_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  bool stop_ = false;
  std::uint64_t generation_ = 0;
  unsigned busy_ = 0;
  void (*fn_)(void*, std::uint64_t) = nullptr;
  void* ctx_ = nullptr;
  std::uint64_t count_ = 0;
  std::atomic<std::uint64_t> next_{0};
};

ParallelFor::ParallelFor(unsigned threads) : threads_(threads == 0 ? 1 : threads) {
  if (threads_ > 1) pool_ = std::make_shared<WorkerPool>(threads_);
}

void ParallelFor::RunOnPool(std::uint64_t count, void (*fn)(void*, std::uint64_t),
                            void* ctx) const {
  pool_->Run(count, fn, ctx);
}

} // namespace orvex::engine
