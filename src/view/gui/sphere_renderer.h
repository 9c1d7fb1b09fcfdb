// The qubit window's picture of one qubit: a shaded glass sphere of fixed radius with its
// x, y, z axes and equator, and an arrow from the centre along the qubit's state, drawn in a
// simple perspective with QPainter (so it renders offscreen as well as on screen).
#pragma once

#include <QSize>

#include <array>
#include <vector>

class QImage;
class QPainter;

namespace orvex {

// Paints the picture for the values A, B, C (each 0..1, 0.5 the centre) into the square
// (0, 0)-(edge - 1, edge - 1) of `painter`'s device, background included. The arrow has the
// length 20.5 x L / 38 against a sphere of radius 10 (a pure state just reaches the
// surface); there is no arrow when L < 1.
void PaintQubitSphere(QPainter& painter, int edge, double A, double B, double C);
// The same with the arrow's trail: the tips of the arrow for the values in `trail` (A, B, C
// each, oldest first) joined by a line inside the glass that fades with age, the newest part
// brightest.
using SphereTrail = std::vector<std::array<double, 3>>;
void PaintQubitSphere(QPainter& painter, int edge, double A, double B, double C,
                      const SphereTrail& trail);
// The colour of the trail's newest part.
inline constexpr unsigned kTrailRgb = 0x66FF99;
// The same into a fresh image of edge x edge pixels.
QImage QubitSphereImage(int edge, double A, double B, double C);

} // namespace orvex
