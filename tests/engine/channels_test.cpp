// The optional entries beside kv3dll, loaded from the library as the workbench loads them:
// the trace holds exactly the records of the output files, drained in pieces across the
// calls of a run; the state copy gives the register's amplitudes.
#include <dlfcn.h>

#include <filesystem>
#include <sstream>

#include "engine/kv3dll.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::string LibraryPath() {
  if (const char* env = std::getenv("ORVEX_ENGINE")) return env;
  return std::string(ORVEX_BIN_DIR) + "/libkv3.so";
}

class Channels : public ::testing::Test {
protected:
  void SetUp() override {
    lib = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    entry = reinterpret_cast<decltype(&kv3dll)>(dlsym(lib, "kv3dll"));
    record = reinterpret_cast<decltype(&kv3record)>(dlsym(lib, "kv3record"));
    trace = reinterpret_cast<decltype(&kv3trace)>(dlsym(lib, "kv3trace"));
    state = reinterpret_cast<decltype(&kv3state)>(dlsym(lib, "kv3state"));
    ASSERT_TRUE(entry && record && trace && state);
  }
  void TearDown() override {
    if (record) record(0);
    if (entry) Call(-2, 0);
    if (lib) dlclose(lib);
  }

  // One kv3dll call; `word` -1 starts `program`, -2 abandons, 0 continues.
  void Call(std::int32_t word, std::int32_t outputFiles, const char* program = "p.kvp") {
    if (word != 0) entryWord = word;
    if (word < 0) std::fill(flags, flags + 4, 0);
    std::int32_t noOutput = outputFiles ? 0 : 1, runMode = 0;
    progress = 1;
    char name[33];
    std::snprintf(name, sizeof name, "%-32s", program);
    entry(&status, &progress, &runMode, &noOutput, &this->entryWord, x, y, z, flags, name);
  }

  // Runs the program to its end through every breakpoint and early return, draining the trace
  // `chunk` records at a time after every call; returns the records as output-file lines of
  // each qubit.
  std::vector<std::vector<std::string>> RunAndDrain(std::int32_t outputFiles, int chunk,
                                                    int* calls = nullptr) {
    std::vector<std::vector<std::string>> lines;
    std::vector<double> times(static_cast<std::size_t>(chunk)), q(96 * times.size());
    auto drain = [&] {
      for (;;) {
        std::int32_t n = -1;
        const std::int32_t got = trace(chunk, times.data(), q.data(), &n);
        if (got == 0) return;
        EXPECT_EQ(n, 2);
        lines.resize(static_cast<std::size_t>(n));
        for (std::int32_t k = 0; k < got; ++k)
          for (int qb = 0; qb < 32; ++qb) {
            const double* v = &q[static_cast<std::size_t>((k * 32 + qb) * 3)];
            if (qb >= n) {
              EXPECT_TRUE(v[0] == 0 && v[1] == 0 && v[2] == 0);
              continue;
            }
            char line[200];
            std::snprintf(line, sizeof line, "%.15g %.15g %.15g %.15g", times[k], v[0], v[1],
                          v[2]);
            lines[static_cast<std::size_t>(qb)].push_back(line);
          }
      }
    };
    Call(-1, outputFiles);
    int count = 1;
    for (drain(); status == 0 && (flags[0] > 0 || progress > 0); drain(), ++count)
      Call(0, outputFiles);
    EXPECT_EQ(status, 0);
    if (calls) *calls = count;
    return lines;
  }

  void* lib = nullptr;
  decltype(&kv3dll) entry = nullptr;
  decltype(&kv3record) record = nullptr;
  decltype(&kv3trace) trace = nullptr;
  decltype(&kv3state) state = nullptr;
  std::int32_t status = 0, progress = 0, entryWord = -1, flags[4] = {};
  double x[32] = {}, y[32] = {}, z[32] = {};
  RunDir dir;
};

MiText Rotation(int qubit, int axis, double angle, long main, long sub) {
  MiText m;
  m.qubits = 2;
  m.Field(qubit, 3 * axis, angle);
  m.fieldSteps = main;
  m.intermediateSteps = sub;
  m.timeStep = 1.0 / static_cast<double>(main);
  return m;
}

std::vector<std::string> FileRecords(const RunDir& dir, const char* file) {
  std::vector<std::string> lines;
  std::istringstream in(dir.read(file));
  std::string l;
  while (std::getline(in, l))
    if (!l.empty() && l[0] != '#') lines.push_back(l);
  return lines;
}

