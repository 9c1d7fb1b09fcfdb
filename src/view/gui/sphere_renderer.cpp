// QPainter renderer of the qubit sphere: background, glass sphere, axes, arrow, highlight.
#include "view/gui/sphere_renderer.h"

#include <QFont>
#include <QFontMetricsF>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "view/qubit_arrow.h"

namespace orvex {
namespace {

const QColor kBackgroundTop(44, 52, 70);
const QColor kBackgroundBottom(22, 26, 36);
const QColor kArrowLight(255, 196, 92);
const QColor kArrowDark(196, 92, 16);
const QColor kLabel(236, 240, 248);

// Maps scene units at the centre's depth to pixels of the box.
struct PixelMap {
  double cx, cy, scale;
  QPointF operator()(const Point2& p) const { return {cx + p.x * scale, cy + p.y * scale}; }
};

QPolygonF ToPolygon(const std::vector<Point2>& pts, const PixelMap& map) {
  QPolygonF poly;
  for (const Point2& p : pts) poly << map(p);
  return poly;
}

// A gradient across an outline perpendicular to its long direction, for a rounded look.
QLinearGradient AcrossGradient(const QPolygonF& poly, QPointF from, QPointF to, QColor light,
                               QColor dark) {
  QPointF d = to - from;
  const double len = std::hypot(d.x(), d.y());
  QPointF n = len > 1e-9 ? QPointF(-d.y() / len, d.x() / len) : QPointF(1, 0);
  // Light from the upper left: orient the normal towards it.
  if (n.x() + n.y() > 0) n = -n;
  double extent = 0;
  const QPointF mid = (from + to) / 2;
  for (const QPointF& p : poly) extent = std::max(extent, std::fabs(QPointF::dotProduct(p - mid, n)));
  extent = std::max(extent, 0.5);
  QLinearGradient g(mid + n * extent, mid - n * extent);
  g.setColorAt(0.0, light);
  g.setColorAt(0.45, light.darker(110));
  g.setColorAt(1.0, dark);
  return g;
}

void DrawAxis(QPainter& p, const SceneCamera& cam, const PixelMap& map, char axis, double width,
              bool frontPart) {
  const Vec3 u = LabelledAxis(axis);
  const double reach = kSphereRadius * 1.22;
  // Split the axis at the centre: one half lies towards the viewer, the other away.
  for (double sign : {-1.0, 1.0}) {
    const Vec3 end = {u.x * reach * sign, u.y * reach * sign, u.z * reach * sign};
    const bool front = cam.Depth(end) < 0;
    if (front != frontPart) continue;
    QPen pen(front ? QColor(225, 232, 245, 230) : QColor(170, 185, 210, 150), width);
    pen.setCapStyle(Qt::RoundCap);
    if (sign < 0) pen.setStyle(Qt::DotLine);  // the negative half
    p.setPen(pen);
    p.drawLine(map(cam.Project({})), map(cam.Project(end)));
  }
}

void DrawEquator(QPainter& p, const SceneCamera& cam, const PixelMap& map, double width,
                 bool frontPart) {
  // The circle in the x-y plane (the renderer's X-Z plane).
  QPen pen(frontPart ? QColor(200, 215, 240, 170) : QColor(160, 175, 205, 90), width);
  p.setPen(pen);
  const int segments = 72;
  for (int i = 0; i < segments; ++i) {
    const double t0 = 2 * std::numbers::pi * i / segments,
                 t1 = 2 * std::numbers::pi * (i + 1) / segments;
    const Vec3 a = {kSphereRadius * std::cos(t0), 0, kSphereRadius * std::sin(t0)};
    const Vec3 b = {kSphereRadius * std::cos(t1), 0, kSphereRadius * std::sin(t1)};
    const bool front = cam.Depth({(a.x + b.x) / 2, 0, (a.z + b.z) / 2}) < 0;
    if (front == frontPart) p.drawLine(map(cam.Project(a)), map(cam.Project(b)));
  }
}

void DrawLabels(QPainter& p, const SceneCamera& cam, const PixelMap& map, int edge) {
  QFont font(QStringLiteral("DejaVu Sans"));
  font.setStyleHint(QFont::SansSerif);
  font.setPixelSize(std::max(9, static_cast<int>(std::lround(edge * 0.13))));
  font.setBold(true);
  p.setFont(font);
  const QFontMetricsF fm(font);
  for (char axis : {'x', 'y', 'z'}) {
    const Vec3 u = LabelledAxis(axis);
    const double reach = kSphereRadius * 1.42;
    QPointF at = map(cam.Project({u.x * reach, u.y * reach, u.z * reach}));
    const QString text(QChar::fromLatin1(axis));
    const QRectF box(at.x() - fm.horizontalAdvance(text) / 2, at.y() - fm.height() / 2,
                     fm.horizontalAdvance(text), fm.height());
    // Keep the label inside the box.
    QRectF fitted = box;
    fitted.moveLeft(std::clamp(box.left(), 1.0, edge - box.width() - 1.0));
    fitted.moveTop(std::clamp(box.top(), 0.0, edge - box.height()));
    // A dark halo keeps the letter legible where it crosses the sphere.
    QPainterPath path;
    path.addText(fitted.left(), fitted.top() + fm.ascent(), font, text);
    p.setPen(QPen(QColor(10, 12, 18, 200), std::max(2.0, edge / 40.0), Qt::SolidLine,
                  Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPath(path);
    p.setPen(Qt::NoPen);
    p.setBrush(kLabel);
    p.drawPath(path);
  }
}

void DrawArrow(QPainter& p, const SceneCamera& cam, const PixelMap& map, const QubitArrow& arrow,
               int edge) {
  const ArrowShapes s = BuildArrowShapes(arrow, cam);
  const QPolygonF shaft = ToPolygon(s.shaft, map), head = ToPolygon(s.head, map),
                  cap = ToPolygon(s.cap, map);
  const QPointF start = map(s.start), tip = map(s.tip);
  const QPen outline(QColor(70, 30, 0, 200), std::max(0.6, edge / 160.0));
  auto drawShaft = [&] {
    p.setPen(outline);
    p.setBrush(AcrossGradient(shaft, start, tip, kArrowLight, kArrowDark));
    p.drawPolygon(shaft);
  };
  auto drawHead = [&] {
    p.setPen(outline);
    p.setBrush(AcrossGradient(head, start, tip, kArrowLight.lighter(105), kArrowDark));
    p.drawPolygon(head);
  };
  if (s.capFacesViewer) {
    // Pointing away: the head lies behind the shaft, and its base disk is seen.
    drawHead();
    p.setPen(outline);
    p.setBrush(kArrowDark.darker(125));
    p.drawPolygon(cap);
    drawShaft();
  } else {
    drawShaft();
    drawHead();
  }
}

} // namespace

void PaintQubitSphere(QPainter& p, int edge, double A, double B, double C) {
  PaintQubitSphere(p, edge, A, B, C, SphereTrail{});
}

void PaintQubitSphere(QPainter& p, int edge, double A, double B, double C, const SphereTrail& trail) {
  if (edge <= 0) return;
  p.save();
  p.setRenderHint(QPainter::Antialiasing, true);
  p.setRenderHint(QPainter::TextAntialiasing, true);

  QLinearGradient bg(0, 0, 0, edge);
  bg.setColorAt(0, kBackgroundTop);
  bg.setColorAt(1, kBackgroundBottom);
  p.fillRect(0, 0, edge, edge, bg);

  const SceneCamera cam;
  // The sphere's outline takes about two thirds of the box, leaving room for the labels.
  const double outline = edge * 0.33;
  const PixelMap map{edge / 2.0, edge / 2.0 + edge * 0.02, outline / cam.OutlineRadius()};
  const double line = std::max(1.0, edge / 90.0);

  // Back halves of the axes and the equator, seen through the glass.
  DrawAxis(p, cam, map, 'x', line, false);
  DrawAxis(p, cam, map, 'y', line, false);
  DrawAxis(p, cam, map, 'z', line, false);

  // Glass body: bright upper left, deep blue at the rim, partly transparent.
  const QPointF c = map(cam.Project({}));
  QRadialGradient body(c, outline, c + QPointF(-outline * 0.4, -outline * 0.45));
  body.setColorAt(0.0, QColor(150, 190, 255, 150));
  body.setColorAt(0.6, QColor(60, 100, 190, 135));
  body.setColorAt(1.0, QColor(18, 34, 90, 190));
  p.setPen(Qt::NoPen);
  p.setBrush(body);
  p.drawEllipse(c, outline, outline);

  DrawEquator(p, cam, map, line * 0.9, false);
  DrawEquator(p, cam, map, line * 0.9, true);

  // The trail: segment k of n drawn with an opacity growing from faint (oldest) to full.
  if (trail.size() >= 2) {
    const QColor newest = QColor::fromRgb(kTrailRgb);
    const std::size_t n = trail.size();
    QPointF from = map(cam.Project(QubitArrowFor(trail[0][0], trail[0][1], trail[0][2]).tip));
    for (std::size_t k = 1; k < n; ++k) {
      const QPointF to = map(cam.Project(QubitArrowFor(trail[k][0], trail[k][1], trail[k][2]).tip));
      QColor segment = newest;
      segment.setAlphaF(0.15 + 0.85 * static_cast<double>(k) / static_cast<double>(n - 1));
      p.setPen(QPen(segment, std::max(1.5, edge / 60.0), Qt::SolidLine, Qt::RoundCap));
      p.drawLine(from, to);
      from = to;
    }
  }

  // The arrow lives inside the sphere; it is drawn before the front axes only when it points
  // away from the viewer.
  const QubitArrow arrow = QubitArrowFor(A, B, C);
  const bool arrowAway = arrow.visible && cam.Depth(arrow.tip) > 0;
  if (arrow.visible && arrowAway) DrawArrow(p, cam, map, arrow, edge);
  DrawAxis(p, cam, map, 'x', line, true);
  DrawAxis(p, cam, map, 'y', line, true);
  DrawAxis(p, cam, map, 'z', line, true);
  if (arrow.visible && !arrowAway) DrawArrow(p, cam, map, arrow, edge);

  // Front glass: a soft highlight and a thin rim.
  QRadialGradient shine(c + QPointF(-outline * 0.38, -outline * 0.42), outline * 0.55);
  shine.setColorAt(0.0, QColor(255, 255, 255, 110));
  shine.setColorAt(1.0, QColor(255, 255, 255, 0));
  p.setPen(Qt::NoPen);
  p.setBrush(shine);
  p.drawEllipse(c, outline, outline);
  p.setBrush(Qt::NoBrush);
  p.setPen(QPen(QColor(150, 180, 240, 160), std::max(1.0, edge / 120.0)));
  p.drawEllipse(c, outline, outline);

  DrawLabels(p, cam, map, edge);
  p.restore();
}

QImage QubitSphereImage(int edge, double A, double B, double C) {
  QImage img(edge, edge, QImage::Format_ARGB32_Premultiplied);
  img.fill(Qt::black);
  QPainter p(&img);
  PaintQubitSphere(p, edge, A, B, C);
  return img;
}

} // namespace orvex
