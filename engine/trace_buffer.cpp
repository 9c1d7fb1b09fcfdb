#include "engine/trace_buffer.h"

#include <algorithm>

namespace orvex::engine {

void TraceBuffer::Reset(int qubits) {
  qubits_ = qubits;
  times_.clear();
  values_.clear();
  times_.shrink_to_fit();
  values_.shrink_to_fit();
  dropped_ = 0;
}

void TraceBuffer::Add(double time, const double* q) {
  if (!recording_) return;
  const std::size_t per = static_cast<std::size_t>(qubits_) * 3;
  const std::size_t bytesPerRecord = (per + 1) * sizeof(double);
  if ((times_.size() + 1) * bytesPerRecord > kMaxBytes && !times_.empty()) {
    times_.pop_front();
    values_.erase(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(per));
    ++dropped_;
  }
  times_.push_back(time);
  values_.insert(values_.end(), q, q + per);
}

std::size_t TraceBuffer::Take(std::size_t capacity, double* times, double* q) {
  const std::size_t count = std::min(capacity, times_.size());
  const std::size_t per = static_cast<std::size_t>(qubits_) * 3;
  for (std::size_t k = 0; k < count; ++k) {
    times[k] = times_[k];
    std::fill(q + k * 96, q + (k + 1) * 96, 0.0);
    std::copy(values_.begin() + static_cast<std::ptrdiff_t>(k * per),
              values_.begin() + static_cast<std::ptrdiff_t>((k + 1) * per), q + k * 96);
  }
  times_.erase(times_.begin(), times_.begin() + static_cast<std::ptrdiff_t>(count));
  values_.erase(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(count * per));
  return count;
}

} // namespace orvex::engine
