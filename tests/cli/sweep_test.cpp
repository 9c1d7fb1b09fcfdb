// orvex-cli sweep against the real engine: every point equals a run of an MI edited by hand,
// the output does not depend on --jobs, --progress only adds lines on stderr, the user's set
// is never written, and a planned sweep run point by point collects to the same bytes.
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mi/mi_format.h"
#include "support/test_support.h"
#include "workspace/file_bytes.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace fs = std::filesystem;

namespace orvex::test {
namespace {

struct Output {
  int status = -1;
  std::string out, err;
};

std::vector<std::vector<double>> Rows(const std::string& csv) {
  std::vector<std::vector<double>> rows;
  const auto lines = SplitLines(csv);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    std::stringstream cells(lines[i]);
    std::string cell;
    std::vector<double> row;
    while (std::getline(cells, cell, ',')) row.push_back(std::stod(cell));
    rows.push_back(row);
  }
  return rows;
}

// Every file of a directory tree with its bytes.
std::map<std::string, std::string> Snapshot(const std::string& dir) {
  std::map<std::string, std::string> files;
  for (const auto& e : fs::recursive_directory_iterator(dir))
    if (e.is_regular_file()) files[e.path().string()] = ReadWholeFile(e.path().string());
  return files;
}

class CliSweepTest : public ::testing::Test {
protected:
  void SetUp() override {
    const char* cli = std::getenv("ORVEX_CLI");
    ASSERT_TRUE(cli && *cli) << "ORVEX_CLI is not set";
    cli_ = cli;
    for (const char* h : {"home", "hand"}) {
      fs::create_directories(fs::path(dir.path()) / h);
      for (const char* sub : {"MI", "progs"})
        fs::copy(fs::path(ORVEX_BIN_DIR) / sub, fs::path(dir.path()) / h / sub,
                 fs::copy_options::recursive);
    }
    home = dir.path() + "home/";
    rabi.Name = "Rabi.MI";
    rabi.Field(1, Hx0) = 0.7;
    rabi.Field(2, Hz0) = 0.3;
    rabi.J(1, 2, 2) = 0.4;
    rabi.FieldSteps = 2;
    rabi.IntermediateSteps = 4;
    rabi.TimeStep = 0.5;
    for (const char* h : {"home", "hand"}) {
      MicroInstruction copy = rabi;
      dir.write(std::string(h) + "/MI/ideal3/Rabi.MI", FormatMI(copy, 3, 0));
      dir.write(std::string(h) + "/progs/rabi.kvp", "@Hadamard2.MI\r\n@Rabi.MI\r\n@X90_3.MI\r\n");
    }
  }

