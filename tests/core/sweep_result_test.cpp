// Reading the sweep command's CSV back: refusals name the line, a map's grid keeps each value
// at its own x and y, and every parameter name reads back as the same parameter.
#include <cmath>

#include <gtest/gtest.h>

#include "run/sweep_result.h"

namespace orvex::test {
namespace {

TEST(SweepResult, MalformedOutputIsRefusedWithTheLineAndNoRows) {
  struct Case {
    const char* text;
    const char* says;
  } cases[] = {
      {"", "empty"},
      {"value1,qubit,Qx,Qy\n1,1,0,0\n", "line 1 is not the header"},
      {"value1,qubit,Qx,Qy,Qz\n1,1,0,0,0\n2,1,0,0\n", "line 3 has 4 fields instead of 5: '2,1,0,0'"},
      {"value1,qubit,Qx,Qy,Qz\nabc,1,0,0,0\n", "line 2 has a value that is not a number"},
      {"value1,value2,qubit,Qx,Qy,Qz\n1,2,0,0,0,0\n", "line 2 has no qubit number"},
      {"value1,qubit,Qx,Qy,Qz\n1,1.5,0,0,0\n", "line 2 has no qubit number"},
      {"value1,qubit,Qx,Qy,Qz\n1,1,0,nan,0\n", "line 2 has a Q that is not a number"},
      {"value1,qubit,Qx,Qy,Qz\n1,1,0,0,0,\n", "line 2 has 6 fields"},
      {"value1,qubit,Qx,Qy,Qz\n", "no points"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_FALSE(ParseSweepCsv(c.text, error)) << c.text;
    EXPECT_NE(error.find(c.says), std::string::npos) << c.text << " -> " << error;
  }
}

TEST(SweepResult, AMapPutsEachPointAtItsValuesForTheChosenQubitAndComponent) {
  // Two values of the first parameter, three of the second; two qubits (the CLI's row order).
  std::string text = "value1,value2,qubit,Qx,Qy,Qz\r\n";
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j)
      for (int q = 1; q <= 2; ++q)
        text += std::to_string(10 + i) + "," + std::to_string(-j) + "," + std::to_string(q) + ",0," +
                std::to_string(0.1 * q) + "," + std::to_string(0.01 * (10 * i + j)) + "\r\n";
  std::string error;
  const auto result = ParseSweepCsv(text, error);
  ASSERT_TRUE(result) << error;
  EXPECT_EQ(result->axes, 2);
  EXPECT_EQ(result->qubits, 2);
  const SweepGrid grid = SweepGridOf(*result, 2, 2);
  EXPECT_EQ(grid.x, (std::vector<double>{10, 11}));
  EXPECT_EQ(grid.y, (std::vector<double>{0, -1, -2}));
  ASSERT_EQ(grid.sigma.size(), 2u);
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(grid.sigma[i][j], 1 - 0.02 * (10 * i + j), 1e-12) << i << j;
  const auto curve = SweepCurve(*result, 2, 1);  // sigma_y of qubit 2 = 1 - 0.4
  ASSERT_EQ(curve.size(), 6u);
  EXPECT_NEAR(curve[5].second, 0.6, 1e-12);
}

TEST(SweepResult, ParameterNamesReadBackAsTheSameParameter) {
  std::vector<SweepParameter> all;
  for (int k = 0; k < 12; ++k) all.push_back({SweepParameter::Field, k, 3, 0});
  for (int k = 0; k < 3; ++k) all.push_back({SweepParameter::Coupling, k, 2, 7});
  for (auto kind : {SweepParameter::TimeStep, SweepParameter::FieldSteps, SweepParameter::IntermediateSteps})
    all.push_back({kind, 0, 0, 0});
  for (const SweepParameter& p : all) {
    std::string error;
    const std::string name = SweepParameterName(p);
    const auto axis = ParseSweepSpec("A.MI:" + name + "=0:1:2", error);
    ASSERT_TRUE(axis) << name << ": " << error;
    EXPECT_EQ(axis->parameter.kind, p.kind) << name;
    EXPECT_EQ(axis->parameter.index, p.index) << name;
    EXPECT_EQ(axis->parameter.qubit, p.qubit) << name;
    EXPECT_EQ(axis->parameter.other, p.other) << name;
  }
  EXPECT_EQ(SweepParameterName({SweepParameter::Field, 2, 1, 0}), "Omega_x@1");
  EXPECT_EQ(SweepParameterName({SweepParameter::Coupling, 0, 1, 2}), "Jx@1-2");
}

} // namespace
} // namespace orvex::test
