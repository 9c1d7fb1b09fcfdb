// The trace of a run: the values the per-qubit output files get (one record per completed
// main step and per initial-state MI), kept in memory for a caller that plots them while the
// run goes on. Recording is off by default and then costs nothing; the caller drains the
// records, oldest first, between engine calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace orvex::engine {

class TraceBuffer {
public:
  // Records kept at most while nobody drains them; past this the oldest go (a caller that
  // plots drains after every call, long before).
  static constexpr std::size_t kMaxBytes = std::size_t{256} << 20;

  void SetRecording(bool on) { recording_ = on; }
  bool Recording() const { return recording_; }

  // Empties the buffer for a run of `qubits` qubits (0: no run).
  void Reset(int qubits);
  int Qubits() const { return qubits_; }

  // One record: the program time and Q of every qubit (x, y, z per qubit, qubits() of them).
  // Does nothing while recording is off.
  void Add(double time, const double* q);
  // The same from the measured expectation values <sigma> of qubits 1..qubits() (anything
  // with members x, y, z), with Q = (1 - <sigma>) / 2 computed as the output files do.
  template <class Bloch>
  void AddSigma(double time, const std::vector<Bloch>& sigma) {
    if (!recording_) return;
    row_.resize(static_cast<std::size_t>(qubits_) * 3);
    for (int i = 0; i < qubits_; ++i) {
      const std::size_t k = static_cast<std::size_t>(i);
      const Bloch& b = sigma[k];
      row_[3 * k] = (1 - b.x) / 2;
      row_[3 * k + 1] = (1 - b.y) / 2;
      row_[3 * k + 2] = (1 - b.z) / 2;
    }
    Add(time, row_.data());
  }

  std::size_t Pending() const { return times_.size(); }
  // Records dropped because the buffer was full since the last Reset.
  std::uint64_t Dropped() const { return dropped_; }

  // Moves up to `capacity` records, oldest first, into times[k] and
  // q[(k * 32 + qubit - 1) * 3 + c]; returns how many.
  std::size_t Take(std::size_t capacity, double* times, double* q);

private:
  bool recording_ = false;
  int qubits_ = 0;
  std::deque<double> times_;
  std::deque<double> values_;  // qubits_ * 3 per record
  std::uint64_t dropped_ = 0;
  std::vector<double> row_;
};

} // namespace orvex::engine
