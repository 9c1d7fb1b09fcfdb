// orvex-cli run against the real engine: every demo program gives the values it expects, and
// failures end with status 2 and a message on standard error.
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli_fixture.h"
#include "support/test_support.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex::test {
namespace {

using Result = CliResult;
using CliRunTest = CliHomeTest;

// "# key: value" of a program file, trimmed.
std::string Header(const std::string& text, const std::string& key) {
  for (const std::string& line : SplitLines(text))
    if (line.rfind("# " + key + ":", 0) == 0) return Trim(line.substr(key.size() + 3));
  return "";
}

// "a b c | d e f" -> one triple per qubit.
std::vector<std::vector<double>> Expected(const std::string& text) {
  std::vector<std::vector<double>> qubits;
  std::stringstream all(text);
  std::string group;
  while (std::getline(all, group, '|')) {
    std::stringstream values(group);
    std::vector<double> q;
    double v;
    while (values >> v) q.push_back(v);
    qubits.push_back(q);
  }
  return qubits;
}

// The csv output "qubit,Qx,Qy,Qz" then "n,x,y,z" lines.
std::vector<std::vector<double>> ParseCsv(const std::string& out) {
  std::vector<std::vector<double>> qubits;
  auto lines = SplitLines(out);
  EXPECT_FALSE(lines.empty());
  if (lines.empty()) return qubits;
  EXPECT_EQ(lines[0], "qubit,Qx,Qy,Qz");
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::stringstream cells(lines[i]);
    std::string cell;
    std::vector<double> row;
    while (std::getline(cells, cell, ',')) row.push_back(std::stod(cell));
    EXPECT_EQ(row.size(), 4u) << lines[i];
    EXPECT_EQ(row[0], static_cast<double>(i)) << lines[i];
    row.erase(row.begin());
    qubits.push_back(row);
  }
  return qubits;
}

void ExpectValues(const std::vector<std::vector<double>>& got,
                  const std::vector<std::vector<double>>& want, const std::string& what,
                  double tolerance = 1e-6) {
  ASSERT_EQ(got.size(), want.size()) << what;
  for (std::size_t q = 0; q < want.size(); ++q) {
    ASSERT_EQ(want[q].size(), 3u) << what;
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(got[q][k], want[q][k], tolerance) << what << " qubit " << q + 1 << " component " << k;
  }
}

TEST_F(CliRunTest, EveryDemoProgramGivesItsExpectedValues) {
  int programs = 0;
  for (const auto& entry : fs::directory_iterator(home + "progs")) {
    if (Lower(entry.path().extension().string()) != ".kvp") continue;
    const std::string text = ReadWholeFile(entry.path().string());
    const std::string set = Header(text, "set");
    const std::string expect = Header(text, "expect");
    ASSERT_FALSE(set.empty()) << entry.path();
    ASSERT_FALSE(expect.empty()) << entry.path();
    ++programs;
    Result r = Cli("run '" + entry.path().string() + "' --set " + set + " --home '" + home +
                   "' --format csv");
    ASSERT_EQ(r.status, 0) << entry.path() << "\n" << r.err;
    const std::string tolerance = Header(text, "tolerance");
    ExpectValues(ParseCsv(r.out), Expected(expect), entry.path().string(),
                 tolerance.empty() ? 1e-6 : std::stod(tolerance));
  }
  EXPECT_GE(programs, 1) << "no demo programs in " << ORVEX_BIN_DIR;
}

TEST_F(CliRunTest, BreakpointsAndCallablePrograms) {
  // Bell, halted twice on the way, and Bell again called through a ".MP" redirect.
  dir.write("home/progs/bell_stops.kvp",
            "!Quantum program progs/bell_stops.kvp\r\n@INITIALIZE.MI\r\n@Hadamard1.MI\r\n"
            "!BREAKPOINT\r\n@Hadamard2.MI\r\n@CZ.MI\r\n!BREAKPOINT\r\n@Hadamard2.MI\r\n");
  dir.write("home/MI/ideal2/bellcall.MP", "@progs/bell.kvp\r\n");
  dir.write("home/MI/ideal2/ghost.MP", "@progs/ghost.kvp\r\n");
  dir.write("home/progs/calls.kvp", "!Quantum program progs/calls.kvp\r\n@bellcall.MP\r\n");
  const std::vector<std::vector<double>> bell = {{.5, .5, .5}, {.5, .5, .5}};
  // The set is opened as the workbench opens it: a set without INITIALIZE gets one.
  fs::remove(home + "MI/ideal2/INITIALIZE.MI");

  Result stops = Cli("run progs/bell_stops.kvp --set ideal2 --format csv", "cd '" + home + "' && ORVEX_HOME='" + home + "'");
  ASSERT_EQ(stops.status, 0) << stops.err;
  EXPECT_NE(stops.err.find("halted at breakpoint 1\nhalted at breakpoint 2\n"), std::string::npos)
      << stops.err;
  ExpectValues(ParseCsv(stops.out), bell, "bell_stops");
  EXPECT_TRUE(dir.exists("home/MI/ideal2/Initialize.mi"));

  Result calls = Cli("run '" + home + "progs/calls.kvp' --set IDEAL2 --home '" + home + "' --format csv");
  ASSERT_EQ(calls.status, 0) << calls.err;
  EXPECT_NE(calls.err.find("warning: Program file progs/ghost.kvp could not be found. "
                           "Micro program ghost.MP not loaded.\n"),
            std::string::npos)
      << calls.err;
  ExpectValues(ParseCsv(calls.out), bell, "calls");
  EXPECT_EQ(dir.read("home/progs/bellcall.MP"), "@progs/bell.kvp\r\n");  // the redirect copy
  EXPECT_FALSE(dir.exists("home/progs/ghost.MP"));
}

