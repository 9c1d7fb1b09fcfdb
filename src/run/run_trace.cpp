// The trace model of a program's run.
#include "run/run_trace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace orvex {

void ClearTrace(ProgramTrace& trace) {
  trace.Points.clear();
  trace.Qubits = 0;
  trace.Marker = -1;
  ++trace.Revision;
}

namespace {

void Thin(std::vector<TracePoint>& points) {
  std::vector<TracePoint> kept;
  kept.reserve(points.size() / 2 + 2);
  for (std::size_t k = 0; k < points.size(); k += 2) kept.push_back(points[k]);
  if (points.size() % 2 == 0) kept.push_back(points.back());
  points.swap(kept);
}

void Push(ProgramTrace& trace, TracePoint&& point) {
  if (trace.Points.size() >= kMaxTracePoints) Thin(trace.Points);
  trace.Points.push_back(std::move(point));
  ++trace.Revision;
}

} // namespace

void AppendTracePoint(ProgramTrace& trace, double time, int n, const double* x, const double* y,
                      const double* z) {
  n = std::clamp(n, 0, kMaxQubits);
  TracePoint point;
  point.Time = time;
  for (int q = 0; q < n; ++q) {
    point.Q[3 * q] = x[q];
    point.Q[3 * q + 1] = y[q];
    point.Q[3 * q + 2] = z[q];
  }
  trace.Qubits = std::max(trace.Qubits, n);
  Push(trace, std::move(point));
}

int DrainEngineTrace(const EngineExtras& engine, ProgramTrace& trace) {
  if (!engine.trace) return 0;
  constexpr int kBatch = 256;
  std::vector<double> times(kBatch), q(static_cast<std::size_t>(kBatch) * 96);
  int total = 0;
  for (;;) {
    std::int32_t n = 0;
    const std::int32_t got = engine.trace(kBatch, times.data(), q.data(), &n);
    if (got <= 0) break;
    const int qubits = std::clamp<int>(n, 0, kMaxQubits);
    for (int k = 0; k < std::min<int>(got, kBatch); ++k) {
      TracePoint point;
      point.Time = times[k];
      std::copy_n(q.begin() + static_cast<std::ptrdiff_t>(k) * 96, 3 * qubits, point.Q.begin());
      Push(trace, std::move(point));
    }
    trace.Qubits = std::max(trace.Qubits, qubits);
    total += got;
    if (got < kBatch) break;
  }
  return total;
}

double Purity(double qx, double qy, double qz) {
  const double rx = 1 - 2 * qx, ry = 1 - 2 * qy, rz = 1 - 2 * qz;
  return std::sqrt(rx * rx + ry * ry + rz * rz);
}

std::vector<std::pair<double, double>> TraceCurve(const ProgramTrace& trace, int qubit, int c,
                                                  bool sigma) {
  std::vector<std::pair<double, double>> curve;
  if (qubit < 1 || qubit > kMaxQubits || c < 0 || c > 3) return curve;
  curve.reserve(trace.Points.size());
  const int base = 3 * (qubit - 1);
  for (const TracePoint& p : trace.Points) {
    double v;
    if (c == 3) v = Purity(p.Q[base], p.Q[base + 1], p.Q[base + 2]);
    else v = sigma ? 1 - 2 * p.Q[base + c] : p.Q[base + c];
    curve.emplace_back(p.Time, v);
  }
  return curve;
}

std::string TraceCsv(const ProgramTrace& trace) {
  std::string out = "t,qubit,Qx,Qy,Qz\n";
  char line[160];
  for (const TracePoint& p : trace.Points)
    for (int q = 1; q <= trace.Qubits; ++q) {
      const int b = 3 * (q - 1);
      std::snprintf(line, sizeof line, "%.15g,%d,%.15g,%.15g,%.15g\n", p.Time, q, p.Q[b],
                    p.Q[b + 1], p.Q[b + 2]);
      out += line;
    }
  return out;
}

std::vector<Population> LargestPopulations(const std::vector<double>& amplitudes, int n,
                                           std::size_t count) {
  std::vector<Population> all;
  if (n < 0 || n > kMaxQubits) return all;
  const std::size_t states = std::size_t{1} << n;
  if (amplitudes.size() < 2 * states) return all;
  all.reserve(states);
  for (std::size_t b = 0; b < states; ++b) {
    const double re = amplitudes[2 * b], im = amplitudes[2 * b + 1];
    all.push_back({static_cast<std::uint32_t>(b), "", re * re + im * im});
  }
  const std::size_t keep = std::min(count, all.size());
  std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(keep), all.end(),
                    [](const Population& a, const Population& b) {
                      return a.probability != b.probability ? a.probability > b.probability
                                                            : a.index < b.index;
                    });
  all.resize(keep);
  for (Population& p : all) {
    p.label.resize(static_cast<std::size_t>(n));
    for (int q = 0; q < n; ++q) p.label[static_cast<std::size_t>(q)] = (p.index >> q) & 1 ? '1' : '0';
  }
  return all;
}

std::vector<double> EngineAmplitudes(const EngineExtras& engine, int& qubits) {
  qubits = 0;
  if (!engine.state) return {};
  const std::int32_t capacity = std::int32_t{1} << kMaxPopulationQubits;
  std::vector<double> amplitudes(2 * static_cast<std::size_t>(capacity));
  std::int32_t n = 0;
  const std::int32_t got = engine.state(capacity, amplitudes.data(), &n);
  qubits = n;
  if (got <= 0 || n < 0 || n > kMaxPopulationQubits || got != (std::int32_t{1} << n)) return {};
  amplitudes.resize(2 * static_cast<std::size_t>(got));
  return amplitudes;
}

} // namespace orvex
