#include "platform/gui/icons.h"

#include <cmath>

#include <QApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>

namespace orvex {
namespace {

constexpr int kSize = 32;

QPixmap Canvas() {
  QPixmap p(kSize, kSize);
  p.fill(Qt::transparent);
  return p;
}

// A rounded tile with a short label: MI rows (blue), program rows (green), ...
QPixmap Tile(const QColor& fill, const QString& label, const QColor& text = Qt::white) {
  QPixmap pm = Canvas();
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(fill.darker(150), 2));
  p.setBrush(fill);
  p.drawRoundedRect(QRectF(2, 4, 28, 24), 5, 5);
  QFont f = p.font();
  f.setBold(true);
  f.setPixelSize(label.size() > 2 ? 10 : 13);
  p.setFont(f);
  p.setPen(text);
  p.drawText(QRectF(2, 4, 28, 24), Qt::AlignCenter, label);
  return pm;
}

QPixmap Breakpoint() {
  QPixmap pm = Canvas();
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  // An octagonal stop sign.
  QPolygonF oct;
  for (int i = 0; i < 8; ++i) {
    const double a = (22.5 + 45.0 * i) * 3.14159265358979 / 180.0;
    oct << QPointF(16 + 14 * std::cos(a), 16 + 14 * std::sin(a));
  }
  p.setPen(QPen(QColor(120, 0, 0), 2));
  p.setBrush(QColor(210, 30, 30));
  p.drawPolygon(oct);
  p.setPen(QPen(Qt::white, 3));
  p.drawLine(10, 16, 22, 16);
  return pm;
}

QPixmap Start() {
  QPixmap pm = Canvas();
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(0, 90, 0), 2));
  p.setBrush(QColor(40, 170, 60));
  p.drawPolygon(QPolygonF({QPointF(8, 5), QPointF(27, 16), QPointF(8, 27)}));
  return pm;
}

// A little program sheet; `call` adds the arrow of a call.
QPixmap Program(bool call) {
  QPixmap pm = Canvas();
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(30, 100, 30), 2));
  p.setBrush(QColor(215, 245, 210));
  p.drawRect(QRectF(5, 3, 20, 26));
  p.setPen(QPen(QColor(30, 100, 30), 1.5));
  for (int y = 9; y <= 23; y += 5) p.drawLine(9, y, 21, y);
  if (call) {
    p.setPen(QPen(QColor(200, 110, 0), 3));
    p.drawLine(16, 22, 28, 22);
    p.setBrush(QColor(200, 110, 0));
    p.drawPolygon(QPolygonF({QPointF(30, 22), QPointF(23, 17), QPointF(23, 27)}));
  }
  return pm;
}

QIcon Standard(QStyle::StandardPixmap sp) { return QApplication::style()->standardIcon(sp); }

// A base image with a small badge in the lower right corner: "+", "x", "2", ...
QIcon Badged(const QPixmap& base, const QString& badge, const QColor& colour) {
  QPixmap pm = base;
  QPainter p(&pm);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(colour.darker(160), 1));
  p.setBrush(colour);
  p.drawEllipse(QRectF(17, 17, 14, 14));
  QFont f = p.font();
  f.setBold(true);
  f.setPixelSize(11);
  p.setFont(f);
  p.setPen(Qt::white);
  p.drawText(QRectF(17, 17, 14, 14), Qt::AlignCenter, badge);
  return QIcon(pm);
}

} // namespace

QIcon OrvexIcon(int number) {
  switch (number) {
  case 1: return QIcon(Tile(QColor(40, 90, 180), QStringLiteral("MI")));
  case 2: return QIcon(Breakpoint());
  case 12: return QIcon(Start());
  case 14: return QIcon(Program(false));
  case 19: return QIcon(Program(true));
  default: return QIcon(Tile(QColor(128, 128, 128), QString::number(number)));
  }
}

QIcon OrvexToolIcon(ToolIcon which) {
  const QPixmap mi = Tile(QColor(40, 90, 180), QStringLiteral("MI"));
  const QPixmap set = Tile(QColor(90, 60, 150), QStringLiteral("SET"));
  switch (which) {
  case ToolIcon::NewProgram: return Standard(QStyle::SP_FileIcon);
  case ToolIcon::OpenProgram: return Standard(QStyle::SP_DialogOpenButton);
  case ToolIcon::SaveAll: return Standard(QStyle::SP_DialogSaveButton);
  case ToolIcon::NewMISet: return Badged(set, QStringLiteral("+"), QColor(40, 160, 60));
  case ToolIcon::OpenMISet: return Standard(QStyle::SP_DirOpenIcon);
  case ToolIcon::SaveMISet: return Standard(QStyle::SP_DialogSaveButton);
  case ToolIcon::CopyMISet: return Badged(set, QStringLiteral("2"), QColor(200, 110, 0));
  case ToolIcon::SetQubits: return QIcon(Tile(QColor(20, 140, 150), QStringLiteral("Q#")));
  case ToolIcon::NewMI: return Badged(mi, QStringLiteral("+"), QColor(40, 160, 60));
  case ToolIcon::CopyMI: return Badged(mi, QStringLiteral("2"), QColor(200, 110, 0));
  case ToolIcon::SortMI: return QIcon(Tile(QColor(120, 120, 120), QStringLiteral("A-Z")));
  case ToolIcon::DeleteMI: return Badged(mi, QStringLiteral("x"), QColor(200, 30, 30));
  case ToolIcon::AddProgram: return Badged(Program(true), QStringLiteral("+"), QColor(40, 160, 60));
  case ToolIcon::Start: return QIcon(Start());
  case ToolIcon::Step: return Standard(QStyle::SP_MediaSkipForward);
  case ToolIcon::Back: return Standard(QStyle::SP_MediaSkipBackward);
  case ToolIcon::Reset: return Standard(QStyle::SP_BrowserReload);
  case ToolIcon::Save: return Standard(QStyle::SP_DialogSaveButton);
  case ToolIcon::RemoveRow: return Standard(QStyle::SP_TrashIcon);
  case ToolIcon::ClearProgram: return Standard(QStyle::SP_DialogResetButton);
  }
  return {};
}

} // namespace orvex
