// The workbench's side of the fidelity command: what it asks and how it reads the answer.
#include <gtest/gtest.h>

#include "run/fidelity_job.h"

namespace orvex {
namespace {

TEST(FidelityJob, ReadsMapPhasesAndFidelityAsTheCommandPrintsThem) {
  const std::string out =
      "0.707107+0.000000i  -0.000000-0.707107i\r\n"
      "-0.000000-0.707107i  0.707107-0.000000i\r\n"
      "z phase before qubit 2: 0.100000000\n"
      "z phase after qubit 2: -3.141592654\n"
      "fidelity 0.999999999997, leakage 1.5e-12\n";
  std::string error;
  const auto r = ParseFidelityOutput(out, error);
  ASSERT_TRUE(r) << error;
  ASSERT_EQ(r->map.dim, 2);
  EXPECT_DOUBLE_EQ(r->map(0, 0).real(), 0.707107);
  EXPECT_DOUBLE_EQ(r->map(0, 1).imag(), -0.707107);
  EXPECT_DOUBLE_EQ(r->map(1, 0).real(), -0.0);
  EXPECT_DOUBLE_EQ(r->map(1, 0).imag(), -0.707107);
  EXPECT_EQ(r->phasesBefore, std::vector<double>{0.1});
  EXPECT_EQ(r->phasesAfter, std::vector<double>{-3.141592654});
  EXPECT_DOUBLE_EQ(r->fidelity, 0.999999999997);
  EXPECT_DOUBLE_EQ(r->leakage, 1.5e-12);

  // A map that is not square, or no fidelity line, is no result.
  EXPECT_FALSE(ParseFidelityOutput("1.000000+0.000000i  0.000000+0.000000i\nfidelity 1, leakage 0\n", error));
  EXPECT_FALSE(ParseFidelityOutput("1.000000+0.000000i\n", error));
  EXPECT_EQ(error, "The fidelity command printed no fidelity.");
}

TEST(FidelityJob, ArgumentsCarryTheAngleOnlyForTargetsThatTakeOne) {
  FidelityRequest r;
  r.what = "CZ.MI";
  r.set = "ideal2";
  r.home = "/h/";
  r.qubits = {2, 1};
  r.target = "CZ";
  r.angle = 0.5;
  r.zPhases = true;
  r.order = 4;
  EXPECT_EQ(FidelityArguments(r),
            (std::vector<std::string>{"fidelity", "CZ.MI", "--set", "ideal2", "--home", "/h/", "--qubits",
                                      "2,1", "--target", "CZ", "--z-phases", "--order", "4"}));
  r.target = "CPHASE";
  r.zPhases = false;
  r.order = 2;
  EXPECT_EQ(FidelityArguments(r),
            (std::vector<std::string>{"fidelity", "CZ.MI", "--set", "ideal2", "--home", "/h/", "--qubits",
                                      "2,1", "--target", "CPHASE", "--angle", "0.5", "--order", "2"}));
}

TEST(FidelityJob, QubitsAreCheckedAgainstTheRegisterAndProposedFromTheMI) {
  std::vector<int> q;
  std::string error;
  EXPECT_TRUE(ParseQubitList(" 3, 1", 3, q, error));
  EXPECT_EQ(q, (std::vector<int>{3, 1}));
  EXPECT_FALSE(ParseQubitList("1,4", 3, q, error));
  EXPECT_EQ(error, "Qubit 4 is not in the register (qubits 1 to 3).");
  EXPECT_FALSE(ParseQubitList("2,2", 3, q, error));
  EXPECT_FALSE(ParseQubitList("1,2,3,4,5", 8, q, error));
  EXPECT_FALSE(ParseQubitList("1;2", 3, q, error));

  MicroInstruction mi;
  EXPECT_EQ(QubitsActedOn(mi, 5), std::vector<int>{1});
  mi.J(2, 4, 2) = 1;
  mi.Field(5, 9) = 0.3;  // a phase alone counts too
  EXPECT_EQ(QubitsActedOn(mi, 5), (std::vector<int>{2, 4, 5}));
  EXPECT_EQ(QubitsActedOn(mi, 4), (std::vector<int>{2, 4}));  // beyond the register is not looked at
}

} // namespace
} // namespace orvex
