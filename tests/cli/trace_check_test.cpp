// orvex-cli run --trace and orvex-cli check against the real engine: the trace holds the
// output files' records; the check's deviation is the difference of two runs made by hand,
// and the user's files stay as they were.
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
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

// A two-qubit MI whose field and coupling do not commute, so the product formula's error
// shows: `sub` intermediate steps in each of two main steps.
std::string DriveMI(int sub) {
  return "!Micro instruction \r\nHEISENBERG INTERACTION\r\n1,2, 0.9,0.4,1.3,  ! Jx, Jy, Jz \r\n"
         "END\r\nSPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, "
         "phi_y, phi_z)\r\n1.1, 0.5, 2, 0, 0, 0, 0.7, 0, 0, 0.3, 0, 0, \r\nEND\r\n"
         "SPIN : 2 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, "
         "phi_z)\r\n0, 0, 0, 0.6, 0, 0, 0, 0, 0, 0, 0, 0, \r\nEND\r\n"
         "NUMBER OF FIELD STEPS\r\n2\r\nEND\r\nTIME STEP\r\n0.8\r\nEND\r\n"
         "NUMBER OF INTERMEDIATE TIME STEPS\r\n" + std::to_string(sub) + "  ! per main step\r\n"
         "END\r\nNO CHECK NORM\r\n!ABOUT\r\n!drive\r\n!END\r\n";
}

class CliTraceCheck : public CliHomeTest {
protected:
  void SetUp() override {
    CliHomeTest::SetUp();
    dir.write("home/MI/ideal2/drive.MI", DriveMI(3));
    // A nested program (through a redirect of the set) and breakpoints on the way.
    dir.write("home/progs/inner.kvp",
              "!Quantum program progs/inner.kvp\r\n@drive.MI\r\n!BREAKPOINT\r\n@Hadamard2.MI\r\n");
    dir.write("home/MI/ideal2/inner.MP", "@progs/inner.kvp\r\n");
    dir.write("home/progs/driven.kvp",
              "!Quantum program progs/driven.kvp\r\n@INITIALIZE.MI\r\n@Hadamard1.MI\r\n"
              "@drive.MI\r\n!BREAKPOINT\r\n@inner.MP\r\n@drive.MI\r\n");
  }

  // orvex-cli run from the temporary directory, so relative output files land there.
  CliResult Cli(const std::string& args) {
    return CliHomeTest::Cli(args, "cd '" + dir.path() + "' &&");
  }

  // The final Q of each qubit of a csv run of `program` in `where`.
  std::vector<std::vector<double>> FinalValues(const std::string& where, const std::string& order) {
    Result r = Cli("run '" + where + "progs/driven.kvp' --set ideal2 --home '" + where +
                   "' --format csv --order " + order);
    EXPECT_EQ(r.status, 0) << r.err;
    std::vector<std::vector<double>> q;
    const auto lines = SplitLines(r.out);
    for (std::size_t i = 1; i < lines.size(); ++i) {
      if (lines[i].empty()) continue;
      std::stringstream cells(lines[i]);
      std::string cell;
      std::vector<double> row;
      while (std::getline(cells, cell, ',')) row.push_back(std::stod(cell));
      row.erase(row.begin());
      q.push_back(row);
    }
    return q;
  }
};

TEST_F(CliTraceCheck, TraceHoldsTheOutputFilesRecordsAndAWriteFailureIsReported) {
  Result r = Cli("run '" + home + "progs/driven.kvp' --set ideal2 --home '" + home +
                 "' --output-files --trace trace.csv");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("halted at breakpoint 2"), std::string::npos) << r.err;
  const auto rows = SplitLines(dir.read("trace.csv"));
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows[0], "t,qubit,Qx,Qy,Qz");
  // Each file line "t Qx Qy Qz" of qubit q is the row "t,q,Qx,Qy,Qz", in the same order.
  std::map<int, std::vector<std::string>> traced;
  for (std::size_t i = 1; i < rows.size(); ++i) {
    if (rows[i].empty()) continue;
    std::string row = rows[i];
    const std::size_t a = row.find(','), b = row.find(',', a + 1);
    const int q = std::stoi(row.substr(a + 1, b - a - 1));
    std::string line = row.substr(0, a) + row.substr(b);
    for (char& c : line)
      if (c == ',') c = ' ';
    traced[q].push_back(line);
  }
  ASSERT_EQ(traced.size(), 2u);
  for (int q = 1; q <= 2; ++q) {
    std::vector<std::string> file;
    for (const std::string& line : SplitLines(dir.read("home/progs/qubit0" + std::to_string(q) + ".out")))
      if (!line.empty() && line[0] != '#') file.push_back(line);
    EXPECT_EQ(file.size(), 1u + 1 + 2 + 2 + 1 + 2);  // initial state, then every main step
    EXPECT_EQ(traced[q], file) << "qubit " << q;
  }

  // A directory, or a place no file can be written, ends with status 2 and says why; the
  // directory is left as it was.
  r = Cli("run '" + home + "progs/bell.kvp' --set ideal2 --home '" + home + "' --trace home");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("trace file home is a directory"), std::string::npos) << r.err;
  r = Cli("run '" + home + "progs/bell.kvp' --set ideal2 --home '" + home +
          "' --trace /proc/orvex-trace.csv");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("cannot write the trace file /proc/orvex-trace.csv"), std::string::npos)
      << r.err;
}

