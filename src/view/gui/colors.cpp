// The "Color table" legend window.
#include "view/gui/colors.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPointer>
#include <QResizeEvent>

#include <algorithm>
#include <cmath>

#include "view/qubit_color.h"

namespace orvex {

void PaintColorLegend(QPainter& p, QSize size) {
  const int W = size.width(), H = size.height();
  if (W <= 0 || H <= 0) return;
  p.save();
  p.setRenderHint(QPainter::Antialiasing, false);
  const int thickness = std::max(1, static_cast<int>(std::ceil(H / 1000.0)));
  // t runs upwards from 0 on the bottom row to 1 on the top row; each later (larger) t paints
  // over the rows below it, so every row ends with the colour of the largest t that reaches it.
  for (int i = 0; i <= 1000; ++i) {
    const double t = i * 0.001;
    int row = static_cast<int>(std::lround((1 - t) * (H - 1)));
    row = std::clamp(row, 0, H - 1);
    const RGBColor c = QubitColor(t);
    p.fillRect(0, row, W, std::min(thickness, H - row), QColor(RedOf(c), GreenOf(c), BlueOf(c)));
  }
  p.setPen(Qt::white);
  QFont font = p.font();
  font.setBold(true);
  p.setFont(font);
  const QFontMetrics fm(font);
  const int one = fm.horizontalAdvance(QStringLiteral("1"));
  const int zero = fm.horizontalAdvance(QStringLiteral("0"));
  p.drawText(W / 2 - one / 2, fm.ascent(), QStringLiteral("1"));
  p.drawText(W / 2 - zero / 2, H - fm.height() + fm.ascent(), QStringLiteral("0"));
  p.restore();
}

Colors::Colors(QWidget* parent) : QWidget(parent, Qt::Tool) {
  setObjectName(QStringLiteral("Colors"));
  setWindowTitle(QStringLiteral("Color table"));
  setAttribute(Qt::WA_OpaquePaintEvent);
  resize(sizeHint());
  redraw();
}

void Colors::redraw() const {
  const QSize s = size().isEmpty() ? sizeHint() : size();
  legend_ = QPixmap(s);
  legend_.setDevicePixelRatio(1.0);
  legend_.fill(Qt::black);
  QPainter p(&legend_);
  PaintColorLegend(p, s);
}

const QPixmap& Colors::legend() const {
  // A hidden window gets its resize event only when shown; draw for the size it has now.
  if (legend_.size() != size() && !size().isEmpty()) redraw();
  return legend_;
}

void Colors::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  if (event->size() != legend_.size()) redraw();
}

void Colors::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.drawPixmap(0, 0, legend());
}

Colors* ShowColorTable(QWidget* parent) {
  static QPointer<Colors> window;
  if (!window) window = new Colors(parent);
  window->show();
  window->raise();
  return window;
}

} // namespace orvex
