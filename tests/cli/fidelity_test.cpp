// orvex-cli fidelity against the real engine: ideal gates of the demo sets, an over-rotated
// Rabi pulse and a pulse that leaks into a third qubit, each against its closed form.
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <string>

#include <gtest/gtest.h>

#include "mi/mi_format.h"
#include "cli_fixture.h"
#include "support/test_support.h"
#include "workspace/file_bytes.h"
#include "workspace/workspace.h"

namespace fs = std::filesystem;

namespace orvex::test {
namespace {

struct Outcome : CliResult {
  double fidelity = -1, leakage = -1;
};

class CliFidelityTest : public CliHomeTest {
protected:
  // orvex-cli fidelity WHAT --set SET --home HOME `rest`, with the last line's two numbers.
  Outcome Fidelity(const std::string& what, const std::string& set, const std::string& rest) {
    Outcome r;
    static_cast<CliResult&>(r) =
        Cli("fidelity '" + what + "' --set " + set + " --home '" + home + "' " + rest);
    for (const std::string& line : SplitLines(r.out)) {
      if (line.rfind("fidelity ", 0) == 0) {
        EXPECT_EQ(std::sscanf(line.c_str(), "fidelity %lf, leakage %lf", &r.fidelity, &r.leakage), 2)
            << line;
      }
    }
    return r;
  }

