// Painting of the three-stripe qubit boxes of the program editor.
#include "view/gui/qubit_stripes.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>

#include "view/qubit_color.h"
#include "view/qubit_display.h"
#include "workspace/workspace.h"

namespace orvex {
namespace {

QColor ToQColor(RGBColor c) { return QColor(RedOf(c), GreenOf(c), BlueOf(c)); }

// Fills rows first..last (inclusive) across the whole width; nothing when the band is empty.
void FillRows(QPainter& p, int width, int first, int last, double value) {
  if (last < first || width <= 0) return;
  p.fillRect(0, first, width, last - first + 1, ToQColor(QubitColor(value)));
}

} // namespace

void PaintQubitStripes(QPainter& painter, int width, int height, double x, double y, double z) {
  if (width <= 0 || height <= 0) return;
  const StripeBands b = StripeBandsFor(height);
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing, false);
  FillRows(painter, width, b.xFirst, b.xLast, x);
  FillRows(painter, width, b.yFirst, b.yLast, y);
  FillRows(painter, width, b.zFirst, b.zLast, z);
  // The separators go on after the stripes, so they cover the first and second band's last row.
  painter.fillRect(0, b.separator1, width, 1, Qt::black);
  painter.fillRect(0, b.separator2, width, 1, Qt::black);
  painter.restore();
}

QPixmap QubitStripesPixmap(QSize size, double x, double y, double z) {
  QPixmap pm(size);
  pm.setDevicePixelRatio(1.0);
  pm.fill(Qt::white);
  QPainter p(&pm);
  PaintQubitStripes(p, size.width(), size.height(), x, y, z);
  return pm;
}

QubitBox::QubitBox(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setToolTip(QString::fromStdString(QubitToolTipWithPurity(x_, y_, z_)));
}

void QubitBox::setValues(double x, double y, double z) {
  x_ = x;
  y_ = y;
  z_ = z;
  setToolTip(QString::fromStdString(QubitToolTipWithPurity(x, y, z)));
  update();
}

void QubitBox::paintEvent(QPaintEvent*) {
  QPainter p(this);
  PaintQubitStripes(p, width(), height(), x_, y_, z_);
}

void QubitBox::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) emit clicked();
  QWidget::mousePressEvent(event);
}

void UpdateQubitBoxes(Workspace& ws, int slot, const std::vector<QubitBox*>& boxes) {
  const int n = std::min<int>(ws.ProgramQubits(slot), static_cast<int>(boxes.size()));
  for (int q = 1; q <= n; ++q) {
    QubitBox* box = boxes[static_cast<std::size_t>(q - 1)];
    if (box) box->setValues(ws.QubitX(slot, q), ws.QubitY(slot, q), ws.QubitZ(slot, q));
  }
}

} // namespace orvex
