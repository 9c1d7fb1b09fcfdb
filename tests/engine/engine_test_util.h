// Helpers of the engine tests: a run directory to chdir into, MI files in the workbench's
// layout, a driver for whole runs, and a dense reference exp(-iHT) built independently with
// Kronecker products.
#pragma once

#include <unistd.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include "engine/simulator.h"
#include "support/test_support.h"

namespace orvex::engine::test {

// A fresh temporary directory that is the current directory while the object lives.
class RunDir {
public:
  RunDir() {
    char buf[4096];
    saved_ = getcwd(buf, sizeof buf) ? buf : "/";
    if (chdir(dir_.path().c_str()) != 0) ADD_FAILURE() << "cannot enter " << dir_.path();
  }
  ~RunDir() {
    if (chdir(saved_.c_str()) != 0) ADD_FAILURE() << "cannot return to " << saved_;
  }
  const orvex::test::TempDir& dir() const { return dir_; }
  std::string write(const std::string& name, const std::string& text) const {
    return dir_.write(name, text);
  }
  std::string read(const std::string& name) const { return dir_.read(name); }
  bool exists(const std::string& name) const { return dir_.exists(name); }

private:
  orvex::test::TempDir dir_;
  std::string saved_;
};

inline std::string Num(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

// One MI, written the way the workbench writes it (numbers at full precision).
struct MiText {
  int qubits = 1;
  std::map<int, std::array<double, 12>> fields;  // qubit -> the twelve values
  std::vector<std::tuple<int, int, double, double, double>> pairs;
  long fieldSteps = 1;
  long intermediateSteps = 1;
  double timeStep = 1;
  std::string initial;  // e.g. "SPIN UP", "RANDOM"; empty for none
  unsigned long seed = 1;
  bool checkNorm = false;

  MiText& Field(int q, int k, double v) {
    fields[q][k] = v;
    return *this;
  }
  MiText& Pair(int i, int j, double jx, double jy, double jz) {
    pairs.emplace_back(i, j, jx, jy, jz);
    return *this;
  }
  std::string Text() const {
    std::string t = "!Micro instruction \r\nHEISENBERG INTERACTION\r\n";
    for (auto& [i, j, jx, jy, jz] : pairs)
      t += std::to_string(i) + "," + std::to_string(j) + ", " + Num(jx) + "," + Num(jy) + "," +
           Num(jz) + ",  ! Jx, Jy, Jz \r\n";
    t += "END\r\n";
    for (int q = 1; q <= qubits; ++q) {
      t += "SPIN : " + std::to_string(q) +
           " (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)\r\n";
      auto it = fields.find(q);
      for (int k = 0; k < 12; ++k) t += Num(it == fields.end() ? 0.0 : it->second[k]) + ", ";
      t += "\r\nEND\r\n";
    }
    t += "NUMBER OF FIELD STEPS\r\n" + std::to_string(fieldSteps) + "\r\nEND\r\n";
    t += "TIME STEP\r\n" + Num(timeStep) + "\r\nEND\r\n";
    t += "NUMBER OF INTERMEDIATE TIME STEPS\r\n" + std::to_string(intermediateSteps) +
         "\r\nEND\r\n";
    if (!initial.empty()) {
      t += "INITIAL STATE: " + initial + "\r\n";
      if (initial == "RANDOM") t += std::to_string(seed) + "\r\n";
      t += "END\r\n";
    }
    t += checkNorm ? "CHECK NORM\r\n" : "NO CHECK NORM\r\n";
    t += "!ABOUT\r\n!test\r\n!END\r\n";
    return t;
  }
};

// An MI that only sets the initial state ("SPIN UP", "SPIN DOWN", "RANDOM" with `seed`, ...)
// of a register of `qubits`, with no evolution.
inline MiText InitMi(int qubits, const std::string& state = "SPIN UP", unsigned long seed = 1) {
  MiText m;
  m.qubits = qubits;
  m.fieldSteps = 0;
  m.intermediateSteps = 0;
  m.timeStep = 0;
  m.initial = state;
  m.seed = seed;
  return m;
}

// "!Quantum program" header and one line per entry.
inline std::string ProgramText(const std::vector<std::string>& lines) {
  std::string t = "!Quantum program progs\\test.kvp\r\n";
  for (const auto& l : lines) t += l + "\r\n";
  return t;
}

inline CallArgs StartArgs(const std::string& program, int runMode = 0, int granularity = 0,
                          bool outputFiles = false) {
  CallArgs a;
  a.entry = -1;
  a.runMode = runMode;
  a.flags[3] = granularity;
  a.noOutputFiles = outputFiles ? 0 : 1;
  a.SetProgramName(program);
  return a;
}

// Runs `program` to its end (through breakpoints and early returns); returns the last args.
inline CallArgs RunToEnd(Simulator& sim, const std::string& program, bool outputFiles = false) {
  CallArgs a = StartArgs(program, 0, 0, outputFiles);
  for (int calls = 0; calls < 1000000; ++calls) {
    a.progress = 1;
    sim.Call(a);
    if (a.status != 0) return a;
    if (a.flags[0] == 0 && a.progress == 0) return a;
  }
  ADD_FAILURE() << "run did not end";
  return a;
}

// ---- Dense reference ----

using Matrix = Eigen::MatrixXcd;
using Vector = Eigen::VectorXcd;

inline Matrix Kron(const Matrix& a, const Matrix& b) {
  Matrix r(a.rows() * b.rows(), a.cols() * b.cols());
  for (Eigen::Index i = 0; i < a.rows(); ++i)
    for (Eigen::Index j = 0; j < a.cols(); ++j)
      r.block(i * b.rows(), j * b.cols(), b.rows(), b.cols()) = a(i, j) * b;
  return r;
}

inline Matrix Pauli(char c) {
  Matrix m(2, 2);
  using C = std::complex<double>;
  if (c == 'x') m << 0, 1, 1, 0;
  if (c == 'y') m << 0, C(0, -1), C(0, 1), 0;
  if (c == 'z') m << 1, 0, 0, -1;
  if (c == 'i') m << 1, 0, 0, 1;
  return m;
}

// sigma_c on qubit q of n (qubit 1 is the least significant bit of the basis index).
inline Matrix On(int n, int q, char c) {
  Matrix r = Matrix::Identity(1, 1);
  for (int k = n; k >= 1; --k) r = Kron(r, Pauli(k == q ? c : 'i'));
  return r;
}

// H(t) of an MI on n qubits.
inline Matrix Hamiltonian(const MiText& mi, int n, double t) {
  const Eigen::Index dim = Eigen::Index{1} << n;
  Matrix h = Matrix::Zero(dim, dim);
  for (auto& [i, j, jx, jy, jz] : mi.pairs) {
    if (i == j) continue;
    h -= (jx * On(n, i, 'x') * On(n, j, 'x') + jy * On(n, i, 'y') * On(n, j, 'y') +
          jz * On(n, i, 'z') * On(n, j, 'z')) / 4.0;
  }
  for (auto& [q, f] : mi.fields) {
    const char axes[3] = {'x', 'y', 'z'};
    for (int a = 0; a < 3; ++a) {
      const double v = f[3 * a] + f[3 * a + 1] * std::sin(f[3 * a + 2] * t + f[9 + a]);
      h -= v * On(n, q, axes[a]) / 2.0;
    }
  }
  return h;
}

inline Matrix Expm(const Matrix& h, double t) {
  Eigen::SelfAdjointEigenSolver<Matrix> s(h);
  Vector phases(h.rows());
  for (Eigen::Index k = 0; k < h.rows(); ++k)
    phases[k] = std::polar(1.0, -s.eigenvalues()[k] * t);
  return s.eigenvectors() * phases.asDiagonal() * s.eigenvectors().adjoint();
}

inline Vector BasisState(int n, Eigen::Index index) {
  Vector v = Vector::Zero(Eigen::Index{1} << n);
  v[index] = 1;
  return v;
}

// Q values (1 - <sigma>)/2 of qubit q of a dense state: x, y, z.
inline std::array<double, 3> QOf(const Vector& v, int n, int q) {
  std::array<double, 3> r{};
  const char axes[3] = {'x', 'y', 'z'};
  for (int a = 0; a < 3; ++a)
    r[a] = (1 - (v.adjoint() * On(n, q, axes[a]) * v)(0, 0).real()) / 2;
  return r;
}

inline Vector StateOf(const Simulator& sim) {
  const StateVector* s = sim.State();
  Vector v(static_cast<Eigen::Index>(s->Size()));
  for (std::uint64_t i = 0; i < s->Size(); ++i) v[static_cast<Eigen::Index>(i)] = s->Get(i);
  return v;
}

// Two runs end with the same state and the same reported values, to the last bit.
inline void ExpectSameBits(const Vector& a, const CallArgs& lastA, const Vector& b,
                           const CallArgs& lastB, int qubits) {
  ASSERT_EQ(a.size(), b.size());
  EXPECT_EQ(std::memcmp(a.data(), b.data(), static_cast<std::size_t>(a.size()) * sizeof(Amp)), 0);
  for (int q = 0; q < qubits; ++q) {
    EXPECT_EQ(lastA.x[q], lastB.x[q]) << q;
    EXPECT_EQ(lastA.y[q], lastB.y[q]) << q;
    EXPECT_EQ(lastA.z[q], lastB.z[q]) << q;
  }
}

} // namespace orvex::engine::test
