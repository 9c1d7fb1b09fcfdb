// Window commands report every failure in a critical box and never pass it on.
#include "platform/dialogs.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "workspace/errors.h"

namespace orvex::test {
namespace {

TEST(RunCommand, EveryFailureEndsInACriticalBox) {
  ScriptedDialogs dialogs;
  dialogs.allowUnscripted();
  bool ran = false;
  EXPECT_TRUE(RunCommand([&] { ran = true; }));
  EXPECT_TRUE(ran);

  EXPECT_FALSE(RunCommand([] { ThrowSubscriptOutOfRange(); }));
  EXPECT_FALSE(RunCommand([] { throw std::logic_error("broken invariant"); }));
  EXPECT_FALSE(RunCommand([] { throw std::bad_alloc(); }));
  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_NE(dialogs.shown[0].text.find(", errorcode: 9"), std::string::npos) << dialogs.shown[0].text;
  EXPECT_EQ(dialogs.shown[1].text, "broken invariant");
  EXPECT_EQ(dialogs.shown[2].text, "Out of memory, errorcode: 7");
  for (const auto& d : dialogs.shown) EXPECT_EQ(d.icon, platform::Icon::Critical);
}

} // namespace
} // namespace orvex::test