// The csv of a stepped run, "step,name,qubit,Qx,Qy,Qz": per step its name and the values.
struct Step {
  std::string name;
  std::vector<std::vector<double>> qubits;
};
std::vector<Step> ParseSteps(const std::string& out) {
  std::vector<Step> steps;
  auto lines = SplitLines(out);
  EXPECT_FALSE(lines.empty());
  if (lines.empty()) return steps;
  EXPECT_EQ(lines[0], "step,name,qubit,Qx,Qy,Qz");
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::stringstream cells(lines[i]);
    std::string step, name, cell;
    std::getline(cells, step, ',');
    std::getline(cells, name, ',');
    std::vector<double> row;
    while (std::getline(cells, cell, ',')) row.push_back(std::stod(cell));
    EXPECT_EQ(row.size(), 4u) << lines[i];
    const std::size_t n = std::stoul(step);
    if (n == steps.size() + 1) steps.push_back({name, {}});
    EXPECT_EQ(n, steps.size()) << lines[i];  // steps in order, each with all its rows together
    EXPECT_EQ(row[0], static_cast<double>(steps.back().qubits.size() + 1)) << lines[i];
    row.erase(row.begin());
    steps.back().qubits.push_back(row);
  }
  return steps;
}

TEST_F(CliRunTest, SteppingReportsEveryStepTheLastIncludedWithItsValues) {
  const std::vector<std::vector<double>> deutsch = {{.5, .5, 1}, {1, .5, .5}};
  Result program = Cli("run '" + home + "progs/deutsch.kvp' --set ideal2 --home '" + home +
                       "' --step program --format csv");
  ASSERT_EQ(program.status, 0) << program.err;
  const std::vector<Step> steps = ParseSteps(program.out);
  const std::vector<std::string> names = {"INITIALIZE", "Not2", "Hadamard1", "Hadamard2",
                                          "Hadamard2", "CZ", "Hadamard2", "Hadamard1"};
  ASSERT_EQ(steps.size(), names.size()) << program.out;
  for (std::size_t k = 0; k < steps.size(); ++k) {
    EXPECT_EQ(steps[k].name, names[k]) << k;
    EXPECT_EQ(steps[k].qubits.size(), 2u) << k;
  }
  EXPECT_NE(steps[1].qubits, steps[0].qubits);  // each step carries the values after it
  ExpectValues(steps.back().qubits, deutsch, "deutsch by program steps");

  // Intermediate steps: many more, the last again with the result; the table gives each
  // step a heading and its own table, json one array of steps.
  Result all = Cli("run '" + home + "progs/deutsch.kvp' --set ideal2 --home '" + home +
                   "' --step all --format csv");
  ASSERT_EQ(all.status, 0) << all.err;
  const std::vector<Step> fine = ParseSteps(all.out);
  ASSERT_GT(fine.size(), 20u);
  EXPECT_EQ(fine.back().name, "Hadamard1");
  ExpectValues(fine.back().qubits, deutsch, "deutsch by all steps");

  Result table = Cli("run '" + home + "progs/deutsch.kvp' --set ideal2 --home '" + home +
                     "' --step program");
  ASSERT_EQ(table.status, 0) << table.err;
  EXPECT_EQ(table.out.rfind("step 1: INITIALIZE\nqubit", 0), 0u) << table.out;
  EXPECT_NE(table.out.find("\n\nstep 8: Hadamard1\nqubit"), std::string::npos) << table.out;
  Result json = Cli("run '" + home + "progs/deutsch.kvp' --set ideal2 --home '" + home +
                    "' --step program --format json");
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_EQ(json.out.rfind("[\n  {\"step\": 1, \"name\": \"INITIALIZE\", \"qubits\": [", 0), 0u)
      << json.out;
  EXPECT_NE(json.out.find("{\"step\": 8, \"name\": \"Hadamard1\""), std::string::npos) << json.out;
  EXPECT_EQ(json.out.substr(json.out.size() - 7), "  ]}\n]\n") << json.out;
}

