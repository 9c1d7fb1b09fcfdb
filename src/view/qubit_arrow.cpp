// Arrow geometry, camera and projected outlines of the qubit window's sphere picture.
#include "view/qubit_arrow.h"

#include <algorithm>
#include <cmath>

namespace orvex {
namespace {

constexpr double kPi = 3.14159265358979323846;

Vec3 Add(const Vec3& p, const Vec3& q) { return {p.x + q.x, p.y + q.y, p.z + q.z}; }
Vec3 Scale(const Vec3& p, double s) { return {p.x * s, p.y * s, p.z * s}; }
double Dot(const Vec3& p, const Vec3& q) { return p.x * q.x + p.y * q.y + p.z * q.z; }
Vec3 Cross(const Vec3& p, const Vec3& q) {
  return {p.y * q.z - p.z * q.y, p.z * q.x - p.x * q.z, p.x * q.y - p.y * q.x};
}
Vec3 Normalized(const Vec3& p) {
  const double n = std::sqrt(Dot(p, p));
  return n > 0 ? Scale(p, 1 / n) : Vec3{};
}

// Points of the circle of `radius` around `centre` in the plane normal to `axis` (unit).
std::vector<Vec3> Circle(const Vec3& centre, const Vec3& axis, double radius, int segments) {
  const Vec3 ref = std::fabs(axis.x) < 0.9 ? Vec3{1, 0, 0} : Vec3{0, 1, 0};
  const Vec3 u = Normalized(Cross(axis, ref));
  const Vec3 w = Cross(axis, u);
  std::vector<Vec3> pts;
  pts.reserve(static_cast<std::size_t>(segments));
  for (int i = 0; i < segments; ++i) {
    const double t = 2 * kPi * i / segments;
    pts.push_back(Add(centre, Add(Scale(u, radius * std::cos(t)), Scale(w, radius * std::sin(t)))));
  }
  return pts;
}

double Cross2(const Point2& o, const Point2& a, const Point2& b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

} // namespace

QubitArrow QubitArrowFor(double A, double B, double C) {
  QubitArrow r;
  r.a = 0.5 - A;
  r.b = 0.5 - B;
  r.c = C - 0.5;
  r.L = std::sqrt(r.a * r.a + r.b * r.b + r.c * r.c) * kLengthScale;
  r.visible = r.L >= 1;  // NaN compares false: no arrow
  if (r.visible) {
    r.length = kArrowScale * r.L / kLengthScale;
    r.tip = {r.a * kArrowScale, r.c * kArrowScale, r.b * kArrowScale};
  }
  return r;
}

Vec3 LabelledAxis(char axis) {
  switch (axis) {
  case 'x': return {1, 0, 0};
  case 'y': return {0, 0, 1};
  default: return {0, -1, 0};  // 'z', upwards
  }
}

Vec3 SceneCamera::View(const Vec3& p) const {
  const double yaw = yawDegrees * kPi / 180, pitch = pitchDegrees * kPi / 180;
  // Turn about the vertical (Y) axis, then tilt about the screen's horizontal axis so that
  // points nearer the viewer move down: the camera looks from above.
  const double x1 = p.x * std::cos(yaw) - p.z * std::sin(yaw);
  const double z1 = p.x * std::sin(yaw) + p.z * std::cos(yaw);
  const double y2 = p.y * std::cos(pitch) - z1 * std::sin(pitch);
  const double z2 = p.y * std::sin(pitch) + z1 * std::cos(pitch);
  return {x1, y2, z2};
}

Point2 SceneCamera::Project(const Vec3& p) const {
  const Vec3 v = View(p);
  const double f = distance / (distance + v.z);
  return {v.x * f, v.y * f};
}

double SceneCamera::OutlineRadius(double radius) const {
  return radius * distance / std::sqrt(distance * distance - radius * radius);
}

std::vector<Point2> ConvexHull(std::vector<Point2> pts) {
  std::sort(pts.begin(), pts.end(),
            [](const Point2& p, const Point2& q) { return p.x < q.x || (p.x == q.x && p.y < q.y); });
  if (pts.size() < 3) return pts;
  std::vector<Point2> hull(2 * pts.size());
  std::size_t k = 0;
  for (const Point2& p : pts) {
    while (k >= 2 && Cross2(hull[k - 2], hull[k - 1], p) <= 0) --k;
    hull[k++] = p;
  }
  for (std::size_t i = pts.size() - 1, lower = k + 1; i-- > 0;) {
    while (k >= lower && Cross2(hull[k - 2], hull[k - 1], pts[i]) <= 0) --k;
    hull[k++] = pts[i];
  }
  hull.resize(k - 1);
  return hull;
}

ArrowShapes BuildArrowShapes(const QubitArrow& arrow, const SceneCamera& camera,
                             double shaftRadius, double headRadius, double headLength) {
  ArrowShapes s;
  s.start = camera.Project({});
  if (!arrow.visible) return s;
  const Vec3 dir = Normalized(arrow.tip);
  const double len = std::sqrt(Dot(arrow.tip, arrow.tip));
  // A short arrow keeps the proportions of a long one, with a head of at most 45 %.
  const double shrink = std::min(1.0, 0.45 * len / headLength);
  const double hl = headLength * shrink, hr = headRadius * shrink;
  const double sr = shaftRadius * std::max(shrink, 0.5);
  const Vec3 base = Scale(dir, len - hl);
  s.tip = camera.Project(arrow.tip);

  std::vector<Point2> pts;
  for (const Vec3& p : Circle({}, dir, sr, 12)) pts.push_back(camera.Project(p));
  for (const Vec3& p : Circle(base, dir, sr, 12)) pts.push_back(camera.Project(p));
  s.shaft = ConvexHull(pts);

  pts.clear();
  const std::vector<Vec3> rim = Circle(base, dir, hr, 20);
  for (const Vec3& p : rim) {
    pts.push_back(camera.Project(p));
    s.cap.push_back(pts.back());
  }
  pts.push_back(s.tip);
  s.head = ConvexHull(pts);
  s.cap = ConvexHull(s.cap);

  // The base disk's normal is -dir; it faces the camera (at depth -distance on the view
  // axis) when it points towards it.
  const Vec3 baseView = camera.View(base);
  const Vec3 toCamera = {-baseView.x, -baseView.y, -camera.distance - baseView.z};
  s.capFacesViewer = Dot(camera.View(Scale(dir, -1)), toCamera) > 0;
  return s;
}

} // namespace orvex
