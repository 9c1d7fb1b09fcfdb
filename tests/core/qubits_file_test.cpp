// qubits.dat: written " n " CR LF, read as the first integer of the file, created with 2
// when missing; and where the container of the sets is.
#include <gtest/gtest.h>

#include "miset/qubits_file.h"
#include "support/test_support.h"
#include "workspace/errors.h"

namespace orvex {
namespace {

class QubitsFile : public ::testing::Test {
protected:
  void SetUp() override { ws.MISetPath = dir.path() + "MI/set/"; }
  // Reads `content` as qubits.dat; the error number, or 0.
  int ReadWith(const std::string& content) {
    dir.write("MI/set/qubits.dat", content);
    try {
      ReadQubitsFile(ws);
    } catch (const RuntimeError& e) {
      EXPECT_NE(e.description().find("qubits.dat"), std::string::npos) << e.description();
      return e.number();
    }
    return 0;
  }
  test::TempDir dir;
  Workspace ws;
};

TEST_F(QubitsFile, ReadsTheFirstInteger) {
  // Blanks, a bare digit without line end, blank lines before it, a second number after it.
  for (auto [content, n] :
       {std::pair<const char*, int>{" 7 \r\n", 7}, {"5", 5}, {"\r\n  32\r\n9\r\n", 32}, {"3,4", 3}}) {
    EXPECT_EQ(ReadWith(content), 0) << content;
    EXPECT_EQ(ws.NumberOfQubits, n) << content;
  }
}

TEST_F(QubitsFile, BadContentIsAnErrorAndKeepsTheNumber) {
  ws.NumberOfQubits = 4;
  EXPECT_EQ(ReadWith(""), 62);
  EXPECT_EQ(ReadWith("  \r\n"), 62);
  EXPECT_EQ(ReadWith("two"), 13);
  EXPECT_EQ(ReadWith("33"), 9);
  EXPECT_EQ(ReadWith("0"), 9);
  EXPECT_EQ(ReadWith("99999"), 6);
  EXPECT_EQ(ws.NumberOfQubits, 4);
}

TEST_F(QubitsFile, MissingFileMeansTwoAndIsWrittenAtOnce) {
  dir.write("MI/set/A.MI", "");
  ws.NumberOfQubits = 9;
  ReadQubitsFile(ws);
  EXPECT_EQ(ws.NumberOfQubits, 2);
  EXPECT_EQ(dir.read("MI/set/qubits.dat"), " 2 \r\n");
}

TEST_F(QubitsFile, FoundInAnyCaseAndRewrittenInPlace) {
  dir.write("MI/set/QUBITS.DAT", "6\r\n");
  ReadQubitsFile(ws);
  EXPECT_EQ(ws.NumberOfQubits, 6);
  ws.NumberOfQubits = 12;
  WriteQubitsFile(ws);
  EXPECT_EQ(dir.read("MI/set/QUBITS.DAT"), " 12 \r\n");
  EXPECT_FALSE(dir.exists("MI/set/qubits.dat"));
}

TEST_F(QubitsFile, WritingIntoAMissingDirectoryIsAFileError) {
  ws.MISetPath = dir.path() + "nowhere/";
  ws.NumberOfQubits = 3;
  EXPECT_THROW(WriteQubitsFile(ws), RuntimeError);
  EXPECT_EQ(ws.NumberOfQubits, 3);
}

TEST(MISetContainer, UsesTheExistingDirectoryInAnyCase) {
  test::TempDir dir;
  Workspace ws;
  ws.AppDir = dir.path();
  EXPECT_EQ(MISetContainer(ws), dir.path() + "MI/");
  dir.write("mi.txt", "");  // a file named like it does not count
  dir.write("Mi/s/qubits.dat", " 2 \r\n");
  EXPECT_EQ(MISetContainer(ws), dir.path() + "Mi/");
}

} // namespace
} // namespace orvex
