// Geometry of the qubit window's picture, without the painting: the arrow of a qubit's state,
// the renderer's axes and labels, a simple perspective camera, and the projected outlines
// of the arrow's shaft and head.
//
// The renderer's frame: first axis X to the right, second axis Y downwards, third axis Z away
// from the viewer (a right-handed frame, screen-like). The arrow of values A, B, C is
// (a, b, c) = (0.5 - A, 0.5 - B, C - 0.5) placed with its first component on X, its third on
// Y and its second on Z. Since A, B, C are (1 - <sigma>)/2 of the x, y and z spin components,
// a = <sigma_x>/2, b = <sigma_y>/2 and c = -<sigma_z>/2, so the labelled directions are
// +x along +X, +y along +Z and +z along -Y (upwards): a right-handed x, y, z with z up, and
// |0> (values 0.5, 0.5, 0) points at the label z.
#pragma once

#include <vector>

namespace orvex {

struct Vec3 {
  double x = 0, y = 0, z = 0;
};
struct Point2 {
  double x = 0, y = 0;
};

inline constexpr double kSphereRadius = 10.0;  // scene units
inline constexpr double kArrowScale = 20.5;    // a pure state's arrow is 10.25 units long
inline constexpr double kLengthScale = 38.0;   // L = |(a, b, c)| x 38; no arrow below 1

struct QubitArrow {
  double a = 0, b = 0, c = 0;
  double L = 0;          // Sqrt(a^2 + b^2 + c^2) x 38
  bool visible = false;  // L >= 1
  double length = 0;     // 20.5 x L / 38, in scene units
  Vec3 tip;              // (a, c, b) x 20.5 in the renderer's frame
};
QubitArrow QubitArrowFor(double A, double B, double C);

// Unit vector of the labelled axis 'x', 'y' or 'z' in the renderer's frame.
Vec3 LabelledAxis(char axis);

// A camera looking at the sphere's centre from a fixed direction with a mild perspective.
// View coordinates keep x right and y down on the screen; z is the depth, larger is farther.
struct SceneCamera {
  double yawDegrees = -128;   // turn about the vertical axis: x comes towards the viewer
  double pitchDegrees = 22;   // look down a little, so the equator is an ellipse
  double distance = 48;       // from the camera to the centre, in scene units

  Vec3 View(const Vec3& p) const;        // rotation only
  Point2 Project(const Vec3& p) const;   // perspective, scene units at the centre's depth
  double Depth(const Vec3& p) const { return View(p).z; }
  // Radius of the sphere's outline on the picture plane.
  double OutlineRadius(double radius = kSphereRadius) const;
};

// Convex hull (counter-clockwise on the screen's y-down plane is not promised; the order is
// a consistent winding), collinear points dropped.
std::vector<Point2> ConvexHull(std::vector<Point2> points);

// The arrow as projected outlines: a cylinder for the shaft and a cone for the head.
struct ArrowShapes {
  std::vector<Point2> shaft;  // outline of the shaft
  std::vector<Point2> head;   // outline of the head cone
  std::vector<Point2> cap;    // the cone's base disk
  bool capFacesViewer = false;  // the arrow points away: the base disk is seen, and the head
                                // is drawn before the shaft so the shaft covers it
  Point2 start;               // projected centre
  Point2 tip;                 // projected tip
};
// Shaft radius, head radius and head length in scene units; a short arrow gets a head of at
// most 45 % of its length, scaled down in proportion.
ArrowShapes BuildArrowShapes(const QubitArrow& arrow, const SceneCamera& camera,
                             double shaftRadius = 0.6, double headRadius = 1.6,
                             double headLength = 3.6);

} // namespace orvex
