// The program editor's qubit boxes: three coloured stripes x (top), y, z (bottom) on the
// green-to-red scale with black separators, and the exact values as the tool tip.
//
// Use in the program editor: one QubitBox per qubit; after each run, step, back or reset
// call setValues(x, y, z) with QubitX/Y/Z of the slot; connect clicked() to showing the
// "Color table" window (ShowColorTable).
#pragma once

#include <QPixmap>
#include <QSize>
#include <QWidget>

#include <vector>

class QPainter;

namespace orvex {

class Workspace;

// Paints the stripes into the rectangle (0, 0)-(width - 1, height - 1) of `painter`'s device:
// x on rows 0..h, y on rows h+1..2h, z on rows 2h+1 to the bottom, black lines on rows h and
// 2h, h = height / 3 (see StripeBandsFor).
void PaintQubitStripes(QPainter& painter, int width, int height, double x, double y, double z);
// The same, as a pixmap of the given size (device pixel ratio 1).
QPixmap QubitStripesPixmap(QSize size, double x, double y, double z);

// One qubit box: holds x, y, z, paints its stripes, shows them as its tool tip, and reports
// a left click.
class QubitBox : public QWidget {
  Q_OBJECT
public:
  explicit QubitBox(QWidget* parent = nullptr);

  // Stores the values, sets the tool tip "x = ... ,y = ... ,z = ..." and repaints.
  void setValues(double x, double y, double z);
  double x() const { return x_; }
  double y() const { return y_; }
  double z() const { return z_; }

  QSize sizeHint() const override { return {32, 30}; }

signals:
  void clicked();

protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;

private:
  // A fresh box shows the state |0> until it is told otherwise.
  double x_ = 0.5, y_ = 0.5, z_ = 0.0;
};

// The refresh of one program's read-out after a run, step, back or reset: box q (boxes[q - 1])
// takes QubitX/Y/Z(slot, q) for q = 1 to ProgramQubits(slot), at most boxes.size(); the
// other boxes are left alone. Null entries are skipped.
void UpdateQubitBoxes(Workspace& workspace, int slot, const std::vector<QubitBox*>& boxes);

} // namespace orvex