TEST_F(CliRunTest, AnySpellingOfTheHomeDirectoryRuns) {
  const std::vector<std::vector<double>> bell = Expected(
      Header(ReadWholeFile(home + "progs/bell.kvp"), "expect"));
  fs::create_directories(home + "bin");
  struct Case {
    std::string cwd, home, program;
  } cases[] = {
      {home, ".", "progs/bell.kvp"},
      {home, "./", "./progs/bell.kvp"},
      {home + "bin", "..", "../progs/bell.kvp"},
      {home + "bin", "../bin/..", home + "progs/bell.kvp"},
      {dir.path(), "home", "home/progs/bell.kvp"},
      {dir.path(), "./home//", "home/./progs/../progs/bell.kvp"},
  };
  for (const Case& c : cases) {
    Result r = Cli("run '" + c.program + "' --set ideal2 --home '" + c.home + "' --format csv",
                   "cd '" + c.cwd + "' &&");
    ASSERT_EQ(r.status, 0) << c.home << " " << c.program << ": " << r.err;
    ExpectValues(ParseCsv(r.out), bell, c.home);
  }
}

TEST_F(CliRunTest, TableAndJsonFormats) {
  Result table = Cli("run '" + home + "progs/bell.kvp' --set ideal2 --home '" + home + "'");
  ASSERT_EQ(table.status, 0) << table.err;
  auto lines = SplitLines(table.out);
  ASSERT_EQ(lines.size(), 3u) << table.out;
  EXPECT_EQ(lines[0].substr(0, 5), "qubit");
  EXPECT_EQ(lines[0].size(), lines[1].size()) << table.out;  // aligned columns
  EXPECT_EQ(lines[1].substr(0, 1), "1");

  Result json = Cli("run '" + home + "progs/bell.kvp' --set ideal2 --home '" + home + "' --format=json");
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_EQ(json.out.front(), '[');
  EXPECT_NE(json.out.find("{\"qubit\": 2, \"Qx\": "), std::string::npos) << json.out;

  EXPECT_FALSE(dir.exists("home/progs/qubit01.out"));
  Result files = Cli("run '" + home + "progs/bell.kvp' --set ideal2 --home '" + home + "' --output-files");
  ASSERT_EQ(files.status, 0) << files.err;
  EXPECT_TRUE(dir.exists("home/progs/qubit01.out"));
  EXPECT_TRUE(dir.exists("home/progs/qubit02.out"));
}

TEST_F(CliRunTest, EngineErrorExitsTwoWithTheMessage) {
  dir.write("home/progs/broken.kvp", "!Quantum program progs/broken.kvp\r\n@NOPE.MI\r\n");
  Result r = Cli("run '" + home + "progs/broken.kvp' --set ideal2 --home '" + home + "' --format csv");
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_NE(r.err.find("Micro instruction or program file cannot be found.\n"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("reason: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("NOPE"), std::string::npos) << r.err;
}

TEST_F(CliRunTest, BadInputGetsOneClearLine) {
  struct Case {
    std::string args, message;
  } cases[] = {
      {"run", "no program given"},
      {"run progs/bell.kvp", "no MI set given (--set NAME)"},
      {"run progs/bell.kvp --set ideal2 --format xml", "--format takes table, csv or json, not 'xml'"},
      {"run progs/bell.kvp --set ideal2 --step some", "--step takes program, main or all, not 'some'"},
      {"run progs/bell.kvp --set ideal2 --frobnicate", "unknown option --frobnicate"},
      {"run progs/bell.kvp --set", "option --set needs a value"},
      {"run progs/bell.kvp --set nosuchset --home '" + home + "'", "MI set 'nosuchset' not found in " + home + "MI/"},
      {"run progs/nothere.kvp --set ideal2 --home '" + home + "'", "program file progs/nothere.kvp not found"},
      {"run progs/bell.kvp --set .. --home '" + home + "'", "MI set '..' not found in " + home + "MI/"},
      {"run progs/bell.kvp --set ideal2/../.. --home '" + home + "'", "MI set 'ideal2/../..' not found in " + home + "MI/"},
  };
  for (const Case& c : cases) {
    Result r = Cli(c.args, "cd '" + home + "' &&");
    EXPECT_EQ(r.status, 2) << c.args;
    EXPECT_EQ(r.err, "orvex-cli run: " + c.message + "\n") << c.args;
    EXPECT_TRUE(r.out.empty()) << c.args;
  }
  EXPECT_FALSE(dir.exists("home/qubits.dat"));  // no directory but a set's is taken for one
}

} // namespace
} // namespace orvex::test