  // Writes an MI of three qubits into the copy of ideal3.
  void WriteMI(const std::string& name, MicroInstruction mi) {
    mi.Name = name;
    dir.write("home/MI/ideal3/" + name, FormatMI(mi, 3, 0));
  }

};

TEST_F(CliFidelityTest, IdealGatesOfTheDemoSetsAreExact) {
  for (const auto& [set, czName] : {std::pair{"ideal3", "CZ12"}, std::pair{"ideal2", "CZ"}}) {
    Outcome cz = Fidelity(czName, set, "--qubits 1,2 --target CZ");
    ASSERT_EQ(cz.status, 0) << cz.err;
    EXPECT_NEAR(cz.fidelity, 1, 1e-9) << set << "\n" << cz.out;
    EXPECT_NEAR(cz.leakage, 0, 1e-9) << set << "\n" << cz.out;
    Outcome sx = Fidelity("X90_1", set, "--qubits 1 --z-phases --target SX");
    ASSERT_EQ(sx.status, 0) << sx.err;
    EXPECT_NEAR(sx.fidelity, 1, 1e-9) << set << "\n" << sx.out;
  }
  // A single-qubit gate up to virtual z rotations; H is SX between two z rotations by pi/2.
  for (const auto& [mi, gate] : {std::pair{"X90_1.MI", "SX"}, std::pair{"Hadamard1", "H"},
                                 std::pair{"Hadamard1", "SX"}}) {
    Outcome r = Fidelity(mi, "ideal3", std::string("--qubits 1 --z-phases --target ") + gate);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NEAR(r.fidelity, 1, 1e-9) << mi << "\n" << r.out;
    EXPECT_NE(r.out.find("z phase before qubit 1:"), std::string::npos) << r.out;
  }
  // H2 CZ H2 is CNOT with control 1: the qubit listed first is the most significant bit, so
  // "1,2" matches and "2,1" (control 2) does not.
  dir.write("home/progs/cnot.kvp", "@Hadamard2.MI\r\n@CZ12.MI\r\n@Hadamard2.MI\r\n");
  Outcome cnot = Fidelity(home + "progs/cnot.kvp", "ideal3", "--qubits 1,2 --target CNOT");
  ASSERT_EQ(cnot.status, 0) << cnot.err;
  EXPECT_NEAR(cnot.fidelity, 1, 1e-9) << cnot.out;
  Outcome reversed = Fidelity(home + "progs/cnot.kvp", "ideal3", "--qubits 2,1 --target CNOT");
  ASSERT_EQ(reversed.status, 0) << reversed.err;
  // The two CNOTs agree on |00> only: |Tr(U^+ M)| = 1.
  EXPECT_NEAR(reversed.fidelity, (4 + 1) / 20.0, 1e-9) << reversed.out;
}

TEST_F(CliFidelityTest, Spin3DeviceGivesTheFidelitiesTheHelpStates) {
  // The worked example of the help page quotes these numbers; a change to the set, the
  // engine or the fit shows here first. The device is real: nothing is exactly 1.
  Outcome sx = Fidelity("X90_1", "spin3", "--qubits 1 --z-phases --target SX");
  ASSERT_EQ(sx.status, 0) << sx.err;
  EXPECT_NEAR(sx.fidelity, 0.999989940997, 1e-6) << sx.out;
  EXPECT_GT(sx.leakage, 0) << sx.out;
  // CZ12 is a program of the set: two idles around echo pulses, no z phases left to fit.
  Outcome cz = Fidelity(home + "progs/spin3/cz12.kvp", "spin3", "--qubits 1,2 --target CZ");
  ASSERT_EQ(cz.status, 0) << cz.err;
  EXPECT_NEAR(cz.fidelity, 0.998889431925, 1e-6) << cz.out;
  // The same program named as the set's entry that calls it (CZ12.MP).
  Outcome entry = Fidelity("CZ12", "spin3", "--qubits 1,2 --target CZ");
  ASSERT_EQ(entry.status, 0) << entry.err;
  EXPECT_EQ(entry.fidelity, cz.fidelity) << entry.out;
}

TEST_F(CliFidelityTest, OverRotatedRabiPulseMatchesTheClosedForm) {
  // A field -h along x for time t is exp(-i h t sigma_x / 2) = Rx(h t); against Rx(theta)
  // the fidelity is (2 + 4 cos^2(eps/2)) / 6 with eps = h t - theta.
  const double h = 1.5, t = 1.2, theta = std::numbers::pi / 2, eps = h * t - theta;
  MicroInstruction rabi;
  rabi.Field(1, Hx0) = -h;
  rabi.FieldSteps = 3;
  rabi.IntermediateSteps = 2;
  rabi.TimeStep = t / 3;
  WriteMI("Rabi.MI", rabi);
  char angle[64];
  std::snprintf(angle, sizeof angle, "%.17g", theta);
  for (const char* order : {"2", "4"}) {
    Outcome r = Fidelity("Rabi", "ideal3",
                         std::string("--qubits 1 --target RX --angle ") + angle + " --order " + order);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NEAR(r.fidelity, (2 + 4 * std::pow(std::cos(eps / 2), 2)) / 6, 1e-9) << r.out;
    EXPECT_NEAR(r.leakage, 0, 1e-12) << r.out;
  }
  // The user's MI file is only read.
  MicroInstruction again = rabi;
  again.Name = "Rabi.MI";
  EXPECT_EQ(dir.read("home/MI/ideal3/Rabi.MI"), FormatMI(again, 3, 0));
}

TEST_F(CliFidelityTest, ExchangeWithAThirdQubitLeaks) {
  // Jx = Jy = J between qubits 1 and 3, qubit 3 in |0>: |0> of qubit 1 stays, |1> keeps the
  // amplitude cos(J t / 2) (the rest goes to qubit 3). M = diag(1, c): leakage (1 - c^2)/2,
  // fidelity against I (1 + c^2 + (1 + c)^2) / 6.
  const double J = 1.0, t = 1.0, c = std::cos(J * t / 2);
  MicroInstruction leak;
  leak.J(1, 3, 0) = J;
  leak.J(1, 3, 1) = J;
  leak.FieldSteps = 1;
  leak.IntermediateSteps = 5;
  leak.TimeStep = t;
  WriteMI("Leak.MI", leak);
  Outcome r = Fidelity("Leak.MI", "ideal3", "--qubits 1 --target I");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NEAR(r.leakage, (1 - c * c) / 2, 1e-12) << r.out;
  EXPECT_NEAR(r.fidelity, (1 + c * c + (1 + c) * (1 + c)) / 6, 1e-12) << r.out;
  // On qubits 1 and 3 together nothing leaks: it is a partial swap.
  Outcome both = Fidelity("Leak.MI", "ideal3", "--qubits 1,3 --target I");
  ASSERT_EQ(both.status, 0) << both.err;
  EXPECT_NEAR(both.leakage, 0, 1e-12) << both.out;
}

TEST_F(CliFidelityTest, BadRequestsAreRefusedWithAMessage) {
  for (const std::string& rest :
       {std::string("--qubits 1,2 --target TOFFOLI"), std::string("--qubits 1 --target CZ"),
        std::string("--qubits 1,2,3,4,5 --target I"), std::string("--qubits 1,1 --target I"),
        std::string("--qubits 1 --target RX")}) {
    Outcome r = Fidelity("CZ12", "ideal3", rest);
    EXPECT_EQ(r.status, 2) << rest;
    EXPECT_TRUE(r.out.empty()) << rest;
    EXPECT_NE(r.err.find("orvex-cli fidelity: "), std::string::npos) << rest << r.err;
  }
  Outcome missing = Fidelity("NoSuchGate", "ideal3", "--qubits 1 --target I");
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("neither an MI of the set nor a program file"), std::string::npos)
      << missing.err;
}

} // namespace
} // namespace orvex::test
