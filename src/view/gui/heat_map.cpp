// The heat map of a two-parameter sweep.
#include "view/gui/heat_map.h"

#include <algorithm>
#include <cmath>

#include <QPainter>

#include "view/qubit_color.h"
#include "workspace/numbers.h"

namespace orvex {

namespace {

// Room around the cells: the axis labels on the left and below, the colour bar at the right.
constexpr int kLeft = 70, kRight = 90, kTop = 12, kBottom = 48;
constexpr int kBarWidth = 18, kBarGap = 14;

QString Num(double v) { return QString::fromStdString(NumText(v)); }

} // namespace

HeatMap::HeatMap(QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("HeatMap"));
  setMinimumSize(320, 240);
}

void HeatMap::setData(const QString& xName, const std::vector<double>& x, const QString& yName,
                      const std::vector<double>& y, const std::vector<std::vector<double>>& values) {
  xName_ = xName;
  yName_ = yName;
  x_ = x;
  y_ = y;
  values_ = values;
  update();
}

QColor HeatMap::colorOf(double sigma) {
  const RGBColor c = QubitColor((1 - sigma) / 2);
  return QColor(RedOf(c), GreenOf(c), BlueOf(c));
}

QRect HeatMap::plotRect() const {
  return QRect(kLeft, kTop, std::max(1, width() - kLeft - kRight), std::max(1, height() - kTop - kBottom));
}

QRect HeatMap::cellRect(int ix, int iy) const {
  const int nx = static_cast<int>(x_.size()), ny = static_cast<int>(y_.size());
  if (ix < 0 || iy < 0 || ix >= nx || iy >= ny) return {};
  const QRect plot = plotRect();
  const int left = plot.left() + plot.width() * ix / nx, right = plot.left() + plot.width() * (ix + 1) / nx;
  const int bottom = plot.bottom() + 1 - plot.height() * iy / ny;
  const int top = plot.bottom() + 1 - plot.height() * (iy + 1) / ny;
  return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
}

QString HeatMap::xLabel() const {
  if (x_.empty()) return xName_;
  return QStringLiteral("%1 from %2 to %3").arg(xName_, Num(x_.front()), Num(x_.back()));
}

QString HeatMap::yLabel() const {
  if (y_.empty()) return yName_;
  return QStringLiteral("%1 from %2 to %3").arg(yName_, Num(y_.front()), Num(y_.back()));
}

void HeatMap::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), palette().window());
  const QRect plot = plotRect();
  p.fillRect(plot, QColor(200, 200, 200));
  for (std::size_t ix = 0; ix < x_.size() && ix < values_.size(); ++ix)
    for (std::size_t iy = 0; iy < y_.size() && iy < values_[ix].size(); ++iy) {
      const double v = values_[ix][iy];
      if (std::isnan(v)) continue;
      p.fillRect(cellRect(static_cast<int>(ix), static_cast<int>(iy)), colorOf(v));
    }
  p.setPen(palette().windowText().color());
  p.drawRect(plot.adjusted(0, 0, -1, -1));

  // Axes: the first and last value at the ends, the name in the middle.
  const QFontMetrics fm = p.fontMetrics();
  if (!x_.empty()) {
    const int y = plot.bottom() + fm.height() + 2;
    p.drawText(QPoint(plot.left(), y), Num(x_.front()));
    const QString last = Num(x_.back());
    p.drawText(QPoint(plot.right() - fm.horizontalAdvance(last), y), last);
  }
  p.drawText(QRect(plot.left(), plot.bottom() + fm.height() + 4, plot.width(), fm.height() + 4),
             Qt::AlignHCenter, xName_);
  if (!y_.empty()) {
    p.drawText(QRect(0, plot.bottom() - fm.height(), kLeft - 4, fm.height()), Qt::AlignRight,
               Num(y_.front()));
    p.drawText(QRect(0, plot.top(), kLeft - 4, fm.height()), Qt::AlignRight, Num(y_.back()));
  }
  p.save();
  p.translate(fm.height(), plot.center().y());
  p.rotate(-90);
  p.drawText(QRect(-plot.height() / 2, -fm.height(), plot.height(), fm.height() + 4), Qt::AlignHCenter, yName_);
  p.restore();

  // The colour bar: +1 at the top, -1 at the bottom.
  const QRect bar(plot.right() + kBarGap, plot.top(), kBarWidth, plot.height());
  for (int row = 0; row < bar.height(); ++row) {
    const double sigma = bar.height() > 1 ? 1 - 2.0 * row / (bar.height() - 1) : 0;
    p.setPen(colorOf(sigma));
    p.drawLine(bar.left(), bar.top() + row, bar.right(), bar.top() + row);
  }
  p.setPen(palette().windowText().color());
  p.drawRect(bar.adjusted(0, 0, -1, -1));
  const int textX = bar.right() + 5;
  p.drawText(QPoint(textX, bar.top() + fm.ascent()), QStringLiteral("1"));
  p.drawText(QPoint(textX, bar.center().y() + fm.ascent() / 2), QStringLiteral("0"));
  p.drawText(QPoint(textX, bar.bottom()), QStringLiteral("\u22121"));
}

} // namespace orvex
