// Grid shape, box positions and box sizes of the qubit window.
#include "view/qubit_grid.h"

#include <cmath>

#include "workspace/errors.h"

namespace orvex {

GridShape QubitGridShape(int n) {
  if (n < 1 || n > 32) ThrowSubscriptOutOfRange();
  if (n == 1) return {1, 1};
  if (n == 2) return {1, 2};
  if (n <= 8) return {(n + 1) / 2, 2};
  if (n <= 12) return {4, 3};
  if (n <= 16) return {4, 4};
  if (n <= 25) return {5, 5};
  return {5, 7};
}

GridCell QubitGridCell(const GridShape& shape, int qubit) {
  const int k = qubit - 1;
  return {k / shape.perColumn, k % shape.perColumn};
}

int QubitBoxTwips(int sizeSetting) {
  if (sizeSetting < 0) sizeSetting = 0;
  if (sizeSetting >= kQubitSizes) sizeSetting = kQubitSizes - 1;
  return kQubitBoxTwips[static_cast<std::size_t>(sizeSetting)];
}

int TwipsToPixels(int twips, double dpi) {
  return static_cast<int>(std::lround(twips * dpi / 1440.0));
}

int QubitBoxPixels(int sizeSetting, double dpi) {
  return TwipsToPixels(QubitBoxTwips(sizeSetting), dpi);
}

} // namespace orvex
