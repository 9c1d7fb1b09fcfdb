// Tool-tip text, stripe bands and the instruction list's height rule of the qubit read-out.
#include "view/qubit_display.h"

#include <cmath>
#include <cstdio>

namespace orvex {

std::string Format000(double value) {
  if (!std::isfinite(value)) return std::isnan(value) ? "NaN" : (value > 0 ? "Inf" : "-Inf");
  char buf[512];
  if (std::fabs(value) >= 1e15) {  // beyond the exact path below; never met by qubit values
    std::snprintf(buf, sizeof buf, "%.3f", value);
    return buf;
  }
  // The product of a double and 1000 is exact in long double (64-bit mantissa), so the
  // rounding below sees the true value and rounds ties away from zero.
  const long double thousandths = std::roundl(static_cast<long double>(value) * 1000.0L);
  const bool negative = thousandths < 0;
  const long double magnitude = negative ? -thousandths : thousandths;
  const long long whole = static_cast<long long>(magnitude / 1000.0L);
  const int frac = static_cast<int>(magnitude - static_cast<long double>(whole) * 1000.0L);
  std::snprintf(buf, sizeof buf, "%s%lld.%03d", negative ? "-" : "", whole, frac);
  return buf;
}

std::string QubitToolTip(double x, double y, double z) {
  return "x = " + Format000(x) + " ,y = " + Format000(y) + " ,z = " + Format000(z);
}

std::string QubitToolTipWithPurity(double x, double y, double z) {
  const double rx = 1 - 2 * x, ry = 1 - 2 * y, rz = 1 - 2 * z;
  return QubitToolTip(x, y, z) + "\n|r| = " + Format000(std::sqrt(rx * rx + ry * ry + rz * rz));
}

std::optional<int> InstructionListHeight(int innerHeightTwips, int qubits) {
  if (qubits <= 8) return std::nullopt;
  return innerHeightTwips - 2865 - ((qubits - 9) / 8) * 1000;
}

StripeBands StripeBandsFor(int height) {
  StripeBands b;
  const int h = height > 0 ? height / 3 : 0;
  b.h = h;
  b.xFirst = 0;
  b.xLast = h;
  b.yFirst = h + 1;
  b.yLast = 2 * h;
  b.zFirst = 2 * h + 1;
  b.zLast = height > 0 ? height - 1 : 0;
  b.separator1 = h;
  b.separator2 = 2 * h;
  return b;
}

} // namespace orvex
