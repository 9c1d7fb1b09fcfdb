// The "Color table" window: the legend of the qubit colour scale, 1 (red) at the top and
// 0 (green) at the bottom, with "1" and "0" printed in white at top and bottom centre.
//
// Use: the program editor shows it (non-modal) when a qubit box is clicked, through
// ShowColorTable(parent); one window is kept and raised again on later clicks.
#pragma once

#include <QPixmap>
#include <QSize>
#include <QWidget>

class QPainter;

namespace orvex {

// Paints the legend over the whole of (0, 0)-(size - 1): for t = 0 to 1 in steps of 0.001 a
// line at y = (1 - t) x (H - 1) in QubitColor(t), so 1 lies on the top row and 0 on the bottom
// row (each line at least 1/1000 of the height thick, so a tall picture has no gaps), then
// "1" at top centre and "0" at bottom centre in white.
void PaintColorLegend(QPainter& painter, QSize size);

class Colors : public QWidget {
  Q_OBJECT
public:
  explicit Colors(QWidget* parent = nullptr);
  // The legend for the current size (drawn at construction, redrawn when the size changes).
  const QPixmap& legend() const;
  QSize sizeHint() const override { return {120, 300}; }

protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

private:
  void redraw() const;
  mutable QPixmap legend_;
};

// Shows the one "Color table" window (created on first use as a tool window of `parent`),
// raises it, and returns it.
Colors* ShowColorTable(QWidget* parent = nullptr);

} // namespace orvex
