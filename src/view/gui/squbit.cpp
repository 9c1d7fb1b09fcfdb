// The qubit window: grid layout of the sphere boxes and the animation frame.
#include "view/gui/squbit.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>

#include "view/gui/sphere_renderer.h"
#include "view/qubit_grid.h"
#include "workspace/errors.h"
#include "workspace/workspace.h"

namespace orvex {

QubitSphereBox::QubitSphereBox(int qubit, QWidget* parent) : QWidget(parent), qubit_(qubit) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setToolTip(QStringLiteral("Qubit ") + QString::number(qubit));
}

void QubitSphereBox::setValues(double A, double B, double C) {
  a_ = A;
  b_ = B;
  c_ = C;
  update();
}

void QubitSphereBox::paintEvent(QPaintEvent*) {
  ++paints_;
  QPainter p(this);
  const int edge = std::min(width(), height());
  if (edge < width() || edge < height()) p.fillRect(rect(), Qt::black);
  PaintQubitSphere(p, edge, a_, b_, c_, trail_);
}

void QubitSphereBox::setTrail(std::vector<std::array<double, 3>> trail) {
  if (trail == trail_) return;
  trail_ = std::move(trail);
  update();
}

sQubit::sQubit(Workspace& workspace, int qubits, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::WindowStaysOnTopHint), ws_(workspace) {
  if (qubits < 1 || qubits > kMaxQubits) ThrowSubscriptOutOfRange();
  setObjectName(QStringLiteral("sQubit"));
  setWindowTitle(QStringLiteral("Qubits"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  scroll_ = new QScrollArea(this);
  scroll_->setFrameShape(QFrame::NoFrame);
  scroll_->setWidgetResizable(false);
  layout->addWidget(scroll_);
  grid_ = new QWidget;
  // Cells the grid leaves empty (9 qubits in 3 columns of 4) take the pictures' background.
  QPalette dark = grid_->palette();
  dark.setColor(QPalette::Window, QColor(22, 26, 36));
  grid_->setPalette(dark);
  grid_->setAutoFillBackground(true);
  for (int q = 1; q <= qubits; ++q) boxes_.push_back(new QubitSphereBox(q, grid_));
  scroll_->setWidget(grid_);
  Relayout();
}

QubitSphereBox* sQubit::box(int qubit) const {
  if (qubit < 1 || qubit > qubits()) ThrowSubscriptOutOfRange();
  return boxes_[static_cast<std::size_t>(qubit - 1)];
}

void sQubit::Relayout() {
  const double dpi = logicalDpiY() > 0 ? logicalDpiY() : 96.0;
  edge_ = QubitBoxPixels(ws_.QubitSize, dpi);
  const GridShape shape = QubitGridShape(qubits());
  for (QubitSphereBox* b : boxes_) {
    const GridCell cell = QubitGridCell(shape, b->qubit());
    b->setGeometry(cell.column * edge_, cell.row * edge_, edge_, edge_);
    b->show();
  }
  grid_->setFixedSize(shape.columns * edge_, shape.perColumn * edge_);
  FitToScreen();
}

void sQubit::FitToScreen() {
  QSize want = grid_->size();
  QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen();
  if (!screen) {
    resize(want);
    return;
  }
  const QRect avail = screen->availableGeometry();
  // Leave room for the window frame; a grid larger than the screen scrolls.
  const int frame = 40;
  QSize fit(std::min(want.width(), avail.width() - frame), std::min(want.height(), avail.height() - frame));
  if (fit.width() < want.width()) fit.rheight() += scroll_->horizontalScrollBar()->sizeHint().height();
  if (fit.height() < want.height()) fit.rwidth() += scroll_->verticalScrollBar()->sizeHint().width();
  fit = fit.boundedTo(avail.size() - QSize(frame, frame));
  resize(fit);
  QPoint at = pos();
  at.setX(std::clamp(at.x(), avail.left(), std::max(avail.left(), avail.right() - fit.width() - frame / 2)));
  at.setY(std::clamp(at.y(), avail.top(), std::max(avail.top(), avail.bottom() - fit.height() - frame)));
  move(at);
}

void sQubit::ShowValues(int qubit, double A, double B, double C) {
  box(qubit)->setValues(A, B, C);
}

void sQubit::Frame() {
  if (ws_.AnimateQubits <= 0) return;
  for (QubitSphereBox* b : boxes_) {
    const auto i = static_cast<std::size_t>(b->qubit() - 1);
    b->setValues(ws_.EngineX[i], ws_.EngineY[i], ws_.EngineZ[i]);
  }
  ++frames_;
  QCoreApplication::processEvents();
}

} // namespace orvex