  // `prefix` goes in front of the command ("cd DIR &&").
  Output Cli(const std::string& args, const std::string& prefix = "") {
    Output r;
    const std::string command = prefix + " '" + cli_ + "' " + args + " >'" + dir.path() +
                                "out.txt' 2>'" + dir.path() + "err.txt'";
    const int raw = std::system(command.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = dir.read("out.txt");
    r.err = dir.read("err.txt");
    return r;
  }

  Output Sweep(const std::string& vary) {
    return Cli("sweep '" + home + "progs/rabi.kvp' --set ideal3 --home '" + home + "' " + vary);
  }

  TempDir dir;
  std::string home;
  MicroInstruction rabi;
  std::string cli_;
};

TEST_F(CliSweepTest, EveryPointEqualsARunOfAnMIEditedByHand) {
  Output sweep = Sweep("--vary Rabi:Hx0@1=0.5:1.5:3 --vary rabi.mi:Jz@2-1=0:0.8:2 --jobs 2");
  ASSERT_EQ(sweep.status, 0) << sweep.err;
  ASSERT_EQ(SplitLines(sweep.out)[0], "value1,value2,qubit,Qx,Qy,Qz");
  const auto rows = Rows(sweep.out);
  ASSERT_EQ(rows.size(), 3u * 2u * 3u);
  std::size_t row = 0;
  for (double hx : {0.5, 1.0, 1.5})
    for (double jz : {0.0, 0.8}) {
      MicroInstruction edited = rabi;
      edited.Field(1, Hx0) = hx;
      edited.J(1, 2, 2) = jz;
      dir.write("hand/MI/ideal3/Rabi.MI", FormatMI(edited, 3, 0));
      Output run = Cli("run '" + dir.path() + "hand/progs/rabi.kvp' --set ideal3 --home '" +
                       dir.path() + "hand/' --format csv");
      ASSERT_EQ(run.status, 0) << run.err;
      const auto want = Rows(run.out);
      ASSERT_EQ(want.size(), 3u);
      for (std::size_t q = 0; q < 3; ++q, ++row) {
        ASSERT_EQ(rows[row].size(), 6u);
        EXPECT_DOUBLE_EQ(rows[row][0], hx);
        EXPECT_DOUBLE_EQ(rows[row][1], jz);
        EXPECT_EQ(rows[row][2], static_cast<double>(q + 1));
        for (std::size_t c = 0; c < 3; ++c)
          EXPECT_NEAR(rows[row][3 + c], want[q][1 + c], 1e-12)
              << "Hx0 " << hx << " Jz " << jz << " qubit " << q + 1;
      }
    }
}

TEST_F(CliSweepTest, OutputDoesNotDependOnJobsAndTheSetIsOnlyRead) {
  const auto before = Snapshot(home);
  const std::string vary = "--vary Rabi:TimeStep=0.1:0.9:5 --order 4";
  Output one = Sweep(vary + " --jobs 1");
  Output two = Sweep(vary + " --jobs 2 --progress");
  ASSERT_EQ(one.status, 0) << one.err;
  ASSERT_EQ(two.status, 0) << two.err;
  EXPECT_EQ(Rows(one.out).size(), 15u);
  EXPECT_EQ(one.out, two.out);
  // --progress counts finished points on stderr and changes nothing else.
  EXPECT_EQ(one.err, "");
  EXPECT_EQ(two.err, "point 1 of 5\npoint 2 of 5\npoint 3 of 5\npoint 4 of 5\npoint 5 of 5\n");
  // A step count, and refusals that name the fault before anything runs.
  Output steps = Sweep("--vary Rabi:FieldSteps=0:4:3");
  ASSERT_EQ(steps.status, 0) << steps.err;
  const auto rows = Rows(steps.out);
  ASSERT_EQ(rows.size(), 9u);
  // No field steps: qubit 1 is left as Hadamard2 found it, |0>.
  EXPECT_NEAR(rows[0][4], 0.0, 1e-12);
  for (const std::string& bad :
       {std::string("--vary Rabi:FieldSteps=0:1:3"), std::string("--vary Rabi:Hx0=0:1:3"),
        std::string("--vary Nothing:Hx0@1=0:1:2"), std::string("--vary Rabi:Jx@1-1=0:1:2"),
        std::string("--vary Rabi:Hx0@1=0:1"), std::string("--vary Rabi:Hx0@1=0:1:2 --jobs 0")}) {
    Output r = Sweep(bad);
    EXPECT_EQ(r.status, 2) << bad;
    EXPECT_TRUE(r.out.empty()) << bad;
    EXPECT_NE(r.err.find("orvex-cli sweep: "), std::string::npos) << bad << r.err;
  }
  EXPECT_EQ(Snapshot(home), before);
}

TEST_F(CliSweepTest, ASweepStoppedBySignalLeavesNoScratchBehind) {
  // A long sweep in the background with its own temporary directory, terminated once a
  // point has finished (the others still running or waiting).
  const std::string tmp = dir.path() + "tmp/", out = dir.path() + "out.txt",
                    err = dir.path() + "err.txt";
  fs::create_directories(tmp);
  const std::string script =
      "TMPDIR='" + tmp + "' '" + cli_ + "' sweep '" + home +
      "progs/rabi.kvp' --set ideal3 --home '" + home +
      "' --vary Rabi:Hx0@1=0.5:1.5:20000 --jobs 2 --progress >'" + out + "' 2>'" + err +
      "' & pid=$!; i=0; while ! grep -q point '" + err + "' && [ $i -lt 600 ]; do sleep 0.05; " +
      "i=$((i+1)); done; kill -TERM $pid; wait $pid; echo $? >'" + dir.path() + "status'";
  ASSERT_EQ(std::system(script.c_str()), 0);
  EXPECT_EQ(dir.read("status"), "143\n");  // ended by the signal
  EXPECT_EQ(dir.read("out.txt"), "");
  EXPECT_NE(dir.read("err.txt").find("stopped by a signal; nothing was written"), std::string::npos)
      << dir.read("err.txt");
  EXPECT_TRUE(fs::is_empty(tmp)) << "left in the temporary directory: "
                                 << fs::directory_iterator(tmp)->path();
}

// A program that also calls a program of the home through a ".MP" redirect, so a point
// directory outside the home runs only if the plan copied that program.
class CliSweepPlanTest : public CliSweepTest {
protected:
  void SetUp() override {
    CliSweepTest::SetUp();
    dir.write("home/MI/ideal3/Tail.MP", "@progs/tail.kvp\r\n");
    dir.write("home/progs/tail.kvp", "@X90_3.MI\r\n@CZ12.MI\r\n");
    dir.write("home/progs/planned.kvp", "@Hadamard2.MI\r\n@Rabi.MI\r\n@Tail.MP\r\n");
  }

