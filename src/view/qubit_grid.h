// Layout of the qubit window: the grid shape for n qubits, where each qubit's box sits, and
// the edge of one box for each of the four qubit sizes of the Settings menu.
#pragma once

#include <array>

namespace orvex {

// Boxes per column and number of columns for n = 1..32 qubits:
//   1: 1 x 1; 2: 1 per column, 2 columns; 3..8: Int((n + 1) / 2) per column, 2 columns;
//   9..12: 4 per column, 3 columns; 13..16: 4 x 4; 17..25: 5 x 5; 26..32: 5 per column,
//   7 columns. Boxes fill a column top to bottom, then the next column to the right.
struct GridShape {
  int perColumn = 1;
  int columns = 1;
};
// n outside 1..32 throws the run-time's "Subscript out of range".
GridShape QubitGridShape(int qubits);

// Top-left corner of qubit q's box (q = 1..n) in units of the box edge s: element k = q - 1
// sits at column Int(k / perColumn), row k Mod perColumn.
struct GridCell {
  int column = 0;
  int row = 0;
};
GridCell QubitGridCell(const GridShape& shape, int qubit);

// The qubit-size setting: 0 small, 1 normal, 2 large, 3 very large.
inline constexpr int kQubitSizes = 4;
// Edge of one box per size, in twips: 960, 1440, 2160, 3000, that is 64, 96, 144 and 200
// pixels at 96 DPI (15 twips per pixel). 64 pixels is the smallest at which the sphere's
// axis labels stay legible.
inline constexpr std::array<int, kQubitSizes> kQubitBoxTwips = {960, 1440, 2160, 3000};
// The box edge in twips for a size setting; settings outside 0..3 are clamped.
int QubitBoxTwips(int sizeSetting);

// Twips to pixels at `dpi` dots per inch (1440 twips per inch), rounded to nearest.
int TwipsToPixels(int twips, double dpi);
// The box edge in pixels at `dpi`.
int QubitBoxPixels(int sizeSetting, double dpi = 96.0);

} // namespace orvex