struct Stamp {
  std::string bytes;
  long long mtime = 0;
  bool operator==(const Stamp&) const = default;
};

std::map<std::string, Stamp> Snapshot(const std::string& root) {
  std::map<std::string, Stamp> files;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    struct stat st {};
    if (stat(e.path().c_str(), &st) != 0) continue;
    Stamp s;
    s.mtime = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
    if (e.is_regular_file()) s.bytes = ReadWholeFile(e.path().string());
    files[e.path().string()] = s;
  }
  return files;
}

// "label v1 v2 ..." rows of the check's table, by qubit: deviation and error.
std::map<int, std::pair<double, double>> CheckRows(const std::string& out) {
  std::map<int, std::pair<double, double>> rows;
  for (const std::string& line : SplitLines(out)) {
    std::istringstream in(line);
    int q;
    double deviation, error;
    if (in >> q >> deviation >> error) rows[q] = {deviation, error};
  }
  return rows;
}

TEST_F(CliTraceCheck, CheckMatchesTwoRunsMadeByHandAndLeavesTheUsersFilesAlone) {
  // By hand: a copy of the home with drive.MI at 6 intermediate steps instead of 3.
  const std::string twice = dir.path() + "twice/";
  fs::copy(home, twice, fs::copy_options::recursive);
  dir.write("twice/MI/ideal2/drive.MI", DriveMI(6));

  for (const std::string order : {"2", "4"}) {
    const auto n = FinalValues(home, order), n2 = FinalValues(twice, order);
    ASSERT_EQ(n.size(), 2u);
    ASSERT_EQ(n2.size(), 2u);

    const auto before = Snapshot(home);
    Result r = Cli("check '" + home + "progs/driven.kvp' --set ideal2 --home '" + home +
                   "' --order " + order);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(Snapshot(home) == before) << "check changed the user's files";

    const auto rows = CheckRows(r.out);
    ASSERT_EQ(rows.size(), 2u) << r.out;
    const double p = order == "4" ? 16.0 / 15 : 4.0 / 3;
    double largest = 0;
    for (int q = 1; q <= 2; ++q) {
      double deviation = 0;
      for (int c = 0; c < 3; ++c)
        deviation = std::max(deviation, std::abs(n[q - 1][c] - n2[q - 1][c]));
      largest = std::max(largest, deviation);
      ASSERT_GT(deviation, 1e-12) << "the product formula's error does not show";
      EXPECT_NEAR(rows.at(q).first, deviation, 1e-5 * deviation) << r.out;
      EXPECT_NEAR(rows.at(q).second, p * deviation, 1e-5 * p * deviation) << r.out;
    }
    double maxDeviation = 0, estimated = 0;
    std::string last;
    for (const std::string& line : SplitLines(r.out))
      if (!line.empty()) last = line;
    ASSERT_EQ(std::sscanf(last.c_str(), "max deviation %lf, estimated error %lf", &maxDeviation,
                          &estimated), 2) << last;
    EXPECT_NEAR(maxDeviation, largest, 1e-5 * largest);
    EXPECT_NEAR(estimated, p * largest, 1e-5 * p * largest);

    // The advice: drive.MI's n for 1e-6, written into a copy, brings the estimate there (the
    // error model is asymptotic: within a factor of 2).
    long written = 0, for3 = 0, for6 = 0;
    for (const std::string& line : SplitLines(r.out))
      if (std::sscanf(line.c_str(), " drive.MI n = %ld for 1e-3: %ld for 1e-6: %ld", &written,
                      &for3, &for6) == 3)
        break;
    ASSERT_EQ(written, 3) << r.out;
    ASSERT_GT(for6, for3) << r.out;
    const std::string advised = dir.path() + "advised" + order + "/";
    fs::copy(home, advised, fs::copy_options::recursive);
    dir.write("advised" + order + "/MI/ideal2/drive.MI", DriveMI(static_cast<int>(for6)));
    Result again = Cli("check '" + advised + "progs/driven.kvp' --set ideal2 --home '" + advised +
                       "' --order " + order);
    ASSERT_EQ(again.status, 0) << again.err;
    std::string end;
    for (const std::string& line : SplitLines(again.out))
      if (!line.empty()) end = line;
    ASSERT_EQ(std::sscanf(end.c_str(), "max deviation %lf, estimated error %lf", &maxDeviation,
                          &estimated), 2) << end;
    EXPECT_LT(estimated, 2e-6) << again.out;
    EXPECT_GT(estimated, 5e-8) << again.out;
  }

  // A set that does not exist, and options that belong to run, are refused.
  Result r = Cli("check '" + home + "progs/driven.kvp' --set nosuch --home '" + home + "'");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("MI set 'nosuch' not found"), std::string::npos) << r.err;
  r = Cli("check '" + home + "progs/driven.kvp' --set ideal2 --home '" + home + "' --output-files");
  EXPECT_EQ(r.status, 2);
}

} // namespace
} // namespace orvex::test