  static constexpr const char* kVary = "--vary Rabi:Hx0@1=0.5:1.5:3 --vary Rabi:TimeStep=0.2:0.6:2";

  Output Planned(const std::string& options) {
    return Cli("sweep '" + home + "progs/planned.kvp' --set ideal3 --home '" + home + "' " +
               kVary + " " + options);
  }

  int Shell(const std::string& command) {
    const int raw = std::system(("cd '" + dir.path() + "' && " + command).c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
};

TEST_F(CliSweepPlanTest, PointsRunOneByOneAndMovedCollectToTheDirectOutput) {
  const Output direct = Planned("--jobs 2");
  ASSERT_EQ(direct.status, 0) << direct.err;
  ASSERT_EQ(Rows(direct.out).size(), 6u * 3u);
  const Output plan = Planned("--plan '" + dir.path() + "plan one'");
  ASSERT_EQ(plan.status, 0) << plan.err;
  EXPECT_TRUE(Rows(Cli("sweep --collect '" + dir.path() + "plan one'").out).empty());

  // Every point but the second, as a job array would run them.
  ASSERT_EQ(Shell("sed 2d 'plan one/commands' | sh"), 0);
  Output partial = Cli("sweep --collect '" + dir.path() + "plan one'");
  EXPECT_EQ(partial.status, 2);
  EXPECT_EQ(partial.out, "");
  EXPECT_NE(partial.err.find("point-0002 has not run"), std::string::npos) << partial.err;
  EXPECT_EQ(partial.err.find("point-0001"), std::string::npos) << partial.err;
  EXPECT_EQ(partial.err.find("point-0006"), std::string::npos) << partial.err;

  // The second point, moved out of the plan and run from inside its own directory.
  ASSERT_EQ(Shell("mv 'plan one/point-0002' moved"), 0);
  Output point = Cli("sweep --point .", "cd '" + dir.path() + "moved' &&");
  ASSERT_EQ(point.status, 0) << point.err;
  ASSERT_EQ(Shell("mv moved 'plan one/point-0002'"), 0);
  Output collected = Cli("sweep --collect '" + dir.path() + "plan one'");
  ASSERT_EQ(collected.status, 0) << collected.err;
  EXPECT_EQ(collected.out, direct.out);
}

TEST_F(CliSweepPlanTest, PlanRunsUnderGnuParallel) {
  if (Shell("command -v parallel >/dev/null") != 0)
    GTEST_SKIP() << "GNU parallel is not on PATH";
  const Output direct = Planned("");
  ASSERT_EQ(direct.status, 0) << direct.err;
  const Output plan = Planned("--order 2 --plan '" + dir.path() + "plan'");
  ASSERT_EQ(plan.status, 0) << plan.err;
  ASSERT_EQ(Shell("parallel --will-cite -j2 < plan/commands"), 0);
  Output collected = Cli("sweep --collect '" + dir.path() + "plan'");
  ASSERT_EQ(collected.status, 0) << collected.err;
  EXPECT_EQ(collected.out, direct.out);
}

TEST_F(CliSweepPlanTest, PlanIntoANonEmptyDirectoryIsRefusedAndWritesNothing) {
  dir.write("theirs/notes.txt", "not ours");
  const auto before = Snapshot(dir.path() + "theirs");
  Output r = Planned("--plan '" + dir.path() + "theirs'");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("is not empty"), std::string::npos) << r.err;
  EXPECT_EQ(Snapshot(dir.path() + "theirs"), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path() + "theirs"), fs::directory_iterator()),
            1);
}

} // namespace
} // namespace orvex::test
