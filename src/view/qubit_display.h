// The program editor's qubit read-out, without the widgets: the tool-tip text of a qubit
// box, the stripe bands inside a box, and how far the instruction list gives way to the rows
// of qubit boxes when a program has more than 8 qubits.
#pragma once

#include <optional>
#include <string>

namespace orvex {

// Fixed three decimals with at least one leading digit, halves rounded away from zero;
// a negative value keeps its minus sign ("-0.250"). Used for the tool tips.
std::string Format000(double value);

// "x = 1.000 ,y = 0.000 ,z = 0.500": the blank before each comma and none after it is the
// display's settled form.
std::string QubitToolTip(double x, double y, double z);
// The qubit box's tool tip: QubitToolTip, then on a line of its own the purity, the length of
// the Bloch vector (1 - 2x, 1 - 2y, 1 - 2z): "|r| = 0.998".
std::string QubitToolTipWithPurity(double x, double y, double z);

// The instruction list's height in twips for a program of n qubits when n > 8:
// inner height - 2865 - Int((n - 9) / 8) x 1000. With 8 qubits or fewer the list is left
// alone (nullopt).
std::optional<int> InstructionListHeight(int innerHeightTwips, int qubits);

// The three stripes of a box of height `height` pixels, rows counted from 0 at the top.
// With h = height / 3 (whole pixels): x covers rows 0..h, y rows h+1..2h, z rows 2h+1 to the
// bottom (it also takes the one or two rows left over when height is not a multiple of 3);
// the black separators lie on rows h and 2h, drawn over the stripes.
struct StripeBands {
  int h = 0;
  int xFirst = 0, xLast = 0;
  int yFirst = 0, yLast = 0;
  int zFirst = 0, zLast = 0;
  int separator1 = 0, separator2 = 0;
};
StripeBands StripeBandsFor(int height);

} // namespace orvex
