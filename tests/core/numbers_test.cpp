// Number text in MI and program files: Str, Val, Int, the rounding conversions, the vector
// scanner, and their independence from the process locale.
#include <clocale>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "core/error_of.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"

namespace orvex {
namespace {

TEST(Str, WritesTheRunTimeForm) {
  EXPECT_EQ(Str(0.5), " .5");
  EXPECT_EQ(Str(-0.25), "-.25");
  EXPECT_EQ(Str(1e-5), " 1E-05");
  EXPECT_EQ(Str(1.5e20), " 1.5E+20");
  EXPECT_EQ(Str(100.0), " 100");
  EXPECT_EQ(Str(0.0), " 0");
  EXPECT_EQ(Str(-0.0), " 0");
  EXPECT_EQ(Str(-1.0), "-1");
  EXPECT_EQ(Str(0.1), " .1");
  EXPECT_EQ(Str(0.0001), " .0001");       // exponent -4 stays plain
  EXPECT_EQ(Str(-0.00001), "-1E-05");
  EXPECT_EQ(Str(1e14), " 100000000000000");
  EXPECT_EQ(Str(1e15), " 1E+15");         // exponent 15 switches to E form
  EXPECT_EQ(Str(0.123456789012345), " .123456789012345");
  EXPECT_EQ(Str(2.0 / 3.0), " .666666666666667");  // 15 significant digits, rounded
  EXPECT_EQ(Str(1.0 / 3.0 * 1e-7), " 3.33333333333333E-08");
  EXPECT_EQ(Str(std::int64_t{2}), " 2");
  EXPECT_EQ(Str(std::int64_t{-3}), "-3");
  EXPECT_EQ(NumText(0.5), ".5");
  EXPECT_EQ(NumText(-0.5), "-.5");
  EXPECT_EQ(NumText(3.0), "3");
}

TEST(Val, ReadsTheLeadingNumber) {
  EXPECT_DOUBLE_EQ(Val(".5"), 0.5);
  EXPECT_DOUBLE_EQ(Val("-.25"), -0.25);
  EXPECT_DOUBLE_EQ(Val("  \t 12.5abc"), 12.5);
  EXPECT_DOUBLE_EQ(Val("1E-05"), 1e-5);
  EXPECT_DOUBLE_EQ(Val("1.5D+20"), 1.5e20);
  EXPECT_DOUBLE_EQ(Val("2e3"), 2000);
  EXPECT_DOUBLE_EQ(Val("+7"), 7);
  EXPECT_DOUBLE_EQ(Val("3E"), 3);       // an exponent without digits is not part of it
  EXPECT_DOUBLE_EQ(Val("3E+x"), 3);
  EXPECT_DOUBLE_EQ(Val("4;5"), 4);
  EXPECT_DOUBLE_EQ(Val("5,0"), 5);       // the decimal point is always "."
  EXPECT_EQ(Val("abc"), 0);
  EXPECT_EQ(Val(""), 0);
  EXPECT_EQ(Val("-"), 0);
  EXPECT_EQ(Val("."), 0);
  EXPECT_EQ(Val("1E-400"), 0);
  std::size_t used = 99;
  EXPECT_DOUBLE_EQ(Val(" 1.5E+2x", used), 150);
  EXPECT_EQ(used, 7u);
  EXPECT_EQ(Val("x", used), 0);
  EXPECT_EQ(used, 0u);
  // What Str writes comes back to the bit; too large is an overflow.
  for (double v : {0.5, -0.25, 1e-5, 1.5e20, 0.123456789012345, -123456.789012345, 1e-300, 3.0})
    EXPECT_EQ(Val(Str(v)), v) << Str(v);
  EXPECT_EQ(test::ErrorNumberOf([&] { Val("1E400"); }), 6);
}

TEST(Numbers, IgnoreTheProcessLocale) {
  // A locale with a decimal comma must not change reading or writing.
  const char* set = std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  if (!set) set = std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
  EXPECT_EQ(Str(0.5), " .5");
  EXPECT_DOUBLE_EQ(Val("1.25"), 1.25);
  std::setlocale(LC_NUMERIC, "C");
  if (!set) GTEST_SKIP() << "no decimal-comma locale installed";
}

TEST(IntAndRounding, FollowTheRunTime) {
  EXPECT_EQ(Int(2.7), 2);
  EXPECT_EQ(Int(-2.5), -3);
  EXPECT_EQ(Int(-0.1), -1);
  EXPECT_EQ(CLng(2.5), 2);
  EXPECT_EQ(CLng(3.5), 4);
  EXPECT_EQ(CLng(-2.5), -2);
  EXPECT_EQ(CLng(-3.5), -4);
  EXPECT_EQ(CLng(2.4999), 2);
  EXPECT_EQ(CLng(2147483647.4), 2147483647);
  EXPECT_EQ(CLng(-2147483648.0), -2147483647 - 1);
  EXPECT_EQ(CInt(32767.0), 32767);
  EXPECT_EQ(CInt(-0.5), 0);
  for (double bad : {2147483647.6, -2147483649.0, 1e300, std::nan("")}) {
    const auto e = test::ErrorFrom([&] { CLng(bad); });
    ASSERT_TRUE(e) << bad;
    EXPECT_EQ(e->code(), ErrorNumber::Overflow);
    EXPECT_EQ(e->description(), "Overflow");
  }
  EXPECT_THROW(CInt(32767.5), RuntimeError);  // rounds to 32768
  EXPECT_THROW(CInt(-32769), RuntimeError);
}

TEST(ScanVector, FillsFromCommaAndBlankSeparatedItems) {
  using V = std::vector<double>;
  double v[6] = {-9, -9, -9, -9, -9, -9};
  // The writer's form: every value followed by ", "; what the line does not hold is untouched.
  EXPECT_EQ(ScanVector("1, .5, -.25, 1E-05, 0, ", v, 6), 5);
  EXPECT_EQ(V(v, v + 6), (V{1, 0.5, -0.25, 1e-5, 0, -9}));
  double w[4] = {-9, -9, -9, -9};
  EXPECT_EQ(ScanVector("1 2\t3", w, 4), 3);
  EXPECT_EQ(V(w, w + 4), (V{1, 2, 3, -9}));
  double e[4] = {-9, -9, -9, -9};
  EXPECT_EQ(ScanVector("1,,x;4", e, 4), 4);  // empty and non-numeric items read as 0
  EXPECT_EQ(V(e, e + 4), (V{1, 0, 0, 4}));
  double c[2] = {-9, -9};
  EXPECT_EQ(ScanVector("1,2,3,4", c, 2), 2);  // never more than asked for
  EXPECT_EQ(c[1], 2);
  EXPECT_EQ(ScanVector("   ", c, 2), 0);
}

TEST(Text, TrimAndCase) {
  EXPECT_EQ(Trim("  a b  "), "a b");
  EXPECT_EQ(Trim("\ta\t"), "\ta\t");  // only blanks, as the classic Trim
  EXPECT_EQ(Trim("   "), "");
  EXPECT_EQ(Upper("abc.Mi\xe9"), "ABC.MI\xe9");  // bytes above 127 are kept
  EXPECT_EQ(Lower("C:\\Work"), "c:\\work");
}

} // namespace
} // namespace orvex
