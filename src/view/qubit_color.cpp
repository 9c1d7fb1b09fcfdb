// The green-to-red colour scale of the qubit values.
#include "view/qubit_color.h"

#include <cmath>

namespace orvex {

RGBColor QubitColor(double value) {
  if (!(value >= 0)) value = 0;  // also NaN
  if (value > 1) value = 1;
  // The quarter turn is written with these 16 digits on purpose: it is the scale's constant.
  const double a = value * 1.570796326794895;
  // nearbyint rounds in the current mode, which is to-nearest with ties to even.
  const int red = static_cast<int>(std::nearbyint(std::sin(a) * 255));
  const int green = static_cast<int>(std::nearbyint(std::cos(a) * 255));
  return RGB(red < 0 ? 0 : red, green < 0 ? 0 : green, 0);
}

} // namespace orvex