TEST_F(Channels, TraceHoldsTheOutputFilesRecordsAcrossBreakpointsAndNestedPrograms) {
  dir.write("INITIALIZE.MI", InitMi(2).Text());
  dir.write("rx.MI", Rotation(1, 0, kPi / 3, 7, 3).Text());
  dir.write("ry.MI", Rotation(2, 1, kPi / 5, 4, 2).Text());
  MiText zero = Rotation(1, 2, 0, 1, 1);
  zero.fieldSteps = 0;  // no main step: no record
  dir.write("zero.MI", zero.Text());
  dir.write("inner.kvp", ProgramText({"@ry.MI", "!BREAKPOINT", "@rx.MI"}));
  dir.write("inner.MP", "@inner.kvp\r\n");
  dir.write("p.kvp", ProgramText({"@INITIALIZE.MI", "@rx.MI", "!BREAKPOINT", "@inner.MP",
                                  "@zero.MI", "@INITIALIZE.MI", "@ry.MI"}));

  // Off by default: a run records nothing.
  RunAndDrain(1, 5);
  std::vector<double> t(4), q(4 * 96);
  std::int32_t n = -1;
  EXPECT_EQ(trace(4, t.data(), q.data(), &n), 0);

  record(1);
  int calls = 0;
  const auto traced = RunAndDrain(1, 3, &calls);
  EXPECT_GE(calls, 3);  // two breakpoints: the records came over several calls
  ASSERT_EQ(traced.size(), 2u);
  const auto file1 = FileRecords(dir, "qubit01.out"), file2 = FileRecords(dir, "qubit02.out");
  EXPECT_EQ(file1.size(), 1u + 7 + 4 + 7 + 1 + 4);
  EXPECT_EQ(traced[0], file1);
  EXPECT_EQ(traced[1], file2);

  // Without output files the records are the same.
  std::filesystem::remove("qubit01.out");
  EXPECT_EQ(RunAndDrain(0, 1000), traced);
  EXPECT_FALSE(dir.exists("qubit01.out"));

  // A start empties what was not drained; so does the clean-up call.
  Call(-1, 0);  // halts at the first breakpoint: 8 records pending
  Call(-1, 0);
  EXPECT_EQ(trace(4, t.data(), q.data(), &n), 4);
  EXPECT_EQ(t[0], 0.0);
  EXPECT_EQ(t[1], 1.0 / 7);
  EXPECT_EQ(trace(100, t.data(), q.data(), &n), 4);  // only the second start's 8
  Call(-1, 0);
  Call(-2, 0);
  EXPECT_EQ(trace(4, t.data(), q.data(), &n), 0);
  EXPECT_EQ(n, 0);
}

TEST_F(Channels, StateCopyGivesTheRegistersAmplitudes) {
  std::vector<double> amp(2 * 4, -9.0);
  std::int32_t n = -1;
  Call(-2, 0);
  EXPECT_EQ(state(4, amp.data(), &n), 0);  // no run
  EXPECT_EQ(n, 0);

  for (const char* file : {"INITIALIZE.MI", "Hadamard1.MI", "Hadamard2.MI", "CZ.MI"})
    std::filesystem::copy_file(std::string(ORVEX_BIN_DIR) + "/MI/ideal2/" + file, file);
  dir.write("flip.MI", Rotation(1, 0, kPi, 1, 8).Text());
  // Qubit 1 flipped alone: basis index 1; then a Bell pair.
  dir.write("p.kvp", ProgramText({"@INITIALIZE.MI", "@flip.MI", "!BREAKPOINT", "@INITIALIZE.MI",
                                  "@Hadamard1.MI", "@Hadamard2.MI", "@CZ.MI", "@Hadamard2.MI"}));
  Call(-1, 0);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(progress, 1);
  EXPECT_EQ(state(3, amp.data(), &n), -4);  // too small: nothing copied
  EXPECT_EQ(amp[0], -9.0);
  EXPECT_EQ(n, 2);
  ASSERT_EQ(state(4, amp.data(), &n), 4);
  EXPECT_NEAR(std::hypot(amp[2], amp[3]), 1.0, 1e-12);
  for (int b : {0, 2, 3}) EXPECT_NEAR(std::hypot(amp[2 * b], amp[2 * b + 1]), 0.0, 1e-12);

  Call(0, 0);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(progress, 0);
  ASSERT_EQ(state(4, amp.data(), &n), 4);
  const std::complex<double> a00(amp[0], amp[1]), a11(amp[6], amp[7]);
  EXPECT_NEAR(std::abs(a00), 1 / std::sqrt(2.0), 1e-9);
  EXPECT_NEAR(std::abs(a11), 1 / std::sqrt(2.0), 1e-9);
  EXPECT_NEAR(std::abs(a11 / a00 - 1.0), 0.0, 1e-9);  // |00> + |11>, up to a global phase
  EXPECT_NEAR(std::hypot(amp[2], amp[3]), 0.0, 1e-9);
  EXPECT_NEAR(std::hypot(amp[4], amp[5]), 0.0, 1e-9);
}

} // namespace
} // namespace orvex::engine::test
