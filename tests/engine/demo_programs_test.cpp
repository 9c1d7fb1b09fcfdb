// The demo programs of data/progs run against their MI sets as the workbench lays them out
// (the set's MI files and callable-program redirects copied beside the program, the programs
// those redirects name at their place under the data directory) and end with the Q values
// their "# expect:" line states, within the "# tolerance:" line when there is one.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "engine/mi_file.h"
#include "engine_test_util.h"
#include "mi/mi_file.h"

namespace fs = std::filesystem;

namespace orvex::engine::test {
namespace {

std::string ReadAll(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

struct Demo {
  fs::path program;
  std::string set;
  std::vector<double> expect;  // Qx Qy Qz per qubit
  double tolerance = 1e-6;     // a simulated device is only as good as its pulses
};

std::vector<Demo> Demos() {
  std::vector<Demo> demos;
  const fs::path dir = fs::path(ORVEX_SOURCE_DIR) / "data" / "progs";
  for (const auto& e : fs::directory_iterator(dir)) {
    if (e.path().extension() != ".kvp") continue;
    Demo d;
    d.program = e.path();
    std::istringstream in(ReadAll(e.path()));
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.rfind("# set: ", 0) == 0) d.set = line.substr(7);
      if (line.rfind("# tolerance: ", 0) == 0) d.tolerance = std::stod(line.substr(13));
      if (line.rfind("# expect: ", 0) == 0) {
        std::istringstream values(line.substr(10));
        std::string token;
        while (values >> token)
          if (token != "|") d.expect.push_back(std::stod(token));
      }
    }
    demos.push_back(d);
  }
  return demos;
}

TEST(DemoPrograms, EndWithTheExpectedQubitStates) {
  const auto demos = Demos();
  ASSERT_GE(demos.size(), 4u);
  for (const Demo& d : demos) {
    SCOPED_TRACE(d.program.filename().string());
    ASSERT_FALSE(d.set.empty());
    const fs::path set = fs::path(ORVEX_SOURCE_DIR) / "data" / "MI" / d.set;
    const int qubits = std::stoi(ReadAll(set / "qubits.dat"));
    ASSERT_EQ(d.expect.size(), 3u * qubits);
    RunDir dir;
    for (const auto& f : fs::directory_iterator(set)) {
      const std::string name = f.path().filename().string(), text = ReadAll(f.path());
      if (f.path().extension() == ".MI") dir.write(name, text);
      if (f.path().extension() != ".MP") continue;
      dir.write(name, text);
      // "@progs\dir\name.kvp": the program it names, relative to the data directory.
      std::string target = text.substr(1, text.find_first_of("\r\n") - 1);
      std::replace(target.begin(), target.end(), '\\', '/');
      ASSERT_TRUE(fs::exists(fs::path(ORVEX_SOURCE_DIR) / "data" / target)) << name;
      dir.write(target, ReadAll(fs::path(ORVEX_SOURCE_DIR) / "data" / target));
    }
    dir.write(d.program.filename().string(), ReadAll(d.program));
    Simulator sim;
    CallArgs a = RunToEnd(sim, d.program.filename().string());
    ASSERT_EQ(a.status, 0) << dir.read("kv1dll.log");
    ASSERT_EQ(sim.Qubits(), qubits);
    for (int q = 0; q < qubits; ++q) {
      EXPECT_NEAR(a.x[q], d.expect[3 * q], d.tolerance) << "qubit " << q + 1;
      EXPECT_NEAR(a.y[q], d.expect[3 * q + 1], d.tolerance) << "qubit " << q + 1;
      EXPECT_NEAR(a.z[q], d.expect[3 * q + 2], d.tolerance) << "qubit " << q + 1;
    }
  }
}

TEST(DemoPrograms, SetFilesAreExactlyWhatTheWorkbenchWrites) {
  for (const auto& [name, qubits] : {std::pair{"ideal2", 2}, {"ideal3", 3}, {"spin3", 3}}) {
    const fs::path set = fs::path(ORVEX_SOURCE_DIR) / "data" / "MI" / name;
    EXPECT_EQ(ReadAll(set / "qubits.dat"), " " + std::to_string(qubits) + " \r\n");
    EXPECT_NE(ReadAll(set / "INITIALIZE.MI").find("\r\nINITIAL STATE: SPIN UP\r\nEND\r\n"),
              std::string::npos);
    for (const auto& f : fs::directory_iterator(set)) {
      const std::string text = ReadAll(f.path());
      // CR LF line ends throughout.
      for (std::size_t p = text.find('\n'); p != std::string::npos; p = text.find('\n', p + 1))
        ASSERT_TRUE(p > 0 && text[p - 1] == '\r') << f.path();
      if (f.path().extension() != ".MI") continue;
      orvex::MicroInstruction mi;
      mi.Name = f.path().filename().string();
      orvex::ParseMI(text, mi);
      // The header keeps the user's figure in units of 2 pi; reading divides the printed
      // product, which is off in the 15th digit, so take the figure from the header.
      const std::size_t header = text.find("TIME STEP ; ");
      if (header != std::string::npos) mi.TimeStep = std::stod(text.substr(header + 12));
      EXPECT_EQ(orvex::FormatMI(mi, qubits, 0.5), text) << f.path();
    }
  }
}

TEST(WorkbenchMiFiles, ParseWithTheWorkbenchsNumbers) {
  orvex::MicroInstruction mi;
  mi.Name = "INITIALIZE.MI";
  mi.Field(1, 0) = 0.5;
  mi.Field(1, 3) = -0.25;
  mi.Field(2, 7) = 1e-05;
  mi.Field(2, 8) = 1.5e20;
  mi.Field(2, 11) = 3;
  mi.J(1, 2, 0) = 0.5;
  mi.J(1, 2, 2) = -1;
  mi.J(2, 3, 1) = 0.125;
  mi.FieldSteps = 4;
  mi.IntermediateSteps = 7;
  mi.TimeStep = 0.1;
  mi.TimeStepInPi = 1;
  mi.InitialState = 3;
  mi.CheckNorm = true;
  mi.Description = "a description may mention the initial state";
  // The largest seed the writer draws, from a random number just below 1.
  const std::string text = orvex::FormatMI(mi, 3, std::nextafter(1.0, 0.0));
  MiFile parsed;
  ASSERT_FALSE(ParseMi("INITIALIZE.MI", text, parsed)) << text;
  EXPECT_EQ(parsed.maxQubit, 3);
  EXPECT_EQ(parsed.field[0][0], 0.5);
  EXPECT_EQ(parsed.field[0][3], -0.25);
  EXPECT_EQ(parsed.field[1][7], 1e-05);
  EXPECT_EQ(parsed.field[1][8], 1.5e20);
  EXPECT_EQ(parsed.field[1][11], 3);
  ASSERT_EQ(parsed.couplings.size(), 2u);
  EXPECT_EQ(parsed.couplings[0].jx, 0.5);
  EXPECT_EQ(parsed.couplings[0].jz, -1);
  EXPECT_EQ(parsed.couplings[1].jy, 0.125);
  EXPECT_EQ(parsed.fieldSteps, 4);
  EXPECT_EQ(parsed.intermediateSteps, 7);
  EXPECT_NEAR(parsed.timeStep, 0.1 * 2 * 3.14159265358979, 1e-14);
  EXPECT_EQ(parsed.initial, InitialState::Random);
  EXPECT_EQ(parsed.seed, 278332379u);
  EXPECT_TRUE(parsed.checkNorm);
}

} // namespace
} // namespace orvex::engine::test
