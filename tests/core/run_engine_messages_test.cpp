// Engine status codes to messages, and the reason from the engine's log.
#include "run/engine_messages.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace orvex::test {
namespace {

TEST(EngineMessage, EveryRangeInItsOrder) {
  const std::string fatal =
      "Fatal error, cannot open kv1dll.log!\rMake sure the disk is not full or "
      "write-protected.\rIf the problem persist contact the authors.";
  EXPECT_EQ(EngineMessage(-1000), fatal);
  EXPECT_EQ(EngineMessage(-1001), "Micro instruction or program file cannot be found.");
  EXPECT_EQ(EngineMessage(-1002), "Micro instruction or program file cannot be found.");
  EXPECT_EQ(EngineMessage(-1003), "Too many nested (or recusive) quantum programs.");
  for (int code : {-20, -22, -24})
    EXPECT_EQ(EngineMessage(code), "Check on norm failed\rPlease contact the authors.") << code;
  EXPECT_EQ(EngineMessage(-30),
            "Error accessing qubit%%.out!\rMake sure the disk is not full or "
            "write-protected.\rIf the problem persist contact the authors.");
  for (int code : {-1, -7, -19})
    EXPECT_EQ(EngineMessage(code), "Syntax error in micro instructions") << code;
  for (int code : {0, 1, -25, -29, -31, -999, -1004, -1005})
    EXPECT_EQ(EngineMessage(code), "") << code;
}

TEST(EngineLogReason, TheLastErrorLinesReason) {
  TempDir dir;
  EXPECT_EQ(EngineLogReason(dir.path()), "");
  dir.write("KV1DLL.LOG",
            "orvex engine 1.0\r\nprogram a.kvp, 2 qubits\r\n"
            "error -7: A.MI:12: a number is missing\r\n"
            "error -1001: sub/prog.kvp:3: MI file X.MI does not exist: checked here\r\n"
            "INITIALIZE.MI 1 1\r\n");
  EXPECT_EQ(EngineLogReason(dir.path()), "MI file X.MI does not exist: checked here");
  dir.write("KV1DLL.LOG", "error -1000: the log cannot be opened\n");
  EXPECT_EQ(EngineLogReason(dir.path()), "the log cannot be opened");
  dir.write("KV1DLL.LOG", "no errors here\n");
  EXPECT_EQ(EngineLogReason(dir.path()), "");
}

} // namespace
} // namespace orvex::test
