// The one colour scale of every qubit value: 0 is pure green, 1 pure red, with the two
// components on a quarter circle so the brightness stays even along the scale.
#pragma once

#include <cstdint>

namespace orvex {

// An RGB colour packed as the classic run-time does: red in the low byte, then green, then
// blue (so RGB(255, 0, 0) is 0x0000FF).
using RGBColor = std::uint32_t;

constexpr RGBColor RGB(int red, int green, int blue) {
  return static_cast<RGBColor>(red & 0xFF) | (static_cast<RGBColor>(green & 0xFF) << 8) |
         (static_cast<RGBColor>(blue & 0xFF) << 16);
}
constexpr int RedOf(RGBColor c) { return static_cast<int>(c & 0xFF); }
constexpr int GreenOf(RGBColor c) { return static_cast<int>((c >> 8) & 0xFF); }
constexpr int BlueOf(RGBColor c) { return static_cast<int>((c >> 16) & 0xFF); }

// Value 0..1 to its colour: with a = value x 1.570796326794895, red = sin(a) x 255 and
// green = cos(a) x 255, each rounded to the nearest integer (ties to even), blue 0.
// Values outside 0..1 (and NaN, taken as 0) are clamped to the nearest end of the scale.
RGBColor QubitColor(double value);

} // namespace orvex
